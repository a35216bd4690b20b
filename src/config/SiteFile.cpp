#include "config/SiteFile.h"

#include "base/ComText.h"
#include "base/LineReader.h"
#include "config/ReadingWatcher.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace {

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
    findings.add(FindingId::siteBlockMalformed, path, file.lineNumber(), {station.name});
    return false;
}

} // namespace

bool read_siteinfo(StationRecord& station, const std::string& path, Findings& findings) {
    LineReader file(path);
    if (!file.isOpen()) {
        findings.add(FindingId::siteUnreadable, path, 0);
        return false;
    }
    station.xyz = station.sigma = station.more = station.enu = {};

    std::string_view line;
    const std::string key = station.name + "_POS";
    bool found = false;
    while (!found && file.next(line))
        found = contains(line, key);
    if (!found) {
        findings.add(FindingId::siteBlockMissing, path, 0, {station.name});
        return false;
    }
    const int posLine = file.lineNumber();
    std::string word;
    TextScanner pos(line);
    if (pos.word(word))
        numbersAfterKey(pos, station.xyz);
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
        findings.add(FindingId::siteWithoutCoordinates, path, posLine, {station.name});
    if (watcher)
        watcher->site(station, key, {path, posLine}, file);
    return true;
}
