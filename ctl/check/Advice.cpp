#include "ctl/check/Advice.h"

#include "base/ComText.h"
#include "config/JsonDocument.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace ctl::check {

namespace {

constexpr const char* kCarriers =
    "known are GPS:L1_L2_L5 GLS:L1_L2 GAL:E1_E5a_E5b_E5_E6 BDS:B1c_B1_B2a_B2b_B2_B3 "
    "QZS:L1_L2_L5_LEX";
constexpr const char* kNamesOfSystems = "a name begins with the letter of its system: G R E C J";
constexpr const char* kRemoveSatellites = "remove the satellites that are too many";
constexpr const char* kNotValid = "no calibration of it is valid over the session";
constexpr const char* kNone = "";

struct Advice {
    FindingId id;
    std::string_view advice;
    bool unreadable = false; // says that its file cannot be read: {why}
};

// clang-format off
constexpr auto kAdvice = [] {
    using enum FindingId;
    constexpr bool unreadable = true;
    return std::to_array<Advice>({
    {jsonUnreadable, "{why}", unreadable},
    {jsonTooLarge, "is larger than 4 MiB", unreadable},
    {jsonErrorBefore, kNone},
    {jsonMalformed, kNone}, // explained by what was read
    {keyMissing, "add the key"},
    {valueIsNoText, "every value is a string, also a number: put it in quotation marks"},
    {timeMalformed,
     "write year month day hour minute second length, such as \"2026 3 1 0 0 0 86400\""},
    {connectorMalformed, "write host and port, a blank between: \"192.0.2.10 2101\""},
    {integerMalformed, "write a whole number, such as \"1\""},
    {numberMalformed, "write a number, such as \"30\""},
    {clockMalformed, kNone},
    {optionMalformed, "or leave the key out"},
    {portOutOfRange, kNone},
    {tablesPathMissing, kNone},
    {requestsMissing, "write [\"VRS0\"]"},
    {dateImpossible, "write a date of the calendar: year month day hour minute second length"},

    {systemUnknown, kCarriers},
    {carriersMalformed, kCarriers},
    {carrierUnknown, kCarriers},
    {carrierOfNoSystem, "carriers are known for G R E C J"},
    {carriersMissing, "give its system carriers in common/freqused"},
    {modeUnknown, kNone},

    {objectUnreadable, "named by files/object: {why}", unreadable},
    {lineTooLong, kNone},
    {satelliteNameTooLong,
     "write the system and two digits, such as G05; stations follow behind -Satellite used"},
    {satelliteRepeated, "taken once: remove this line"},
    {satelliteOfNoSystem, kNamesOfSystems},
    {tooManySatellites, kRemoveSatellites},
    {tooManyGlonass, kRemoveSatellites},
    {tooManyBesideGlonass, kRemoveSatellites},
    {noSatellite, "replies will hold no observation: list satellites in front of the line "
                  "-Satellite used, each line with a blank at its beginning"},
    {stationsMissing, "stations stand between the lines +Station used and -Station used"},
    {stationNameTooLong, "stations have names of 4 characters"},
    {coordinatesUnread, "the station coordinate file has no good block for this station"},
    {noStation, "no line between +Station used and -Station used begins with a blank and names a "
                "station"},

    {siteUnreadable, "named by files/stacoo: {why}", unreadable},
    {siteBlockMissing, "add its lines NAME_POS, NAME_SIG and NAME_ENU"},
    {siteBlockMalformed, "here the next of the lines NAME_POS, NAME_SIG, NAME_ENU must stand"},
    {siteWithoutCoordinates, kNone}, // explained by what was read
    {leapSecondsUnreadable, "named by files/leapsc: {why}", unreadable},

    {patternsUnreadable, "named by files/vrnfln: {why}", unreadable},
    {tooManyPatterns, "at most 100 lines"},
    {keywordTooLong, kNone},
    {templateTooLong, kNone},
    {keywordUndefined, "add a line with this keyword and a template"},
    {wordUndefined, "variables are Y YY YYYY DDD HH WWWW GPSW WWWWD MJD MM and STANAM"},

    {observationsMissing, "nothing reads it: only told"},
    {stationDropped, "dropped: a fixed station (F) needs coordinates"},
    {satelliteAntennaMissing, kNotValid},
    {stationAntennaMissing, kNotValid},
    {modelFileUnreadable, "named by files/satnav, files/antnam or files/antpcv: {why}",
     unreadable},
    {satelliteInfoMalformed, kNone},
    {satelliteInfoMissing, "no line of this satellite covers the start of the session"},
    {formatWithoutWidth, kNone},
    {antennaNameUnknown, "the antenna names do not hold this text of the station's NAME_ENU line"},
    {antennaOfNoSystem, kNamesOfSystems},

    {antexNotAbsolute, "take a file of absolute calibrations (ANTEX, type A)"},
    {antexEntryMissing, kNone},
    {antexFrequencyMissing, kNone},
    {antexLineMalformed, kNone},
    {antexTableTooLarge, kNone},
    {antexVariationsLost, kNone},
    {antexOffsetsMissing, kNone},
    });
}();
// clang-format on
static_assert(rowForEachFinding(kAdvice));
static_assert(kLargestJson == std::size_t{4} << 20); // as jsonTooLarge says

const Advice& rowOf(FindingId id) {
    return kAdvice[static_cast<std::size_t>(id)];
}

std::string whyUnreadable(const std::string& path) {
    if (path.empty())
        return "the path is empty";
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        return reasonWith(path, std::strerror(errno));
    if (S_ISDIR(status.st_mode))
        return "is a directory";
    if (access(path.c_str(), R_OK) != 0)
        return std::strerror(errno);
    return "cannot be read as a file";
}

/// Cuts a part out of a text; false where it is not there.
bool cutOut(std::string& out, std::string_view part) {
    const std::size_t at = out.find(part);
    if (at == std::string::npos)
        return false;
    out.erase(at, part.size());
    return true;
}

/// The line without what its place says already, and without a value that is empty.
std::string saidBy(const Finding& finding) {
    std::string pattern(patternOf(finding.id));
    for (const char* const part :
         {"****ERROR(Deploy): ", "***ERROR(readCommFil):", "atxfile = {file},", "file = {file},",
          "key = {key},", "line = {line},"})
        cutOut(pattern, part);
    constexpr std::string_view value = "value = {},";
    Finding said = finding;
    if (const std::size_t at = pattern.find(value); at != std::string::npos) {
        std::size_t before = 0;
        for (std::size_t i = pattern.find("{}"); i < at; i = pattern.find("{}", i + 1))
            ++before;
        if (said.values.at(before).empty()) {
            said.values.erase(said.values.begin() + static_cast<std::ptrdiff_t>(before));
            pattern.erase(at, value.size());
        }
    }
    return filled(pattern, said);
}

std::string adviceAt(const Finding& finding, const Remarks& seen) {
    std::string advice(adviceOn(finding.id));
    if (cutOut(advice, "{why}"))
        advice += whyUnreadable(finding.file);
    // The path may have been written longer.
    if (rowOf(finding.id).unreadable && pointer_string(seen.cutPaths(), finding.file) >= 0)
        advice += "; the value that names it ends at a # or !";
    return advice;
}

} // namespace

std::string reasonWith(const std::string& path, std::string reason) {
    std::error_code ignored;
    if (!path.starts_with('/'))
        reason +=
            "; a relative path is taken from " + std::filesystem::current_path(ignored).string();
    return reason;
}

std::string_view adviceOn(FindingId id) {
    return rowOf(id).advice;
}

Remark remarkOn(const Finding& finding, const Remarks& seen) {
    Remark remark{
        severityOf(finding.id), finding.file, finding.line, finding.key, saidBy(finding), {}};
    if (const Explanation* const e = seen.explanationOf(finding)) {
        remark.line = e->line;
        remark.advice = e->advice;
    } else {
        remark.advice = adviceAt(finding, seen);
    }
    return remark;
}

} // namespace ctl::check
