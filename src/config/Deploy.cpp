#include "config/Deploy.h"

#include "base/ComText.h"
#include "base/LineReader.h"
#include "base/Print.h"
#include "config/ObjectFile.h"
#include "config/PostMode.h"
#include "config/ReadingWatcher.h"
#include "config/Section.h"
#include "config/Switches.h"
#include "gnss/Clock.h"
#include "gnss/ComTime.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <sys/stat.h>

namespace {

struct CommandLine {
    std::string mode;
    std::string file;
};

/// Every test is a search for a substring and is made on every argument.
CommandLine parseCommandLine(Deployment& out, int argc, const char* const* argv) {
    CommandLine line;
    for (int i = 1; i < argc; ++i) {
        Deploy_m_readSwitch(out, argv[i]);
        if (contains(argv[i], "-mode")) {
            if (i + 2 >= argc)
                usage();
            line.mode = argv[++i];
            line.file = argv[++i];
        }
    }
    return line;
}

// Seconds that a time window may span or start at; keeps the day arithmetic in range.
constexpr double kMostSeconds = 1e9;
constexpr int kLastYear = 9999;

bool readTimeWindow(Configuration& out, TextScanner& s, MonthDay& date, int& year) {
    int hour = 0;
    int minute = 0;
    double second = 0.0;
    if (!(s.integer(year) && s.integer(date.month) && s.integer(date.day) && s.integer(hour) &&
          s.integer(minute) && s.number(second) && s.number(out.sessionS)))
        return false;
    year = yr2year(year);
    out.startSod = 3600.0 * hour + 60.0 * minute + second;
    if (!(std::fabs(out.startSod) <= kMostSeconds && std::fabs(out.sessionS) <= kMostSeconds) ||
        year > kLastYear)
        return false;
    if (!validDate(year, date.month, date.day))
        return true; // reported by the caller with the line of the calendar
    out.startMjd = md_julday(year, date.month, date.day);
    out.endMjd =
        static_cast<int>(std::floor(out.startMjd + (out.startSod + out.sessionS) / kSecondsPerDay));
    out.endSod = out.startSod + out.sessionS - (out.endMjd - out.startMjd) * kSecondsPerDay;
    return true;
}

auto pathInto(std::string& out) {
    return [&out](const std::string& v) {
        out = v;
        return !v.empty();
    };
}

/// Numbers as many as there is room for, and nothing else.
bool numbersOnly(const std::string& v, std::span<double> out) {
    TextScanner scan(v);
    for (double& number : out)
        if (!scan.number(number) || !std::isfinite(number))
            return false;
    return scan.atEnd();
}

/// The leap-second file, which every 1020 reads, must be there before the first one comes.
void checkLeapSeconds(const Deployment& out, Findings& findings) {
    const std::string& path = out.tables.leapsc;
    if (contains(out.systems, "R") && !LineReader(path).isOpen())
        findings.add(FindingId::leapSecondsUnreadable, path, 0);
}

void readCommon(Deployment& out, const JsonDocument& document, Findings& findings) {
    const Section common(document, "common", findings);
    MonthDay date{1, 1};
    int year = 2000;
    common.scan("time", FindingId::timeMalformed,
                [&](TextScanner& s) { return readTimeWindow(out, s, date, year); });
    if (!validDate(year, date.month, date.day))
        findings.addKey(
            FindingId::dateImpossible, document.file, "common/time",
            {std::to_string(year), std::to_string(date.month), std::to_string(date.day)});
    else if (ReadingWatcher* const watcher = findings.watcher())
        watcher->date({document.file, "common/time"}, {year, date.month, date.day, out.startMjd});
    common.number("interval", out.intervalS);
    std::string value;
    if (common.value("freqused", value))
        m_parseFrequency(out.frequencies, value, document.file, "common/freqused", findings);
    common.integer("threads", out.threads);
    common.integer("tracelevel", out.traceLevel);
    common.option("status", "the path of a file", pathInto(out.statusPath));
    common.option("watchdog", "seconds from 1 to 86400", [&](const std::string& v) {
        return numbersOnly(v, std::span(&out.watchdogS, 1)) && out.watchdogS >= 1.0 &&
               out.watchdogS <= kSecondsPerDay;
    });
    if (common.has("clock") && common.value("clock", value)) {
        out.clock = Deploy_m_parseClock(value);
        if (!out.clock)
            common.bad(FindingId::clockMalformed, "clock", value);
    }
}

void readRequests(Session& out, const JsonDocument& document, Findings& findings) {
    constexpr std::size_t nameLength = 7;
    const cJSON* const reqs = document.member("reqs");
    const int count = cJSON_IsArray(reqs) ? cJSON_GetArraySize(reqs) : 0;
    if (count == 0)
        findings.addKey(FindingId::requestsMissing, document.file, "reqs", {shown(reqs)});
    for (int i = 0; i < count; ++i) {
        const cJSON* const item = cJSON_GetArrayItem(reqs, i);
        const std::string key = text("reqs/%d", i);
        if (!cJSON_IsString(item)) {
            findings.addKey(FindingId::valueIsNoText, document.file, key, {shown(item)});
            continue;
        }
        RequestRecord request;
        const std::string name = valueOf(*item, document, key, findings);
        request.name = name.substr(0, nameLength);
        if (ReadingWatcher* const watcher = findings.watcher(); watcher && request.name != name)
            watcher->requestName({document.file, key}, *item, request.name);
        request.requestWord = ~i % 20000;
        out.requests.push_back(request);
    }
}

/// One of two words; whether it is the second.
auto eitherOf(const char* first, const char* second, bool& isSecond) {
    return [=, &isSecond](const std::string& v) {
        isSecond = v == second;
        return isSecond || v == first;
    };
}

bool readOffset(std::optional<Vector3>& out, const std::string& v) {
    Vector3 enu{};
    if (!numbersOnly(v, enu) || !(distance(enu, {}) <= kMaxOffsetM))
        return false;
    out = enu;
    return true;
}

bool readGuard(std::optional<PlaceGuard>& out, std::string v) {
    constexpr std::string_view warn = " warn";
    PlaceGuard guard;
    guard.warnOnly = v.ends_with(warn);
    if (guard.warnOnly)
        v.resize(v.size() - warn.size());
    if (!numbersOnly(v, std::span(&guard.mostM, 1)) || !(guard.mostM > 0.0))
        return false;
    out = guard;
    return true;
}

void readVrs(Deployment& out, const JsonDocument& document, Findings& findings) {
    const Section vrs(document, "vrs", findings);
    vrs.connector("input-connector", out.input);
    vrs.connector("output-connector", out.output);
    vrs.value("input-protocol", out.inputProtocol);
    vrs.option("answer", "\"specified\" or \"complete\"",
               eitherOf("specified", "complete", out.answering.complete));
    vrs.option("output", "\"reply\" or \"rtcm3\"", eitherOf("reply", "rtcm3", out.answering.plain));
    vrs.option("offset", "\"EAST NORTH UP\" in metres, together at most 5000",
               [&](const std::string& v) { return readOffset(out.answering.offsetM, v); });
    vrs.option("guard", "\"METRES\" or \"METRES warn\"",
               [&](const std::string& v) { return readGuard(out.guard, v); });
}

/// A system named in "freqused", by substring.
char systemLetter(std::string_view name) {
    for (const ConfiguredSystem& system : kConfiguredSystems)
        for (const std::string_view known : system.names)
            if (!known.empty() && contains(name, known))
                return system.letter;
    return 0;
}

/// A system's own band name as a carrier slot name; rules in the order in which they are tried.
std::string slotName(const std::string& band) {
    struct Rule {
        std::array<std::string_view, 3> parts;
        std::string_view whole;
        const char* slot;
    };
    constexpr std::array<Rule, 6> rules{{{{"L1", "G1", "E1"}, "B1c", "L1"},
                                         {{"L2", "G2", "E2"}, "B1", "L2"},
                                         {{"L5", "E5a"}, "B2a", "L5"},
                                         {{"E6", "LEX"}, "B3", "L6"},
                                         {{"E5b"}, "B2b", "L7"},
                                         {{"E5"}, "B2", "L8"}}};
    for (const Rule& rule : rules) {
        for (const std::string_view part : rule.parts)
            if (!part.empty() && contains(band, part))
                return rule.slot;
        if (band == rule.whole)
            return rule.slot;
    }
    return band;
}

/// One "SYSTEM:NAME_NAME..." into the table; false with a finding where it makes no sense.
bool parseCarriers(FrequencyTable& table, const std::string& item, const std::string& file,
                   const std::string& key, Findings& findings) {
    const std::size_t colon = item.find(':');
    const char letter = systemLetter(std::string_view(item).substr(0, colon));
    if (!letter) {
        findings.addKey(FindingId::systemUnknown, file, key, {item});
        return false;
    }
    if (colon == std::string::npos) {
        findings.addKey(FindingId::carriersMalformed, file, key, {item});
        return false;
    }
    auto& names = table[systemIndex(letter)];
    const KeyPlace at{file, key};
    ReadingWatcher* const watcher = findings.watcher();
    if (watcher && !names.empty())
        watcher->systemAgain(at, item);
    names.clear();
    const std::string_view bands = std::string_view(item).substr(colon + 1);
    for (const std::string& band : split_string(EmptyFields::drop, bands, ' ', ' ', '_')) {
        const std::string slot = slotName(band);
        if (watcher)
            watcher->band(at, {item, band, slot, names});
        if (names.size() < kMaxFrequencies)
            names.push_back(slot);
        else if (watcher)
            watcher->bandLeftOut(at, item, band);
    }
    return true;
}

} // namespace

std::optional<GTime> Deploy_m_parseClock(const std::string& value) {
    constexpr std::string_view form = "dddd-dd-dd dd:dd:dd";
    if (value.size() != form.size())
        return std::nullopt;
    for (std::size_t i = 0; i < form.size(); ++i)
        if (form[i] == 'd' ? value[i] < '0' || value[i] > '9' : value[i] != form[i])
            return std::nullopt;
    const auto field = [&](std::size_t at, std::size_t n) {
        return std::atoi(value.substr(at, n).c_str());
    };
    const CalendarTime c{1.0 * field(0, 4),  1.0 * field(5, 2),  1.0 * field(8, 2),
                         1.0 * field(11, 2), 1.0 * field(14, 2), 1.0 * field(17, 2)};
    // A time that is not on the calendar does not come back the same.
    const GTime t = epoch2time(c);
    if (t.unknown() || time2epoch(t) != c)
        return std::nullopt;
    return t;
}

std::string_view Deploy_m_systemName(char letter) {
    const ConfiguredSystem* const system = configuredSystem(letter);
    return system ? system->names[0] : std::string_view{};
}

void usage() {
    print(Level::error, "Welcome to Kestrune!\n"
                        "Example: Kestrune -mode vrs vrs.json -rawsav/vrssav(*)\n"
                        "Example: where (*) denotes optional parameter.\n");
    printFlush();
    std::exit(EXIT_FAILURE);
}

bool Deploy_m_readSwitch(Deployment& out, std::string_view argument) {
    bool any = false;
    const std::array<bool*, kSwitches.size()> flags{&out.post, &out.rawSave, &out.vrsSave,
                                                    &out.pthread, &out.debug};
    for (std::size_t i = 0; i < flags.size(); ++i)
        if (contains(argument, kSwitches[i]))
            any = *flags[i] = true;
    return any;
}

void m_readJsonFile(Deployment& out, int argc, const char* const* argv) {
    out = {};
    const CommandLine arguments = parseCommandLine(out, argc, argv);
    const Findings findings = readDeployment(out, arguments.file);
    for (const Finding& finding : findings.list()) {
        const Severity severity = severityOf(finding.id);
        const std::string line = printedLine(finding);
        if (severity == Severity::fatal)
            fatal("%s", line.c_str());
        print(severity == Severity::warning ? Level::warning : Level::notice, "%s\n", line.c_str());
    }
    if (out.clock)
        startReplayClock(*out.clock);
}

Findings readDeployment(Deployment& out, const std::string& path, ReadingWatcher* watcher) {
    Findings findings(watcher);
    strinit(out.stream);
    out.file = path;
    const JsonDocument document(path, findings);
    if (!document.root)
        return findings;

    const Section paths(document, "path", findings);
    paths.value("broad", out.broadPath);
    paths.value("obs", out.obsPath);
    paths.value("output", out.outputPath);
    paths.option("state", "the path of a folder", pathInto(out.statePath));

    std::string tablesFile;
    const cJSON* const files = document.member("files");
    if (cJSON_IsString(files)) {
        tablesFile = valueOf(*files, document, "files", findings);
        m_parseTablesConfigures(out.tables, tablesFile, findings);
    } else {
        findings.addKey(FindingId::tablesPathMissing, path, "files", {shown(files)});
    }
    for (const char* const section : {"common", "reqs", "vrs"})
        m_readJsonItem(out, document, section, findings);
    if (watcher)
        watcher->asked(document, findings);
    readObjectFile(out, findings);
    if (out.modeNumber == 2 || out.modeNumber == 3 || (out.modeNumber == 4 && out.post))
        Deploy_m_readBaselines(out.tables.baselines, out.baselineNames, findings);
    struct stat status {};
    if (stat(tablesFile.c_str(), &status) == 0)
        out.tablesFileTime = status.st_mtime;
    if (!out.post)
        Deploy_m_checkRtConfigures();
    checkLeapSeconds(out, findings);
    return findings;
}

void m_readJsonItem(Deployment& out, const JsonDocument& document, std::string_view section,
                    Findings& findings) {
    if (contains(section, "common"))
        readCommon(out, document, findings);
    if (contains(section, "reqs"))
        readRequests(out, document, findings);
    if (contains(section, "vrs"))
        readVrs(out, document, findings);
}

void m_parseTablesConfigures(TablePaths& out, const std::string& path, Findings& findings) {
    const JsonDocument document(path, findings);
    if (!document.root)
        return;
    const Section files(document, "files", findings);
    struct Entry {
        const char* key;
        std::string& path;
    };
    for (const Entry& entry :
         std::initializer_list<Entry>{{"object", out.object},       {"stacoo", out.stacoo},
                                      {"satnav", out.satnav},       {"antnam", out.antnam},
                                      {"antpcv", out.antpcv},       {"gptgrd", out.gptgrd},
                                      {"leapsc", out.leapsc},       {"ocload", out.ocload},
                                      {"jpleph", out.jpleph},       {"ut1t96", out.ut1t96},
                                      {"ut1t03", out.ut1t03},       {"ut1t10", out.ut1t10},
                                      {"vrnfln", out.vrnfln},       {"polut1", out.polut1},
                                      {"corrp1c1", out.corrp1c1},   {"database", out.database},
                                      {"corrDCB", out.corrDCB},     {"gptgrd_w", out.gptgrd_w},
                                      {"subnet", out.subnet},       {"baselines", out.baselines},
                                      {"rtconfigs", out.rtconfigs}, {"corrStaDCB", out.corrStaDCB}})
        files.value(entry.key, entry.path);
    if (ReadingWatcher* const watcher = findings.watcher())
        watcher->asked(document, findings);
}

bool m_parseFrequency(FrequencyTable& table, std::string_view value, const std::string& file,
                      const std::string& key, Findings& findings) {
    bool good = true;
    for (const std::string& item : split_string(EmptyFields::drop, value, ' ', ' ', ' '))
        good = parseCarriers(table, item, file, key, findings) && good;
    return good;
}
