#include "config/RecordRemarks.h"

#include "common/ComText.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr std::size_t kShown = 40; // of a line, characters

void warn(const RecordPlace& place, std::string what, std::string advice, Findings& findings) {
    findings.remark(
        {Severity::warning, place.file, place.line, {}, std::move(what), std::move(advice)});
}

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

void remarkOnChannel(const SatelliteRecord& satellite, std::size_t numbers,
                     const RecordPlace& place, Findings& findings) {
    const char* const name = satellite.cprn.c_str();
    if (numbers > 0 && satellite.glonassChannel == kUnknownChannel)
        warn(place, text("%s: %g is no GLONASS channel", name, satellite.numbers[0]),
             "a channel is a whole number from -7 to 6; this one is not used, and the satellite "
             "has no phase until the stream has told its channel",
             findings);
    else if (numbers == 0 && channelIsAWord(satellite))
        warn(place, text("%s: its channel is taken for a word", name),
             "three words stand between the name and the channel: write - for each", findings);
}

} // namespace

bool isSatellite(const std::string& name) {
    const int sat = satid2no(name);
    return sat > 0 && satno2id(sat) == name;
}

void remarkOnComment(std::string_view line, RecordKind expected, const RecordPlace& place,
                     Findings& findings) {
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
        warn(place,
             text("is passed over as a comment: %s", std::string(line.substr(0, kShown)).c_str()),
             marked ? "the file begins with a byte order mark: save it without"
                    : "a record begins with a blank",
             findings);
}

void remarkOnSatellite(const SatelliteRecord& satellite, std::size_t numbers, std::string_view rest,
                       const RecordPlace& place, Findings& findings) {
    const std::string& name = satellite.cprn;
    const bool refused = name.size() > 3 || !contains(kSystems, name.substr(0, 1));
    if (!refused && !isSatellite(name))
        warn(place, text("%s is no satellite that a stream can carry", name.c_str()),
             "a name is the letter of the system (G R E C J) and two digits, such as G05",
             findings);
    if (!rest.empty())
        warn(place,
             text("%s: the end is not read: %s", name.c_str(),
                  std::string(rest.substr(0, kShown)).c_str()),
             "a record is a name, three words and up to 23 numbers", findings);
    else if (name.starts_with('R'))
        remarkOnChannel(satellite, numbers, place, findings);
}

void remarkOnStation(const StationRecord& station, bool first, std::string_view rest,
                     const RecordPlace& place, Findings& findings) {
    const char* const name = station.name.c_str();
    if (!first)
        warn(place, text("station %s is not served", name),
             "the first station is the reference: give every further one a deployment of its own",
             findings);
    if (!rest.empty())
        warn(place,
             text("%s: the end is not read: %s", name, std::string(rest.substr(0, kShown)).c_str()),
             "a record is a name, a coordinate mode, two words, 15 numbers, a word and 20 numbers",
             findings);
}
