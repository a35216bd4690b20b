#include "ctl/Advice.h"

#include "common/ComText.h"

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

struct Advice {
    std::string_view part; // of the service's line
    const char* advice;
};
/// The first that fits counts.
constexpr Advice kAdvice[] = {
    {"key is missing", "add the key; only common/clock may be left out"},
    {"value is not a string", "every value is a string, also a number: put it in quotation marks"},
    {"expected \"%d%d%d%d%d%lf%lf\"",
     "write year month day hour minute second length, such as \"2026 3 1 0 0 0 86400\""},
    {"expected \"%s %d\"", "write host and port, a blank between: \"192.0.2.10 2101\""},
    {"expected \"%d\"", "write a whole number, such as \"1\""},
    {"expected \"%lf\"", "write a number, such as \"30\""},
    {"expected SYSTEM:NAME", kCarriers},
    {"unknown GNSS system", kCarriers},
    {"unknow frequency for", kCarriers},
    {"unknow frequency", "carriers are known for G R E C J"},
    {"incorrect argument",
     "write a date of the calendar: year month day hour minute second length"},
    {"expected a list of at least one", "write [\"VRS0\"]"},
    {"exist the same satellite", "taken once: remove this line"},
    {"do not support system", "a name begins with the letter of its system: G R E C J"},
    {"satellite name is longer",
     "write the system and two digits, such as G05; stations follow behind -Satellite used"},
    {"station name is longer", "stations have names of 4 characters"},
    {"more than 40 GLONASS", "remove the satellites that are too many"},
    {"more than 120 satellites", "remove the satellites that are too many"},
    {"more than 160 satellites", "remove the satellites that are too many"},
    {"no records for stations", "stations stand between the lines +Station used and -Station used"},
    {"no stations is selected",
     "no line between +Station used and -Station used begins with a blank and names a station"},
    {"no selected satellite", "replies will hold no observation: list satellites in front of the "
                              "line -Satellite used, each line with a blank at its beginning"},
    {"station is not exist in the site file", "add its lines NAME_POS, NAME_SIG and NAME_ENU"},
    {"site file format error",
     "here the next of the lines NAME_POS, NAME_SIG, NAME_ENU must stand"},
    {"read coordinate error", "the station coordinate file has no good block for this station"},
    {"can't find obs file", "nothing reads it: only told"},
    {"will continue", "dropped: a fixed station (F) needs coordinates"},
    {"satellite not found in svnav file",
     "no line of this satellite covers the start of the session"},
    {"is not selected!", "give its system carriers in common/freqused"},
    {"antenna unknown", "the antenna names do not hold this text of the station's NAME_ENU line"},
    {"keyword not defined", "add a line with this keyword and a template"},
    {"word is not defined", "variables are Y YY YYYY DDD HH WWWW GPSW WWWWD MJD MM and STANAM"},
    {"too many files defined", "at most 100 lines"},
    {"should refer absolute antenna mode", "take a file of absolute calibrations (ANTEX, type A)"},
    {"antenna is not found in atx file", "no calibration of it is valid over the session"},
};

/// Lines that say that a file cannot be read, and the key that names it.
struct Unreadable {
    std::string_view part;
    const char* key;
};
constexpr Unreadable kUnreadable[] = {
    {"can't access json file", nullptr},
    {"can't open file to read", "files/object"},
    {"can't access site file", "files/stacoo"},
    {"not exist leapsc item", "files/leapsc"},
    {"can't access vrnfln file", "files/vrnfln"},
    {"can't access satnav file", "files/satnav, files/antnam or files/antpcv"},
};

const Unreadable* unreadable(const Finding& finding) {
    for (const Unreadable& u : kUnreadable)
        if (contains(finding.text, u.part))
            return &u;
    return nullptr;
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

void cutOut(std::string& line, const std::string& part) {
    if (const std::size_t at = line.find(part); at != std::string::npos)
        line.erase(at, part.size());
}

} // namespace

std::string reasonWith(const std::string& path, std::string reason) {
    std::error_code ignored;
    if (!path.starts_with('/'))
        reason +=
            "; a relative path is taken from " + std::filesystem::current_path(ignored).string();
    return reason;
}

std::string saidBy(const Finding& finding) {
    std::string line = finding.text;
    cutOut(line, "****ERROR(Deploy): ");
    cutOut(line, "***ERROR(readCommFil):");
    cutOut(line, "atxfile = " + finding.file + ",");
    cutOut(line, "file = " + finding.file + ",");
    cutOut(line, "key = " + finding.key + ",");
    cutOut(line, text("line = %d,", finding.line));
    cutOut(line, "value = ,");
    return line;
}

bool saysUnreadable(const Finding& finding) {
    return unreadable(finding) != nullptr;
}

std::string adviceOn(const Finding& finding) {
    // A reader knows the format alone; the words for it stand above.
    const bool format = finding.advice.starts_with("expected \"%");
    if (!finding.advice.empty() && !format)
        return finding.advice;
    if (const Unreadable* const u = unreadable(finding))
        return (u->key ? text("named by %s: ", u->key) : "") + whyUnreadable(finding.file);
    for (const Advice& a : kAdvice)
        if (contains(format ? finding.advice : finding.text, a.part))
            return a.advice;
    return {};
}

} // namespace ctl::check
