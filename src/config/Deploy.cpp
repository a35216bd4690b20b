#include "config/Deploy.h"

#include "config/PostMode.h"

#include "common/Clock.h"
#include "common/ComText.h"
#include "common/ComTime.h"
#include "common/LineReader.h"
#include "common/Print.h"

#include <cjson/cJSON.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <sys/stat.h>

namespace {

struct CommandLine {
    std::string mode;
    std::string file;
};

/// Every test is a search for a substring and is made on every argument.
CommandLine parseCommandLine(int argc, const char* const* argv) {
    CommandLine line;
    for (int i = 1; i < argc; ++i) {
        const std::string_view arg = argv[i];
        const auto has = [&](std::string_view option) { return contains(arg, option); };
        DLY.post = DLY.post || has("-post");
        DLY.pthread = DLY.pthread || has("-pthread");
        DLY.debug = DLY.debug || has("-debug");
        DLY.vrsSave = DLY.vrsSave || has("-vrssav");
        DLY.rawSave = DLY.rawSave || has("-rawsav");
        if (has("-mode")) {
            if (i + 2 >= argc)
                usage();
            line.mode = argv[++i];
            line.file = argv[++i];
        }
    }
    return line;
}

/// A value as it stands in its document; empty for none.
std::string shown(const cJSON* item) {
    const std::unique_ptr<char, decltype(&cJSON_free)> printed(
        item ? cJSON_PrintUnformatted(item) : nullptr, cJSON_free);
    return printed ? printed.get() : "";
}

/// One section of a document; every value it gives has passed excludeAnnoValue.
class Section {
public:
    Section(const JsonDocument& document, std::string name, Findings& findings)
        : document_(document), name_(std::move(name)), findings_(findings) {}

    std::string path(const char* key) const { return name_ + "/" + key; }

    /// Reports a value that cannot be used: file, key, value and what is expected instead.
    void bad(const char* key, const std::string& value, const std::string& expected) const {
        findings_.fatalKey(document_.file, path(key),
                           text("file = %s,key = %s,value = %s,%s", document_.file.c_str(),
                                path(key).c_str(), value.c_str(), expected.c_str()));
    }

    bool has(const char* key) const {
        return cJSON_GetChildValue(document_.root, name_.c_str(), key) != nullptr;
    }

    /// The text of a key into `out`; false with a finding where there is none.
    bool value(const char* key, std::string& out) const {
        const cJSON* const item = cJSON_GetChildValue(document_.root, name_.c_str(), key);
        if (!item) {
            bad(key, "", "key is missing");
            return false;
        }
        if (!cJSON_IsString(item)) {
            bad(key, shown(item), "value is not a string");
            return false;
        }
        out = excludeAnnoValue(item->valuestring);
        return true;
    }

    /// A value read by `read`; where that fails, a finding that shows the expected format.
    bool scan(const char* key, const char* format,
              const std::function<bool(TextScanner&)>& read) const {
        std::string v;
        if (!value(key, v))
            return false;
        TextScanner scanner(v);
        const bool good = read(scanner);
        if (!good)
            bad(key, v, text("expected \"%s\"", format));
        return good;
    }

    void integer(const char* key, int& out) const {
        scan(key, "%d", [&](TextScanner& s) { return s.integer(out); });
    }
    void number(const char* key, double& out) const {
        scan(key, "%lf", [&](TextScanner& s) { return s.number(out) && std::isfinite(out); });
    }
    void connector(const char* key, Connector& out) const {
        const bool read = scan(
            key, "%s %d", [&](TextScanner& s) { return s.word(out.host) && s.integer(out.port); });
        if (read && (out.port < 1 || out.port > 65535))
            bad(key, out.host + " " + std::to_string(out.port), "port is not in 1..65535");
    }

private:
    const JsonDocument& document_;
    std::string name_;
    Findings& findings_;
};

// Seconds that a time window may span or start at; keeps the day arithmetic in range.
constexpr double kMostSeconds = 1e9;
constexpr int kLastYear = 9999;

bool readTimeWindow(TextScanner& s, MonthDay& date, int& year) {
    int hour = 0;
    int minute = 0;
    double second = 0.0;
    if (!(s.integer(year) && s.integer(date.month) && s.integer(date.day) && s.integer(hour) &&
          s.integer(minute) && s.number(second) && s.number(DLY.sessionS)))
        return false;
    year = yr2year(year);
    DLY.startSod = 3600.0 * hour + 60.0 * minute + second;
    if (!(std::fabs(DLY.startSod) <= kMostSeconds && std::fabs(DLY.sessionS) <= kMostSeconds) ||
        year > kLastYear)
        return false;
    if (!validDate(year, date.month, date.day))
        return true; // reported by the caller with the line of the calendar
    DLY.startMjd = md_julday(year, date.month, date.day);
    DLY.endMjd =
        static_cast<int>(std::floor(DLY.startMjd + (DLY.startSod + DLY.sessionS) / kSecondsPerDay));
    DLY.endSod = DLY.startSod + DLY.sessionS - (DLY.endMjd - DLY.startMjd) * kSecondsPerDay;
    return true;
}

/// "YYYY-MM-DD hh:mm:ss", UTC.
std::optional<GTime> parseClock(const std::string& value) {
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

/// The leap-second file, which every 1020 reads, must be there before the first one comes.
void checkLeapSeconds(Findings& findings) {
    const std::string& path = DLY.tables.leapsc;
    if (contains(DLY.systems, "R") && !LineReader(path).isOpen())
        findings.fatal(path, 0, "***ERROR(readCommFil):file_table not exist leapsc item ");
}

void readCommon(const JsonDocument& document, Findings& findings) {
    const Section common(document, "common", findings);
    MonthDay date{1, 1};
    int year = 2000;
    common.scan("time", "%d%d%d%d%d%lf%lf",
                [&](TextScanner& s) { return readTimeWindow(s, date, year); });
    if (!validDate(year, date.month, date.day))
        findings.fatalKey(document.file, "common/time",
                          text("iyear = %d,imonth = %d,iday = %d,incorrect argument", year,
                               date.month, date.day));
    common.number("interval", DLY.intervalS);
    std::string value;
    if (common.value("freqused", value) &&
        m_parseFrequency(DLY.stationFrequencies, value, document.file, "common/freqused", findings))
        DLY.satelliteFrequencies = DLY.stationFrequencies;
    common.integer("threads", DLY.threads);
    common.integer("tracelevel", DLY.traceLevel);
    if (common.has("clock") && common.value("clock", value)) {
        DLY.clock = parseClock(value);
        if (!DLY.clock)
            common.bad("clock", value, "expected \"YYYY-MM-DD hh:mm:ss\", UTC");
    }
}

void readRequests(const JsonDocument& document, Findings& findings) {
    constexpr std::size_t nameLength = 7;
    const cJSON* const reqs = cJSON_GetObjectItem(document.root, "reqs");
    const int count = cJSON_IsArray(reqs) ? cJSON_GetArraySize(reqs) : 0;
    const auto bad = [&](const std::string& key, const cJSON* value, const char* why) {
        findings.fatalKey(document.file, key,
                          text("file = %s,key = %s,value = %s,%s", document.file.c_str(),
                               key.c_str(), shown(value).c_str(), why));
    };
    if (count == 0)
        bad("reqs", reqs, "expected a list of at least one request name");
    for (int i = 0; i < count; ++i) {
        const cJSON* const item = cJSON_GetArrayItem(reqs, i);
        if (!cJSON_IsString(item)) {
            bad(text("reqs/%d", i), item, "value is not a string");
            continue;
        }
        RequestRecord request;
        request.name = excludeAnnoValue(item->valuestring).substr(0, nameLength);
        request.requestWord = ~i % 20000;
        DLY.requests.push_back(request);
    }
}

void readConnections(const JsonDocument& document, Findings& findings) {
    const Section vrs(document, "vrs", findings);
    vrs.connector("input-connector", DLY.input);
    vrs.connector("output-connector", DLY.output);
    vrs.value("input-protocol", DLY.inputProtocol);
}

using JsonRoot = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

/// Loads and parses a file; null with findings where that fails.
JsonRoot loadJson(const std::string& path, Findings& findings) {
    const std::size_t before = findings.list().size();
    const std::string content = json_loader(path, findings);
    if (findings.list().size() > before)
        return {nullptr, cJSON_Delete};
    JsonRoot root(cJSON_Parse(content.c_str()), cJSON_Delete);
    if (!root) {
        const char* const at = cJSON_GetErrorPtr();
        findings.note(path, 0, text("Error before: [%s]", at ? at : ""));
        findings.fatal(path, 0,
                       text("file = %s,key = ,value = ,not a JSON document", path.c_str()));
    }
    return root;
}

/// A system named in "freqused", by substring.
char systemLetter(std::string_view name) {
    struct Name {
        std::string_view part;
        char letter;
    };
    constexpr std::array<Name, 7> names{{{"GPS", 'G'},
                                         {"GLS", 'R'},
                                         {"GAL", 'E'},
                                         {"BDS", 'C'},
                                         {"CPS", 'C'},
                                         {"CMS", 'C'},
                                         {"QZS", 'J'}}};
    for (const Name& n : names)
        if (contains(name, n.part))
            return n.letter;
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

} // namespace

void usage() {
    print("Welcome to Kestrune!\n"
          "Example: Kestrune -mode vrs vrs.json -rawsav/vrssav(*)\n"
          "Example: where (*) denotes optional parameter.\n");
    std::exit(EXIT_FAILURE);
}

void m_readJsonFile(int argc, const char* const* argv) {
    DLY = {};
    const CommandLine line = parseCommandLine(argc, argv);
    const Findings findings = readDeployment(line.file);
    for (const Finding& finding : findings.list()) {
        if (finding.severity == Severity::fatal)
            fatal("%s", finding.text.c_str());
        print("%s\n", finding.text.c_str());
    }
    if (DLY.clock)
        startReplayClock(*DLY.clock);
}

Findings readDeployment(const std::string& path) {
    Findings findings;
    strinit(DLY.stream);
    const JsonRoot root = loadJson(path, findings);
    if (!root)
        return findings;
    const JsonDocument document{root.get(), path};

    const Section paths(document, "path", findings);
    paths.value("broad", DLY.broadPath);
    paths.value("obs", DLY.obsPath);
    paths.value("output", DLY.outputPath);

    std::string tablesFile;
    const cJSON* const files = cJSON_GetObjectItem(root.get(), "files");
    if (cJSON_IsString(files)) {
        tablesFile = excludeAnnoValue(files->valuestring);
        m_parseTablesConfigures(tablesFile, findings);
    } else {
        findings.fatalKey(path, "files",
                          text("file = %s,key = files,value = %s,expected the path of the tables "
                               "file as a string",
                               path.c_str(), shown(files).c_str()));
    }
    for (const char* const section : {"common", "reqs", "vrs"})
        m_readJsonItem(document, section, findings);
    readObjectFile(findings);
    if (DLY.modeNumber == 2 || DLY.modeNumber == 3 || (DLY.modeNumber == 4 && DLY.post))
        Deploy_m_readBaselines(findings);
    struct stat status {};
    if (stat(tablesFile.c_str(), &status) == 0)
        DLY.tablesFileTime = status.st_mtime;
    if (!DLY.post)
        Deploy_m_checkRtConfigures();
    checkLeapSeconds(findings);
    return findings;
}

void m_readJsonItem(const JsonDocument& document, std::string_view section, Findings& findings) {
    if (contains(section, "common"))
        readCommon(document, findings);
    if (contains(section, "reqs"))
        readRequests(document, findings);
    if (contains(section, "vrs"))
        readConnections(document, findings);
}

void m_parseTablesConfigures(const std::string& path, Findings& findings) {
    const JsonRoot root = loadJson(path, findings);
    if (!root)
        return;
    const JsonDocument document{root.get(), path};
    const Section files(document, "files", findings);
    TablePaths& t = DLY.tables;
    struct Entry {
        const char* key;
        std::string& path;
    };
    for (const Entry& entry : std::initializer_list<Entry>{
             {"object", t.object},        {"stacoo", t.stacoo},       {"satnav", t.satnav},
             {"antnam", t.antnam},        {"antpcv", t.antpcv},       {"gptgrd", t.gptgrd},
             {"leapsc", t.leapsc},        {"ocload", t.ocload},       {"jpleph", t.jpleph},
             {"ut1t96", t.ut1t96},        {"ut1t03", t.ut1t03},       {"ut1t10", t.ut1t10},
             {"vrnfln", t.vrnfln},        {"polut1", t.polut1},       {"corrp1c1", t.corrp1c1},
             {"database", t.database},    {"corrDCB", t.corrDCB},     {"gptgrd_w", t.gptgrd_w},
             {"subnet", t.subnet},        {"baselines", t.baselines}, {"rtconfigs", t.rtconfigs},
             {"corrStaDCB", t.corrStaDCB}})
        files.value(entry.key, entry.path);
}

bool m_parseFrequency(FrequencyTable& table, std::string_view value, const std::string& file,
                      const std::string& key, Findings& findings) {
    for (const std::string& item : split_string(EmptyFields::drop, value, ' ', ' ', ' ')) {
        const std::size_t colon = item.find(':');
        const char letter = systemLetter(std::string_view(item).substr(0, colon));
        if (!letter) {
            findings.fatalKey(file, key, text("freq = %s: unknown GNSS system", item.c_str()));
            return false;
        }
        if (colon == std::string::npos) {
            findings.fatalKey(file, key,
                              text("file = %s,key = %s,value = %s,expected SYSTEM:NAME_NAME...",
                                   file.c_str(), key.c_str(), item.c_str()));
            return false;
        }
        auto& names = table[static_cast<std::size_t>(index_string(kSystems, letter))];
        names.clear();
        const std::string_view bands = std::string_view(item).substr(colon + 1);
        for (const std::string& band : split_string(EmptyFields::drop, bands, ' ', ' ', '_'))
            if (names.size() < kMaxFrequencies)
                names.push_back(slotName(band));
    }
    return true;
}

std::string json_loader(const std::string& path, Findings& findings) {
    const std::unique_ptr<std::FILE, decltype(&std::fclose)> file(std::fopen(path.c_str(), "rb"),
                                                                  std::fclose);
    std::string content;
    std::array<char, 4096> block{};
    while (file)
        if (const std::size_t n = std::fread(block.data(), 1, block.size(), file.get()))
            content.append(block.data(), n);
        else
            break;
    if (!file || std::ferror(file.get()))
        findings.fatal(path, 0,
                       text("****ERROR(Deploy): file = %s,can't access json file", path.c_str()));
    return content;
}

const cJSON* cJSON_GetChildValue(const cJSON* root, const char* section, const char* key) {
    return cJSON_GetObjectItem(cJSON_GetObjectItem(root, section), key);
}
