#pragma once

#include "base/Findings.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

struct cJSON;
struct JsonDocument;
struct SatelliteRecord;
struct StationRecord;
class LineReader;

/// Where a reader is in a file of lines.
struct RecordPlace {
    const std::string& file; // path as configured
    int line;                // 1-based
};
enum class RecordKind { satellite, station };

/// A key of a document, as "section/key".
struct KeyPlace {
    const std::string& file;
    const std::string& key;
};

/// A date as it stands in the configuration and the day that it is taken for.
struct ReadDate {
    int year, month, day;
    int mjd; // 0: none
};

/// One carrier of one system in "freqused": the item and the band in it as written, the slot that
/// the band is taken for, and the slots before it.
struct ReadBand {
    const std::string &item, &band, &slot;
    const std::vector<std::string>& before;
};

/// The line of a station's coordinates: the key that it was found by, its first word, the line and
/// what was not read of it.
struct ReadPosition {
    const std::string &key, &word;
    std::string_view line, rest;
};

/// ReadingWatcher: sees what the readers of a configuration read, as they read it. The service has
/// none; `kestrunectl check` tells from it what is likely not read as it is meant.
class ReadingWatcher {
public:
    ReadingWatcher() = default;
    ReadingWatcher(const ReadingWatcher&) = delete;
    ReadingWatcher& operator=(const ReadingWatcher&) = delete;
    virtual ~ReadingWatcher() = default;

    /// A document whose text was parsed up to `end`; its root is null where that is a fault.
    virtual void parsed(const JsonDocument& document, std::string_view text, std::size_t end) = 0;
    /// A value as it stands in its document and as it is taken.
    virtual void value(const KeyPlace& at, const cJSON& written, const std::string& taken) = 0;
    /// A value whose end is not read; `malformed` is what a wrong beginning would be.
    virtual void valueEnd(const KeyPlace& at, const std::string& value, std::string_view end,
                          FindingId malformed) = 0;
    /// The readers have asked a document for all that they want; what they found so far.
    virtual void asked(const JsonDocument& document, const Findings& findings) = 0;
    virtual void date(const KeyPlace& at, const ReadDate& date) = 0;
    /// The name of a request as it stands in its document and as it is taken.
    virtual void requestName(const KeyPlace& at, const cJSON& written,
                             const std::string& taken) = 0;
    virtual void systemAgain(const KeyPlace& at, const std::string& item) = 0;
    virtual void band(const KeyPlace& at, const ReadBand& band) = 0;
    virtual void bandLeftOut(const KeyPlace& at, const std::string& item,
                             const std::string& band) = 0;

    /// A line of the object file that is passed over since it does not begin with a blank;
    /// `expected` are the records of the section that it stands in.
    virtual void passedOver(std::string_view line, RecordKind expected, const RecordPlace& at) = 0;
    /// A satellite with `numbers` of its numbers read, in front of `rest`.
    virtual void satellite(const SatelliteRecord& satellite, std::size_t numbers,
                           std::string_view rest, const RecordPlace& at) = 0;
    /// A station in front of `rest`; the first one is served.
    virtual void station(const StationRecord& station, bool first, std::string_view rest,
                         const RecordPlace& at) = 0;

    virtual void position(const StationRecord& station, const ReadPosition& read,
                          const RecordPlace& at) = 0;
    virtual void offsets(const StationRecord& station, const RecordPlace& at) = 0;
    /// A station's block was read to its end, its position at `at`; `file` stands behind it.
    virtual void site(const StationRecord& station, const std::string& key, const RecordPlace& at,
                      LineReader& file) = 0;
};
