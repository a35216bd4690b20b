#include "config/ObjectFile.h"

#include "base/ComText.h"
#include "base/LineReader.h"
#include "config/PostMode.h"
#include "config/ReadingWatcher.h"
#include "config/SiteFile.h"
#include "gnss/ComFreq.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <string>

namespace {

constexpr std::size_t kSatelliteNameLength = 3;
constexpr std::size_t kStationNameLength = 4;

/// The object file on its way through the sections.
struct ObjectReader {
    Deployment& out;
    LineReader& file;
    Findings& findings;

    const std::string& path() const { return out.tables.object; }
    RecordPlace place() const { return {path(), file.lineNumber()}; }
    /// Reports the line read last, or a value of it.
    void report(FindingId id, std::vector<std::string> values = {}) const {
        findings.add(id, path(), file.lineNumber(), std::move(values));
    }
    /// Next record, that is a line that starts with a blank and holds more; false at the line
    /// that ends the section or at the end of the file.
    bool nextRecord(RecordKind kind, std::string_view& line) const {
        const char* const end = kind == RecordKind::satellite ? "-Satellite used" : "-Station used";
        while (file.next(line) && !contains(line, end)) {
            if (TextScanner(line).atEnd())
                continue;
            if (line.front() != ' ') {
                if (ReadingWatcher* const watcher = findings.watcher())
                    watcher->passedOver(line, kind, place());
                continue;
            }
            if (file.cut()) {
                report(FindingId::lineTooLong, {std::string(line.substr(0, 16))});
                continue;
            }
            return true;
        }
        return false;
    }
};

void readWords(TextScanner& scan, std::span<std::string> words) {
    for (std::string& word : words)
        scan.word(word);
}

/// Numbers that the line has; the rest stay 0. Returns how many there were.
std::size_t readNumbers(TextScanner& scan, std::span<double> numbers) {
    std::size_t n = 0;
    while (n < numbers.size() && scan.number(numbers[n]))
        ++n;
    return n;
}

SatelliteRecord parseSatellite(const ObjectReader& in, std::string_view line) {
    SatelliteRecord satellite;
    Satellite_initial(satellite);
    TextScanner scan(line);
    scan.word(satellite.cprn);
    readWords(scan, satellite.texts);
    const std::size_t count = readNumbers(scan, satellite.numbers);
    // The first number is the GLONASS channel, where it is there and can be one.
    const double first = satellite.numbers[0];
    if (satellite.cprn.starts_with('R') && count > 0 && first == std::trunc(first) &&
        first >= kLowestChannel && first <= kHighestChannel)
        satellite.glonassChannel = static_cast<int>(first);
    for (std::size_t i = 2; i < 8; ++i)
        satellite.numbers[i] /= 1000.0; // mm to m
    satellite.used = true;
    if (ReadingWatcher* const watcher = in.findings.watcher())
        watcher->satellite(satellite, count, scan.rest(), in.place());
    return satellite;
}

void acceptSatellite(const ObjectReader& in, SatelliteRecord satellite) {
    Deployment& out = in.out;
    const std::string& name = satellite.cprn;
    if (name.size() > kSatelliteNameLength)
        return in.report(FindingId::satelliteNameTooLong, {name});
    if (out.satelliteNamed(name) >= 0)
        return in.report(FindingId::satelliteRepeated, {name});
    if (!contains(kSystems, name.substr(0, 1)))
        return in.report(FindingId::satelliteOfNoSystem, {name.substr(0, 1)});
    const auto glonass = std::count_if(out.satelliteNames.begin(), out.satelliteNames.end(),
                                       [](const std::string& n) { return n[0] == 'R'; });
    const std::size_t glonassCount = static_cast<std::size_t>(glonass);
    if (out.satellites.size() == kMaxSatellites)
        return in.report(FindingId::tooManySatellites, {name});
    if (name[0] == 'R' ? glonassCount == kMaxGlonassSatellites
                       : out.satellites.size() - glonassCount == kMaxKeplerSatellites)
        return in.report(
            name[0] == 'R' ? FindingId::tooManyGlonass : FindingId::tooManyBesideGlonass, {name});
    if (!contains(out.systems, name.substr(0, 1)))
        out.systems += name[0];
    out.satelliteNames.push_back(name);
    out.indexSatellite(out.satelliteNames.size() - 1);
    if (out.post)
        resolveSatellite(out, satellite, in.file.lineNumber(), in.findings);
    out.satellites.push_back(std::move(satellite));
}

/// GPS first, or else GLONASS, or else Galileo.
void orderSystems(Session& out) {
    for (const char letter : {'G', 'R', 'E'})
        if (const int at = index_string(out.systems, letter); at >= 0) {
            std::swap(out.systems[0], out.systems[static_cast<std::size_t>(at)]);
            break;
        }
    if (!out.systems.empty())
        out.primarySystem = static_cast<int>(systemIndex(out.systems[0]));
}

/// Carriers of a system that do not exist; true where there are none of these.
bool allCarriersExist(const Deployment& out, char letter, Findings& findings) {
    bool all = true;
    for (const std::string& name : out.frequencies[systemIndex(letter)])
        if (!carrier(letter, name, 0)) {
            findings.add(unknownCarrier(letter, name, out.file));
            all = false;
        }
    return all;
}

void setFrequencies(Deployment& out, Findings& findings) {
    bool good = true;
    for (const char letter : out.systems) // in the order of their first satellites
        good = allCarriersExist(out, letter, findings) && good;
    if (!good)
        return;
    for (SatelliteRecord& satellite : out.satellites)
        updateSatfreq(satellite, out.carriersOf(satellite));
}

void readSatellites(const ObjectReader& in) {
    Deployment& out = in.out;
    std::string_view line;
    out.satelliteNames.reserve(kMaxSatellites);
    out.satellites.reserve(kMaxSatellites);
    while (in.nextRecord(RecordKind::satellite, line))
        acceptSatellite(in, parseSatellite(in, line));
    if (out.satellites.empty())
        in.report(FindingId::noSatellite);
    setFrequencies(out, in.findings);
    out.indexSatellites();
    orderSystems(out);
    for (std::size_t i = 0; i < kSystemCount; ++i)
        out.useNumbers[i] =
            contains(out.processMode, "RAW") ? static_cast<int>(out.frequencies[i].size()) : 1;
}

StationRecord parseStation(const ObjectReader& in, std::string_view line) {
    StationRecord station;
    Station_initial(station);
    TextScanner scan(line);
    scan.word(station.name);
    scan.word(station.coordinateMode);
    readWords(scan, station.texts);
    readNumbers(scan, station.numbers);
    station.numbers.back() = station.numbers.back() * kPi / 180.0;
    scan.word(station.text);
    readNumbers(scan, station.moreNumbers);
    if (ReadingWatcher* const watcher = in.findings.watcher())
        watcher->station(station, in.out.stations.empty(), scan.rest(), in.place());
    return station;
}

void acceptStation(const ObjectReader& in, StationRecord station) {
    Deployment& out = in.out;
    if (station.name.size() > kStationNameLength)
        return in.report(FindingId::stationNameTooLong, {station.name});
    if (!read_siteinfo(station, out.tables.stacoo, in.findings))
        return in.report(FindingId::coordinatesUnread, {station.name});
    if (out.post &&
        resolveStation(out, station, in.file.lineNumber(), in.findings) == Resolved::dropped)
        return;
    out.stationNames.push_back(toUpper(station.name));
    out.stations.push_back(std::move(station));
}

void readStations(const ObjectReader& in) {
    std::string_view line;
    bool found = false;
    while (!found && in.file.next(line))
        found = contains(line, "+Station used");
    if (!found)
        return in.report(FindingId::stationsMissing);
    while (in.nextRecord(RecordKind::station, line))
        acceptStation(in, parseStation(in, line));
    if (in.out.stations.empty() && in.out.modeNumber != 5)
        in.report(FindingId::noStation);
}

} // namespace

void Station_initial(StationRecord& record) {
    record = {};
}
void Satellite_initial(SatelliteRecord& record) {
    record = {};
}

void readObjectFile(Deployment& out, Findings& findings) {
    LineReader file(out.tables.object);
    const ObjectReader in{out, file, findings};
    if (!file.isOpen())
        return in.report(FindingId::objectUnreadable);
    readSatellites(in);
    readStations(in);
}
