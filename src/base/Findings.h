#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Findings: what a reader of the configuration has to say, in the order in which it found it. A
/// finding is an identity, a place and values. Its line and severity stand in the table of
/// Findings.cpp; what to do about it is told by `kestrunectl check` alone (ctl/check/Advice).

/// In the order of the tables.
enum class FindingId : std::uint8_t {
    // documents
    jsonUnreadable,
    jsonTooLarge,
    jsonErrorBefore, // what the library says of the next one
    jsonMalformed,
    keyMissing,
    valueIsNoText,
    timeMalformed,
    connectorMalformed,
    integerMalformed,
    numberMalformed,
    clockMalformed,
    optionMalformed,
    portOutOfRange,
    tablesPathMissing,
    requestsMissing,
    dateImpossible,
    // carriers
    systemUnknown,
    carriersMalformed,
    carrierUnknown,
    carrierOfNoSystem,
    carriersMissing, // of a satellite
    modeUnknown,
    // object file
    objectUnreadable,
    lineTooLong, // also of the pattern file
    satelliteNameTooLong,
    satelliteRepeated,
    satelliteOfNoSystem,
    tooManySatellites,
    tooManyGlonass,
    tooManyBesideGlonass,
    noSatellite,
    stationsMissing,
    stationNameTooLong,
    coordinatesUnread,
    noStation,
    // site file
    siteUnreadable,
    siteBlockMissing,
    siteBlockMalformed,
    siteWithoutCoordinates,
    leapSecondsUnreadable,
    // names of files
    patternsUnreadable,
    tooManyPatterns,
    keywordTooLong,
    templateTooLong,
    keywordUndefined,
    wordUndefined,
    // post mode
    observationsMissing,
    stationDropped,
    satelliteAntennaMissing,
    stationAntennaMissing,
    modelFileUnreadable,
    satelliteInfoMalformed,
    satelliteInfoMissing,
    formatWithoutWidth,
    antennaNameUnknown,
    antennaOfNoSystem,
    // ANTEX file
    antexNotAbsolute,
    antexEntryMissing,
    antexFrequencyMissing,
    antexLineMalformed,
    antexTableTooLarge,
    antexVariationsLost,
    antexOffsetsMissing,
    count // of findings
};

/// Whether a table has one row for each finding, in their order.
template <typename Table> constexpr bool rowForEachFinding(const Table& table) {
    std::size_t n = 0;
    for (const auto& row : table)
        if (row.id != static_cast<FindingId>(n++))
            return false;
    return n == static_cast<std::size_t>(FindingId::count);
}

/// A note explains the fault that is reported behind it; after a warning the service goes on.
enum class Severity : std::uint8_t { note, warning, fatal };

struct Finding {
    FindingId id{};
    std::string file;                // path as configured
    int line = 0;                    // 1-based; 0 where the place is a key or a whole file
    std::string key;                 // "section/key" of a JSON document; else empty
    std::vector<std::string> values; // in the order in which its line shows them
};

Severity severityOf(FindingId id);
/// The line of a finding: {file}, {line} and {key} stand for its place, {} for the next value.
std::string_view patternOf(FindingId id);
/// A pattern with place and values of the finding.
std::string filled(std::string_view pattern, const Finding& finding);
/// What the service prints, without the line end.
std::string printedLine(const Finding& finding);

class ReadingWatcher;

class Findings {
public:
    explicit Findings(ReadingWatcher* watcher = nullptr) : watcher_(watcher) {}

    void add(Finding finding) { list_.push_back(std::move(finding)); }
    /// At a line of a file.
    void add(FindingId id, std::string file, int line, std::vector<std::string> values = {}) {
        add({id, std::move(file), line, {}, std::move(values)});
    }
    /// At a key of a document.
    void addKey(FindingId id, std::string file, std::string key,
                std::vector<std::string> values = {}) {
        add({id, std::move(file), 0, std::move(key), std::move(values)});
    }
    bool anyFatal() const {
        for (const Finding& f : list_)
            if (severityOf(f.id) == Severity::fatal)
                return true;
        return false;
    }
    const std::vector<Finding>& list() const { return list_; }

    /// Who sees what is read; null in the service.
    ReadingWatcher* watcher() const { return watcher_; }

private:
    std::vector<Finding> list_;
    ReadingWatcher* watcher_ = nullptr;
};

/// A std::string formatted printf style.
[[gnu::format(printf, 1, 2)]] std::string text(const char* format, ...);
