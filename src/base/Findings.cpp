#include "base/Findings.h"

#include <array>
#include <cassert>
#include <cstdarg>
#include <cstdio>

namespace {

struct FindingLine {
    FindingId id;
    Severity severity;
    const char* pattern;
};

// clang-format off
constexpr auto kFindingLines = [] {
    using enum FindingId;
    using enum Severity;
    return std::to_array<FindingLine>({
    {jsonUnreadable, fatal, "****ERROR(Deploy): file = {file},can't access json file"},
    {jsonTooLarge, fatal, "****ERROR(Deploy): file = {file},can't access json file"},
    {jsonErrorBefore, note, "Error before: [{}]"},
    {jsonMalformed, fatal, "file = {file},key = {key},value = {},not a JSON document"},
    {keyMissing, fatal, "file = {file},key = {key},value = {},key is missing"},
    {valueIsNoText, fatal, "file = {file},key = {key},value = {},value is not a string"},
    {timeMalformed, fatal, "file = {file},key = {key},value = {},expected \"%d%d%d%d%d%lf%lf\""},
    {connectorMalformed, fatal, "file = {file},key = {key},value = {},expected \"%s %d\""},
    {integerMalformed, fatal, "file = {file},key = {key},value = {},expected \"%d\""},
    {numberMalformed, fatal, "file = {file},key = {key},value = {},expected \"%lf\""},
    {clockMalformed, fatal,
     "file = {file},key = {key},value = {},expected \"YYYY-MM-DD hh:mm:ss\", UTC"},
    {optionMalformed, fatal, "file = {file},key = {key},value = {},expected {}"},
    {portOutOfRange, fatal, "file = {file},key = {key},value = {},port is not in 1..65535"},
    {tablesPathMissing, fatal,
     "file = {file},key = {key},value = {},expected the path of the tables file as a string"},
    {requestsMissing, fatal,
     "file = {file},key = {key},value = {},expected a list of at least one request name"},
    {dateImpossible, fatal, "iyear = {},imonth = {},iday = {},incorrect argument"},

    {systemUnknown, fatal, "freq = {}: unknown GNSS system"},
    {carriersMalformed, fatal,
     "file = {file},key = {key},value = {},expected SYSTEM:NAME_NAME..."},
    {carrierUnknown, fatal, "freq = {},unknow frequency for {}"},
    {carrierOfNoSystem, fatal, "freq = {},unknow frequency"},
    {carriersMissing, fatal, "cprn = {},nfreq = 0,frequency used for satellite is not selected!"},
    {modeUnknown, fatal, "type = {},unknow observation type"},

    {objectUnreadable, fatal, "file = {file},can't open file to read"},
    {lineTooLong, fatal, "file = {file},line = {line},value = {},line is longer than 1024 bytes"},
    {satelliteNameTooLong, fatal,
     "file = {file},line = {line},value = {},satellite name is longer than 3 characters"},
    {satelliteRepeated, warning, "cprn = {},exist the same satellite"},
    {satelliteOfNoSystem, fatal, "system = {},do not support system"},
    {tooManySatellites, fatal, "file = {file},line = {line},value = {},more than 160 satellites"},
    {tooManyGlonass, fatal,
     "file = {file},line = {line},value = {},more than 40 GLONASS satellites"},
    {tooManyBesideGlonass, fatal,
     "file = {file},line = {line},value = {},more than 120 satellites beside GLONASS"},
    {noSatellite, warning, "nrpn = 0,no selected satellite!"},
    {stationsMissing, fatal, "no records for stations"},
    {stationNameTooLong, fatal,
     "file = {file},line = {line},value = {},station name is longer than 4 characters"},
    {coordinatesUnread, fatal, "station = {},read coordinate error!"},
    {noStation, fatal, "nsit = 0,no stations is selected"},

    {siteUnreadable, fatal, "file = {file},can't access site file"},
    {siteBlockMissing, note,
     "staname = {},file = {file},station is not exist in the site file"},
    {siteBlockMalformed, note, "staname = {},file = {file},site file format error"},
    {siteWithoutCoordinates, warning,
     "staname = {},file = {file},no coordinate information for station in site file"},
    {leapSecondsUnreadable, fatal, "***ERROR(readCommFil):file_table not exist leapsc item "},

    {patternsUnreadable, fatal, "file = {file},can't access vrnfln file"},
    {tooManyPatterns, fatal, "nfile = {},too many files defined in varno_file_name"},
    {keywordTooLong, fatal,
     "file = {file},line = {line},value = {},keyword is longer than 255 characters"},
    {templateTooLong, fatal,
     "file = {file},line = {line},value = {},template is longer than 255 characters"},
    {keywordUndefined, fatal, "keyword = {},keyword not defined in varno_file_name"},
    {wordUndefined, fatal, "word = {},keyword = {},word is not defined in keyword"},

    {observationsMissing, warning, "file = {},can't find obs file"},
    {stationDropped, warning, "station = {},fix mode for no coordinate station,will continue"},
    {satelliteAntennaMissing, fatal,
     "ant = {},cprn = {},satellite antenna is not found in atx file"},
    {stationAntennaMissing, fatal,
     "ant = {},sitename = {},station antenna is not found in atx file"},
    // deliberate: each of them is called the satnav file
    {modelFileUnreadable, fatal, "file = {file},can't access satnav file"},
    {satelliteInfoMalformed, warning,
     "cprn = {},file = {file},line = {line},value = {},malformed line"},
    {satelliteInfoMissing, fatal, "cprn = {},file = {file},satellite not found in svnav file"},
    {formatWithoutWidth, note,
     "***ERROR(checkdata): please make clear the length of the format {}!"},
    {antennaNameUnknown, fatal, "anttyp = {},sitname = {},antenna unknown"},
    {antennaOfNoSystem, note, "cprn = {},do not support system"},

    {antexNotAbsolute, note,
     "type = {},atxfile = {file},should refer absolute antenna mode in atxfile"},
    {antexEntryMissing, note,
     "antnam = {},antnum = {},atxfile = {file},no definition for antenna in atxfile"},
    {antexFrequencyMissing, note,
     "antnam = {},antnum = {},atxfile = {file},frequency not found"},
    {antexLineMalformed, note,
     "antnam = {},antnum = {},atxfile = {file},line = {line},value = {},{} is malformed"},
    {antexTableTooLarge, note,
     "antnam = {},antnum = {},atxfile = {file},dazi = {},zen1 = {},zen2 = {},dzen = {},"
     "pcv table is not within {} rows and {} columns"},
    {antexVariationsLost, note, "antnam = {},antnum = {},atxfile = {file},pcv lost"},
    {antexOffsetsMissing, note,
     "antnam = {},antnum = {},atxfile = {file},frequency without NORTH / EAST / UP"},
    });
}();
// clang-format on
static_assert(rowForEachFinding(kFindingLines));

const FindingLine& rowOf(FindingId id) {
    return kFindingLines[static_cast<std::size_t>(id)];
}

} // namespace

Severity severityOf(FindingId id) {
    return rowOf(id).severity;
}

std::string_view patternOf(FindingId id) {
    return rowOf(id).pattern;
}

std::string filled(std::string_view pattern, const Finding& finding) {
    std::string out;
    std::size_t used = 0;
    for (std::size_t open; (open = pattern.find('{')) != std::string_view::npos;) {
        const std::size_t close = pattern.find('}', open);
        const std::string_view name = pattern.substr(open + 1, close - open - 1);
        out += pattern.substr(0, open);
        pattern.remove_prefix(close + 1);
        assert(!name.empty() || used < finding.values.size());
        if (name == "file")
            out += finding.file;
        else if (name == "line")
            out += std::to_string(finding.line);
        else if (name == "key")
            out += finding.key;
        else if (used < finding.values.size())
            out += finding.values[used++].c_str(); // ends at a zero byte, as a printed line does
    }
    return out.append(pattern);
}

std::string printedLine(const Finding& finding) {
    return filled(patternOf(finding.id), finding);
}

std::string text(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    std::va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    std::string out(static_cast<std::size_t>(length > 0 ? length : 0), '\0');
    std::vsnprintf(out.data(), out.size() + 1, format, again);
    va_end(again);
    return out;
}
