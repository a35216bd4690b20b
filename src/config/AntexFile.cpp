#include "config/AntexFile.h"

#include "base/ComText.h"
#include "config/ModelFile.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <span>

namespace {

// What a carrier's variations may ask for: rows by azimuth, columns by zenith angle.
constexpr std::size_t kMostRows = 81;
constexpr std::size_t kMostColumns = 30;
constexpr std::size_t kFieldWidth = 8; // of a variation, and of what stands in front of them
constexpr double kMetresPerMm = 0.001;
constexpr double kEdgeDays = 0.01; // by which a calibration must reach over the session

struct Carrier {
    std::string_view code;
    char system;
    std::string_view name;
};
// clang-format off
/// Frequency codes of ANTEX 1.4, and older and private ones, in the order of the search.
constexpr Carrier kCarriers[] = {
    {"G01", 'G', "L1"}, {"G02", 'G', "L2"}, {"G05", 'G', "L5"},
    {"R01", 'R', "L1"}, {"R02", 'R', "L2"},
    {"E01", 'E', "L1"}, {"E5a", 'E', "L5"}, {"E5b", 'E', "L7"},
    {"E05", 'E', "L8"}, // deliberate: not E5a, for which ANTEX has this code
    {"E06", 'E', "L6"},
    {"B02", 'C', "L2"}, {"C02", 'C', "L2"}, {"B07", 'C', "L7"}, {"C07", 'C', "L7"},
    {"B06", 'C', "L6"}, {"C06", 'C', "L6"}, {"B01", 'C', "L1"}, {"C01", 'C', "L1"},
    {"B05", 'C', "L5"}, {"C05", 'C', "L5"}, {"B08", 'C', "L8"}, {"C08", 'C', "L8"},
    {"J01", 'J', "L1"}, {"J02", 'J', "L2"}, {"J05", 'J', "L5"}, {"J06", 'J', "L6"}};
// clang-format on

/// The numbers at the start of a line; false where one is missing or not finite.
bool readNumbers(std::string_view line, std::span<double> values) {
    TextScanner scan(line);
    for (double& value : values)
        if (!scan.number(value) || !std::isfinite(value))
            return false;
    return true;
}

/// MJD of a "VALID FROM" or "VALID UNTIL" line.
bool readEpoch(std::string_view line, double& mjd) {
    DateTime t;
    TextScanner scan(line);
    for (int* const value : {&t.year, &t.month, &t.day, &t.hour, &t.minute})
        if (!scan.integer(*value))
            return false;
    if (!scan.number(t.second) || !std::isfinite(t.second) || !plausibleDate(t))
        return false;
    mjd = fractionalMjd(t);
    return true;
}

bool isAngle(double degrees) {
    return degrees >= 0.0 && degrees <= 360.0; // neither holds for what is not a number
}

/// The entry goes no further; a file may have lost the line that says so.
bool endsEntry(std::string_view line) {
    return contains(line, "END OF ANTENNA") || contains(line, "START OF ANTENNA") ||
           contains(line, "TYPE / SERIAL NO");
}

/// One lookup in the file, which is read once from its start.
class AntexReader {
public:
    AntexReader(LineReader& file, const std::string& path, AntennaRecord& record,
                const FrequencyTable& names, Findings& findings)
        : file_(file), path_(path), record_(record), names_(names), findings_(findings) {}

    /// The file header, which must promise absolute calibrations.
    bool readHeader();
    /// Goes to the first frequency of the antenna's entry that is valid from `from` to `to`.
    bool findEntry(double from, double to);
    /// All frequencies of that entry.
    bool readFrequencies();

private:
    struct Slot {
        std::size_t system = 0, index = 0;
    };

    bool next() { return file_.next(line_); }
    bool at(std::string_view label) const { return contains(line_, label); }
    bool report(Finding finding) const;
    bool refuse(FindingId id, std::vector<std::string> values = {}) const;
    Finding ofAntenna(FindingId id, std::vector<std::string> values) const;
    Finding malformed(const char* label) const;
    bool skip(const char* label);
    bool isWanted() const;
    void startEntry();
    bool readEntryLine();
    bool measureTable();
    bool nextFrequency();
    bool readFrequency();
    bool readVariations(PhaseCentre& centre) const;
    std::optional<Slot> slotOfLine() const;

    LineReader& file_;
    const std::string& path_;
    AntennaRecord& record_;
    const FrequencyTable& names_;
    Findings& findings_;
    std::string_view line_;
    std::size_t rows_ = 0, columns_ = 0;
    Findings skipped_; // why entries of the antenna cannot be read
};

/// A finding about the line read last; false, as the result of who refuses.
bool AntexReader::report(Finding finding) const {
    findings_.add(std::move(finding));
    return false;
}

/// What is wrong with the antenna, at the line read last.
Finding AntexReader::ofAntenna(FindingId id, std::vector<std::string> values) const {
    values.insert(values.begin(), {record_.type, record_.serial});
    return {id, path_, file_.lineNumber(), {}, std::move(values)};
}

bool AntexReader::refuse(FindingId id, std::vector<std::string> values) const {
    return report(ofAntenna(id, std::move(values)));
}

/// Quotes the line read last.
Finding AntexReader::malformed(const char* label) const {
    return ofAntenna(FindingId::antexLineMalformed,
                     {std::string(withoutTrailingSpace(line_.substr(0, 60))), label});
}

/// Remembers what is wrong with the entry; another one may be right. False.
bool AntexReader::skip(const char* label) {
    skipped_.add(malformed(label));
    return false;
}

bool AntexReader::readHeader() {
    char type = ' ';
    while (next() && !at("END OF HEADER"))
        if (at("PCV TYPE / REFANT")) {
            type = line_.front();
            break;
        }
    return type == 'A' ||
           report({FindingId::antexNotAbsolute, path_, file_.lineNumber(), {}, {{type}}});
}

/// Whether a "TYPE / SERIAL NO" line is of the antenna that is looked for.
bool AntexReader::isWanted() const {
    if (record_.type.empty() || !at(record_.type))
        return false;
    const std::string_view number = line_.substr(std::min<std::size_t>(20, line_.size()), 3);
    return record_.serial.empty() || (number.size() == 3 && contains(record_.serial, number));
}

void AntexReader::startEntry() {
    AntennaRecord entry;
    entry.type = record_.type;
    entry.serial = record_.serial;
    record_ = std::move(entry);
}

/// A line in front of the frequencies; false where the entry cannot be read.
bool AntexReader::readEntryLine() {
    if (at("COMMENT")) // may speak of anything
        return true;
    std::array<double, 3> zenith{};
    if (at("DAZI"))
        return readNumbers(line_, {&record_.dazi, 1}) || skip("DAZI");
    if (at("ZEN1 / ZEN2 / DZEN")) {
        if (!readNumbers(line_, zenith))
            return skip("ZEN1 / ZEN2 / DZEN");
        record_.zen1 = zenith[0], record_.zen2 = zenith[1], record_.dzen = zenith[2];
    }
    if (at("VALID FROM"))
        return readEpoch(line_, record_.validFrom) || skip("VALID FROM");
    if (at("VALID UNTIL"))
        return readEpoch(line_, record_.validUntil) || skip("VALID UNTIL");
    if (at("# OF FREQUENCIES"))
        return TextScanner(line_).integer(record_.frequencies) || skip("# OF FREQUENCIES");
    return true;
}

bool AntexReader::findEntry(double from, double to) {
    bool inEntry = false;
    while (next()) {
        const bool ends = inEntry && (at("START OF FREQUENCY") || endsEntry(line_));
        if (ends && from - record_.validFrom > kEdgeDays && record_.validUntil - to > kEdgeDays)
            return at("START OF FREQUENCY") ? measureTable()
                                            : refuse(FindingId::antexFrequencyMissing);
        if (ends)
            inEntry = false;
        if (inEntry && !readEntryLine())
            inEntry = false;
        if (at("TYPE / SERIAL NO") && isWanted()) {
            inEntry = true;
            startEntry();
        }
    }
    if (skipped_.list().empty())
        return refuse(FindingId::antexEntryMissing);
    for (const Finding& finding : skipped_.list())
        findings_.add(finding);
    return false;
}

/// Rows and columns that the entry promises, within what there is room for.
bool AntexReader::measureTable() {
    const AntennaRecord& r = record_;
    const double rows = r.dazi > 0.0 ? std::trunc(360.0 / r.dazi) + 2.0 : 1.0;
    const double columns = r.dzen > 0.0 ? std::trunc((r.zen2 - r.zen1) / r.dzen) + 1.0 : 0.0;
    if (!isAngle(r.dazi) || !isAngle(r.zen1) || !isAngle(r.zen2) || !isAngle(r.dzen) ||
        r.zen2 < r.zen1 || rows > double{kMostRows} || columns > double{kMostColumns})
        return refuse(FindingId::antexTableTooLarge,
                      {text("%g", r.dazi), text("%g", r.zen1), text("%g", r.zen2),
                       text("%g", r.dzen), std::to_string(kMostRows),
                       std::to_string(kMostColumns)});
    rows_ = static_cast<std::size_t>(rows);
    columns_ = static_cast<std::size_t>(columns);
    return true;
}

/// Where the carrier of a "START OF FREQUENCY" line belongs; nothing where it is not configured.
std::optional<AntexReader::Slot> AntexReader::slotOfLine() const {
    for (const Carrier& carrier : kCarriers) {
        if (!at(carrier.code))
            continue;
        const std::size_t system = systemIndex(carrier.system);
        const int slot = pointer_string(names_[system], carrier.name);
        if (slot < 0 || slot >= static_cast<int>(kAntennaSlots))
            return std::nullopt;
        return Slot{system, static_cast<std::size_t>(slot)};
    }
    return std::nullopt;
}

bool AntexReader::nextFrequency() {
    while (next() && !endsEntry(line_))
        if (at("START OF FREQUENCY"))
            return true;
    return false;
}

/// The row of the line read last; false where a value is missing or none.
bool AntexReader::readVariations(PhaseCentre& centre) const {
    for (std::size_t c = 0; c < columns_; ++c) {
        const std::size_t start = kFieldWidth * (c + 1);
        double mm = 0.0;
        if (start >= line_.size() || !readNumbers(line_.substr(start, kFieldWidth), {&mm, 1}))
            return false;
        centre.pcv.push_back(mm * kMetresPerMm);
    }
    return true;
}

/// From "START OF FREQUENCY", which was read, to "END OF FREQUENCY".
bool AntexReader::readFrequency() {
    const std::optional<Slot> slot = slotOfLine();
    if (!slot)
        return true;
    PhaseCentre centre;
    centre.code = line_.substr(3, 3);
    centre.columns = columns_;
    centre.pcv.reserve(rows_ * columns_);
    bool haveOffsets = false;
    while (next() && !at("END OF FREQUENCY")) {
        if (at("NORTH / EAST / UP")) {
            haveOffsets = readNumbers(line_, centre.pco);
            if (!haveOffsets)
                return report(malformed("NORTH / EAST / UP"));
            for (double& value : centre.pco)
                value *= kMetresPerMm;
        } else if (endsEntry(line_) || centre.rows == rows_ || !readVariations(centre)) {
            return refuse(FindingId::antexVariationsLost);
        } else {
            ++centre.rows;
        }
    }
    if (!at("END OF FREQUENCY") || centre.rows != rows_)
        return refuse(FindingId::antexVariationsLost);
    if (!haveOffsets)
        return refuse(FindingId::antexOffsetsMissing);
    std::vector<PhaseCentre>& centres = record_.centres[slot->system];
    if (centres.size() <= slot->index)
        centres.resize(slot->index + 1);
    centres[slot->index] = std::move(centre);
    return true;
}

bool AntexReader::readFrequencies() {
    for (int i = 0; i < record_.frequencies; ++i) {
        if (i > 0 && !nextFrequency())
            return refuse(FindingId::antexFrequencyMissing);
        if (!readFrequency())
            return false;
    }
    return true;
}

/// A satellite's carriers without a calibration take that of its first; they keep no code.
void completeSatellite(AntennaRecord& record, const FrequencyTable& names) {
    const std::size_t system = systemIndex(record.serial.empty() ? ' ' : record.serial.front());
    if (system >= kAntennaSystems || record.centres[system].empty())
        return;
    std::vector<PhaseCentre>& centres = record.centres[system];
    PhaseCentre first = centres.front();
    first.code.clear();
    centres.resize(std::max(centres.size(), std::min(names[system].size(), kAntennaSlots)));
    for (PhaseCentre& centre : centres)
        if (centre.code.empty())
            centre = first;
}

} // namespace

bool Antatx_m_rdatx(AntennaRecord& record, const FrequencyTable& names, double from, double to,
                    const std::string& path, Findings& findings) {
    record.type = withoutTrailingSpace(record.type);
    record.serial = withoutTrailingSpace(record.serial);
    LineReader file(path);
    if (!opened(file, path, findings))
        return false;
    AntexReader in(file, path, record, names, findings);
    if (!in.readHeader() || !in.findEntry(from, to) || !in.readFrequencies())
        return false;
    completeSatellite(record, names);
    return true;
}
