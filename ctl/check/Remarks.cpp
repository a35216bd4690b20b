#include "ctl/check/Remarks.h"

#include "ctl/check/Advice.h"
#include "ctl/check/Place.h"
#include "ctl/check/SyntaxFault.h"

#include "base/ComText.h"
#include "base/LineReader.h"
#include "config/JsonDocument.h"
#include "gnss/ComTime.h"
#include "gnss/Session.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <cmath>

namespace ctl::check {

namespace {

constexpr std::size_t kShown = 40; // of a line, characters

bool isName(std::string_view word) {
    return std::all_of(word.begin(), word.end(),
                       [](char c) { return isUpperLetter(c) || (c >= '0' && c <= '9'); });
}

/// A GLONASS channel that stands among the words, because one of them is missing.
bool channelIsAWord(const SatelliteRecord& satellite) {
    const auto last = std::find_if(satellite.texts.rbegin(), satellite.texts.rend(),
                                   [](const std::string& word) { return !word.empty(); });
    int k = 0;
    if (last == satellite.texts.rbegin() || last == satellite.texts.rend())
        return false;
    TextScanner scan(*last);
    return scan.integer(k) && scan.atEnd() && validChannel(k);
}

/// Keys whose values are paths.
bool namesPath(std::string_view key) {
    return key == "files" || key.starts_with("files/") || key.starts_with("path/");
}

/// Whether what a '#' or '!' cut off a path looks like its rest and not like a comment.
bool cutsAPath(std::string_view written) {
    const std::size_t at = written.find_first_of("#!");
    if (at == std::string_view::npos || at + 1 == written.size())
        return false;
    if (at == 0) // nothing but a comment, as it seems
        return contains(written, "/") &&
               written.find_first_of(kWhiteSpace) == std::string_view::npos;
    return written[at - 1] == '/' ||
           written.find_first_of(kWhiteSpace, at + 1) == std::string_view::npos;
}

/// The text with no white space in front of its comment or its end.
std::string tightened(std::string_view written) {
    const std::size_t comment = std::min(written.find_first_of("#!"), written.size());
    const std::string_view value = written.substr(0, comment);
    const std::size_t last = value.find_last_not_of(kWhiteSpace);
    return std::string(value.substr(0, last + 1)).append(written.substr(comment)); // npos + 1 is 0
}

} // namespace

bool isSatellite(const std::string& name) {
    const int sat = satid2no(name);
    return sat > 0 && satno2id(sat) == name;
}

void Remarks::warn(const KeyPlace& at, std::string what, std::string advice) {
    add({Severity::warning, at.file, 0, at.key, std::move(what), std::move(advice)});
}

void Remarks::warn(const RecordPlace& at, std::string what, std::string advice) {
    add({Severity::warning, at.file, at.line, {}, std::move(what), std::move(advice)});
}

void Remarks::explain(FindingId id, const RecordPlace& at, Explanation explanation) {
    explanations_[{id, at.file, at.line}] = std::move(explanation);
}

const Explanation* Remarks::explanationOf(const Finding& finding) const {
    const auto found = explanations_.find({finding.id, finding.file, finding.line});
    return found == explanations_.end() ? nullptr : &found->second;
}

void Remarks::parsed(const JsonDocument& document, std::string_view content, std::size_t end) {
    if (!document.root) {
        SyntaxFault fault = syntaxFault(content, end);
        return explain(FindingId::jsonMalformed, {document.file, 0},
                       {fault.line, std::move(fault.advice)});
    }
    const std::size_t rest = content.find_first_not_of(kWhiteSpace, end);
    if (rest != std::string_view::npos)
        warn(RecordPlace{document.file, lineOf(content, rest)},
             text("the document ends in front of: %s",
                  std::string(content.substr(rest, kShown)).c_str()),
             "what is behind it is not read: is a bracket closed too early?");
}

void Remarks::value(const KeyPlace& at, const cJSON& item, const std::string& taken) {
    const std::string written = item.valuestring;
    const std::string tight = tightened(written);
    const auto remark = [&](std::string advice) {
        warn(at, text("reads \"%s\", written %s", taken.c_str(), shown(&item).c_str()),
             std::move(advice));
    };
    if (namesPath(at.key) && written.find_first_of("#!") != std::string::npos)
        cutPaths_.push_back(taken);
    if (excludeAnnoValue(tight) != taken)
        remark(text("each blank before a comment or at the end turns into a 0: write \"%s\"",
                    tight.c_str()));
    else if (namesPath(at.key) && cutsAPath(written))
        remark("a # or ! ends a value: a path cannot hold one");
}

void Remarks::valueEnd(const KeyPlace& at, const std::string& value, std::string_view end,
                       FindingId malformed) {
    warn(at, text("of \"%s\" the end is not read: \"%s\"", value.c_str(), std::string(end).c_str()),
         std::string(adviceOn(malformed)));
}

void Remarks::asked(const JsonDocument& document, const Findings& findings) {
    remarkOnKeys(document, findings, *this);
}

// Every month takes up to 31 days; month 0 stands for a day of year.
void Remarks::date(const KeyPlace& at, const ReadDate& d) {
    const DateTime t = mjd2date(d.mjd, 0.0);
    if (d.month != 0 && d.mjd != 0 && (t.month != d.month || t.day != d.day))
        warn(at,
             text("%d-%02d-%02d is read as %d-%02d-%02d", d.year, d.month, d.day, t.year, t.month,
                  t.day),
             d.year < 1000 ? "write the year with four digits" : "write a date of the calendar");
}

void Remarks::requestName(const KeyPlace& at, const cJSON& written, const std::string& taken) {
    add({Severity::note, at.file, 0, at.key,
         text("reads \"%s\", written %s", taken.c_str(), shown(&written).c_str()),
         "a name has at most 7 characters"});
}

void Remarks::systemAgain(const KeyPlace& at, const std::string& item) {
    warn(at, text("%s names a system a second time", item.c_str()),
         "the last one counts: put all its carriers together");
}

// Bands are found by substring, so that of several with another separator between one is left.
void Remarks::band(const KeyPlace& at, const ReadBand& b) {
    const bool plain = std::all_of(b.band.begin(), b.band.end(), [](char c) {
        return isUpperLetter(c) || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
    });
    if (!plain)
        warn(at,
             text("\"%s\" is read as %s", b.band.c_str(),
                  b.slot == b.band ? "one carrier" : b.slot.c_str()),
             "put _ between carriers and a blank between systems");
    if (pointer_string(b.before, b.slot) >= 0)
        warn(at, text("%s: %s stands twice", b.item.c_str(), b.slot.c_str()),
             "name every carrier once: is another one meant?");
}

void Remarks::bandLeftOut(const KeyPlace& at, const std::string& item, const std::string& band) {
    warn(at, text("%s: %s is left out", item.c_str(), band.c_str()),
         "a system has at most 4 carriers");
}

void Remarks::passedOver(std::string_view line, RecordKind expected, const RecordPlace& at) {
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    const bool marked = line.starts_with(byteOrderMark);
    if (marked)
        line.remove_prefix(byteOrderMark.size());
    TextScanner scan(line);
    std::string word;
    if (!scan.word(word))
        return;
    // Names of stations are like words; in front of the stations they are words.
    const bool station = expected == RecordKind::station && word.size() == 4 && isName(word);
    if ((marked && line.front() == ' ') || isSatellite(word) || station)
        warn(at,
             text("is passed over as a comment: %s", std::string(line.substr(0, kShown)).c_str()),
             marked ? "the file begins with a byte order mark: save it without"
                    : "a record begins with a blank");
}

void Remarks::channel(const SatelliteRecord& satellite, std::size_t numbers,
                      const RecordPlace& at) {
    const char* const name = satellite.cprn.c_str();
    if (numbers > 0 && satellite.glonassChannel == kUnknownChannel)
        warn(at, text("%s: %g is no GLONASS channel", name, satellite.numbers[0]),
             "a channel is a whole number from -7 to 6; this one is not used, and the satellite "
             "has no phase until the stream has told its channel");
    else if (numbers == 0 && channelIsAWord(satellite))
        warn(at, text("%s: its channel is taken for a word", name),
             "three words stand between the name and the channel: write - for each");
}

void Remarks::satellite(const SatelliteRecord& satellite, std::size_t numbers,
                        std::string_view rest, const RecordPlace& at) {
    const std::string& name = satellite.cprn;
    const bool refused = name.size() > 3 || !contains(kSystems, name.substr(0, 1));
    if (!refused && !isSatellite(name))
        warn(at, text("%s is no satellite that a stream can carry", name.c_str()),
             "a name is the letter of the system (G R E C J) and two digits, such as G05");
    if (!rest.empty())
        warn(at,
             text("%s: the end is not read: %s", name.c_str(),
                  std::string(rest.substr(0, kShown)).c_str()),
             "a record is a name, three words and up to 23 numbers");
    else if (name.starts_with('R'))
        channel(satellite, numbers, at);
}

void Remarks::station(const StationRecord& station, bool first, std::string_view rest,
                      const RecordPlace& at) {
    first_ = first;
    const char* const name = station.name.c_str();
    if (!first)
        warn(at, text("station %s is not served", name),
             "the first station is the reference: give every further one a deployment of its own");
    if (!rest.empty())
        warn(at,
             text("%s: the end is not read: %s", name, std::string(rest.substr(0, kShown)).c_str()),
             "a record is a name, a coordinate mode, two words, 15 numbers, a word and 20 numbers");
}

void Remarks::position(const StationRecord& station, const ReadPosition& read,
                       const RecordPlace& at) {
    // The line was found by its key, which need not stand at its beginning.
    if (!read.word.starts_with(read.key))
        warn(at,
             text("station %s: %s is taken for %s", station.name.c_str(),
                  read.word.substr(0, kShown).c_str(), read.key.c_str()),
             text("the first line that holds %s counts: begin it with that, and put it in front of "
                  "stations whose names end the same",
                  read.key.c_str()));
    const std::string_view line = read.line;
    const std::string_view rest = read.rest;
    const Vector3& xyz = station.xyz;
    if (!usable(xyz))
        explain(FindingId::siteWithoutCoordinates, at,
                {at.line, text("reads X = %.4f, Y = %.4f, Z = %.4f%s%s: write all three in metres, "
                               "Earth-centred; without them no epoch is answered",
                               xyz[0], xyz[1], xyz[2], rest.empty() ? "" : ", and stops at ",
                               std::string(rest.substr(0, kShown)).c_str())});
    // Something may be stuck to the third coordinate.
    const char before = rest.size() < line.size() ? line[line.size() - rest.size() - 1] : ' ';
    if (!rest.empty() && before != ' ' && before != '\t' && xyz[2] != 0.0)
        warn(at,
             text("station %s: Z is read as %.4f, in front of %s", station.name.c_str(), xyz[2],
                  std::string(rest.substr(0, kShown)).c_str()),
             "write X, Y and Z in metres, blanks between");
}

void Remarks::offsets(const StationRecord& station, const RecordPlace& at) {
    const Vector3& enu = station.enu;
    if (enu != Vector3{})
        warn(at,
             text("station %s: the offsets %.4f %.4f %.4f (east, north, up) are recorded, not "
                  "applied",
                  station.name.c_str(), enu[0], enu[1], enu[2]),
             "X, Y and Z must be those of the antenna reference point; then write offsets of 0");
}

// The first station is the reference: without a place on the Earth's surface no epoch of it can be
// answered.
void Remarks::place(const StationRecord& station, const RecordPlace& at) {
    const Severity worst = first_ ? Severity::fatal : Severity::warning;
    const auto remark = [&](Severity severity, std::string what, std::string advice) {
        add({severity, at.file, at.line, {}, std::move(what), std::move(advice)});
    };
    const char* const name = station.name.c_str();
    if (!usable(station.xyz))
        return remark(worst, text("station %s has no usable coordinates", name),
                      "no epoch is answered without them");
    const Place there = placeOf(station.xyz);
    const std::string mended = usuallyThere(there) ? "" : mendedToSurface(station.xyz);
    if (!onSurface(there))
        remark(worst,
               text("station %s is not on the Earth's surface: height %.1f m above the ellipsoid",
                    name, there.heightM),
               "X, Y and Z are metres, Earth-centred and Earth-fixed: " +
                   (mended.empty() ? "is one missing, or mistyped?" : mended));
    else if (!mended.empty())
        remark(Severity::warning,
               text("station %s lands at %s, %.1f m above the ellipsoid", name,
                    shortText(there).c_str(), there.heightM),
               mended);
}

void Remarks::site(const StationRecord& station, const std::string& key, const RecordPlace& at,
                   LineReader& file) {
    place(station, at);
    std::string_view line;
    std::string word;
    while (file.next(line))
        if (TextScanner(line).word(word) && word == key)
            return warn(RecordPlace{at.file, file.lineNumber()},
                        text("station %s: this block is not read", station.name.c_str()),
                        text("the first line that holds %s counts", key.c_str()));
}

} // namespace ctl::check
