#include "common/SiteFile.h"

#include "common/ComText.h"
#include "common/LineReader.h"
#include "common/Place.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace {

constexpr std::size_t kShown = 40; // of a line, characters

/// Numbers that follow the key word of a line; those that are missing stay 0.
bool numbersAfterKey(TextScanner& scan, Vector3& out) {
    for (double& value : out)
        if (!scan.number(value))
            return false;
    return true;
}

/// A fixed column of up to 20 characters.
std::string column(std::string_view line, std::size_t at) {
    return std::string(at < line.size() ? line.substr(at, 20) : std::string_view{});
}

void readDescriptors(StationRecord& station, std::string_view line) {
    station.antenna = column(line, 58);
    station.antennaWithRadome = column(line, 85);
    if (!contains(station.antennaWithRadome, "NONE") && len_trim(station.antennaWithRadome) <= 12)
        // Deliberate: the start of the line, not the descriptor's column.
        station.antennaWithRadome = std::string(line.substr(0, 16)) + "NONE";
}

void warn(int line, std::string what, std::string advice, Findings& findings) {
    findings.remark(
        {Severity::warning, DLY.tables.stacoo, line, {}, std::move(what), std::move(advice)});
}

/// Remarks on a line that was found by its key, which need not stand at its beginning.
void remarkOnKey(const StationRecord& station, const std::string& key, const std::string& word,
                 int line, Findings& findings) {
    if (!word.starts_with(key))
        warn(line,
             text("station %s: %s is taken for %s", station.name.c_str(),
                  word.substr(0, kShown).c_str(), key.c_str()),
             text("the first line that holds %s counts: begin it with that, and put it in front of "
                  "stations whose names end the same",
                  key.c_str()),
             findings);
}

/// Remarks on a further block of a station, behind the one that was read.
void remarkOnSecondBlock(const StationRecord& station, const std::string& key, LineReader& file,
                         Findings& findings) {
    std::string_view line;
    std::string word;
    while (file.next(line))
        if (TextScanner(line).word(word) && word == key)
            return warn(file.lineNumber(),
                        text("station %s: this block is not read", station.name.c_str()),
                        text("the first line that holds %s counts", key.c_str()), findings);
}

/// Remarks on a third coordinate that something is stuck to.
void remarkOnRest(const StationRecord& station, std::string_view line, std::string_view rest,
                  int lineNumber, Findings& findings) {
    const char before = rest.size() < line.size() ? line[line.size() - rest.size() - 1] : ' ';
    if (!rest.empty() && before != ' ' && before != '\t' && station.xyz[2] != 0.0)
        warn(lineNumber,
             text("station %s: Z is read as %.4f, in front of %s", station.name.c_str(),
                  station.xyz[2], std::string(rest.substr(0, kShown)).c_str()),
             "write X, Y and Z in metres, blanks between", findings);
}

/// Remarks on where the coordinates lie. The first station is the reference: without a place on
/// the Earth's surface no epoch of it can be answered.
void remarkOnPlace(const StationRecord& station, int line, Findings& findings) {
    const Severity worst = DLY.stations.empty() ? Severity::fatal : Severity::warning;
    const auto remark = [&](Severity severity, std::string what, std::string advice) {
        findings.remark(
            {severity, DLY.tables.stacoo, line, {}, std::move(what), std::move(advice)});
    };
    const char* const name = station.name.c_str();
    if (!usable(station.xyz))
        return remark(worst, text("station %s has no usable coordinates", name),
                      "no epoch is answered without them");
    const Place place = placeOf(station.xyz);
    const std::string mended = usuallyThere(place) ? "" : mendedToSurface(station.xyz);
    if (!onSurface(place))
        remark(worst,
               text("station %s is not on the Earth's surface: height %.1f m above the ellipsoid",
                    name, place.heightM),
               "X, Y and Z are metres, Earth-centred and Earth-fixed: " +
                   (mended.empty() ? "is one missing, or mistyped?" : mended));
    else if (!mended.empty())
        remark(Severity::warning,
               text("station %s lands at %s, %.1f m above the ellipsoid", name,
                    shortText(place).c_str(), place.heightM),
               mended);
}

/// Remarks on offsets, which nothing reads.
void remarkOnOffsets(const StationRecord& station, int line, Findings& findings) {
    const Vector3& enu = station.enu;
    if (enu != Vector3{})
        warn(line,
             text("station %s: the offsets %.4f %.4f %.4f (east, north, up) are recorded, not "
                  "applied",
                  station.name.c_str(), enu[0], enu[1], enu[2]),
             "X, Y and Z must be those of the antenna reference point; then write offsets of 0",
             findings);
}

bool malformed(const StationRecord& station, const LineReader& file, Findings& findings) {
    const std::string& path = DLY.tables.stacoo;
    findings.note(
        path, file.lineNumber(),
        text("staname = %s,file = %s,site file format error", station.name.c_str(), path.c_str()));
    return false;
}

} // namespace

bool read_siteinfo(StationRecord& station, Findings& findings) {
    const std::string& path = DLY.tables.stacoo;
    const char* const name = station.name.c_str();
    LineReader file(path);
    if (!file.isOpen()) {
        findings.fatal(path, 0, text("file = %s,can't access site file", path.c_str()));
        return false;
    }
    station.xyz = station.sigma = station.more = station.enu = {};

    std::string_view line;
    const std::string key = station.name + "_POS";
    bool found = false;
    while (!found && file.next(line))
        found = contains(line, key);
    if (!found) {
        findings.note(path, 0,
                      text("staname = %s,file = %s,station is not exist in the site file", name,
                           path.c_str()));
        return false;
    }
    const int posLine = file.lineNumber();
    std::string word;
    TextScanner pos(line);
    if (pos.word(word))
        numbersAfterKey(pos, station.xyz);
    remarkOnKey(station, key, word, posLine, findings);
    const std::string rest(pos.rest().substr(0, kShown));
    remarkOnRest(station, line, pos.rest(), posLine, findings);

    if (!file.next(line) || !contains(line, station.name + "_SIG"))
        return malformed(station, file, findings);
    TextScanner sig(line);
    // The further numbers stand behind 54 characters of text; many files leave them out.
    if (sig.word(word) && numbersAfterKey(sig, station.sigma) && sig.skip(54))
        numbersAfterKey(sig, station.more);

    if (!file.next(line) || !contains(line, station.name + "_ENU"))
        return malformed(station, file, findings);
    TextScanner enu(line);
    if (enu.word(word))
        numbersAfterKey(enu, station.enu);
    remarkOnOffsets(station, file.lineNumber(), findings);
    readDescriptors(station, line);

    if (!usable(station.xyz))
        findings
            .warning(path, posLine,
                     text("staname = %s,file = %s,no coordinate information for station in site "
                          "file",
                          name, path.c_str()))
            .advice = text("reads X = %.4f, Y = %.4f, Z = %.4f%s%s: write all three in metres, "
                           "Earth-centred; without them no epoch is answered",
                           station.xyz[0], station.xyz[1], station.xyz[2],
                           rest.empty() ? "" : ", and stops at ", rest.c_str());
    remarkOnPlace(station, posLine, findings);
    remarkOnSecondBlock(station, key, file, findings);
    return true;
}
