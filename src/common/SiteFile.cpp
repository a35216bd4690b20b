#include "common/SiteFile.h"

#include "common/ComText.h"
#include "common/LineReader.h"
#include "common/ReadingWatcher.h"

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

bool malformed(const StationRecord& station, const std::string& path, const LineReader& file,
               Findings& findings) {
    findings.note(
        path, file.lineNumber(),
        text("staname = %s,file = %s,site file format error", station.name.c_str(), path.c_str()));
    return false;
}

} // namespace

bool read_siteinfo(StationRecord& station, const std::string& path, Findings& findings) {
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
    const std::string rest(pos.rest().substr(0, kShown));
    ReadingWatcher* const watcher = findings.watcher();
    if (watcher)
        watcher->position(station, {key, word, line, pos.rest()}, {path, posLine});

    if (!file.next(line) || !contains(line, station.name + "_SIG"))
        return malformed(station, path, file, findings);
    TextScanner sig(line);
    // The further numbers stand behind 54 characters of text; many files leave them out.
    if (sig.word(word) && numbersAfterKey(sig, station.sigma) && sig.skip(54))
        numbersAfterKey(sig, station.more);

    if (!file.next(line) || !contains(line, station.name + "_ENU"))
        return malformed(station, path, file, findings);
    TextScanner enu(line);
    if (enu.word(word))
        numbersAfterKey(enu, station.enu);
    if (watcher)
        watcher->offsets(station, {path, file.lineNumber()});
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
    if (watcher)
        watcher->site(station, key, {path, posLine}, file);
    return true;
}
