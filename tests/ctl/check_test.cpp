#include "check.h"
#include "ctl/check/Access.h"
#include "ctl/check/Check.h"
#include "ctl/check/Place.h"
#include "ctl/check/Unit.h"
#include "process.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <random>
#include <set>
#include <sstream>

namespace ctl::check {

namespace {

namespace fs = std::filesystem;

const fs::path kBroken = fs::path(kSourceFolder) / "tests/data/broken";

struct Told {
    std::string place, text, advice; // place and severity: "vrs.json: files: error"
};

/// A line "PLACE: SEVERITY: TEXT"; false for any other.
bool parseFinding(const std::string& line, Told& told) {
    for (const std::string severity : {": error: ", ": warning: ", ": note: "})
        if (const std::size_t at = line.find(severity); at != std::string::npos) {
            const std::size_t end = at + severity.size();
            told = {line.substr(0, end - 2), line.substr(end), {}};
            return true;
        }
    return false;
}

std::vector<std::string> linesOf(const std::string& content) {
    std::vector<std::string> lines;
    std::istringstream in(content);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

/// The findings of an output or of an expectation; the line below one is its advice.
std::vector<Told> findingsOf(const std::vector<std::string>& lines) {
    std::vector<Told> out;
    bool below = false;
    for (const std::string& line : lines) {
        Told told;
        if (below && line.starts_with("    "))
            out.back().advice = line.substr(4);
        below = !line.starts_with("    ") && parseFinding(line, told);
        if (below)
            out.push_back(told);
    }
    return out;
}

/// What must come of a configuration: the file `expected` of its folder. "status CHECK SERVICE",
/// where a service that starts has 0; "switches ..."; "service LINE" for every line that it prints;
/// the rest are findings, with a part of their text and of their advice.
struct Expected {
    int check = -1, service = -1;
    std::string switches, printed = "Kestrune v2.5\n";
    std::vector<Told> findings;
};

Expected readExpected(const fs::path& file) {
    Expected e;
    std::vector<std::string> rest;
    for (const std::string& line : linesOf(readFile(file)))
        if (line.starts_with("status "))
            std::istringstream(line.substr(7)) >> e.check >> e.service;
        else if (line.starts_with("switches "))
            e.switches = line.substr(9);
        else if (line.starts_with("service "))
            e.printed += line.substr(8) + "\n";
        else
            rest.push_back(line);
    e.findings = findingsOf(rest);
    EXPECT_FALSE(e.check == -1 || e.service == -1) << file;
    EXPECT_EQ(e.check, std::any_of(e.findings.begin(), e.findings.end(),
                                   [](const Told& t) { return t.place.ends_with(": error"); })
                           ? 1
                           : 0)
        << file;
    return e;
}

/// The good configuration with the files of a case over it.
void lay(const fs::path& folder, const std::string& name) {
    fs::permissions(folder, fs::perms::owner_all | fs::perms(055)); // what others may read
    const fs::path post = fs::path(kSourceFolder) / "examples/post";
    for (const char* file : {"antennas.atx", "antennas.nam", "names.tab", "satellites.nav", "obs"})
        fs::copy(post / file, folder / file, fs::copy_options::recursive);
    for (const fs::path& source : {kBroken / "good", kBroken / name})
        fs::copy(source, folder,
                 fs::copy_options::recursive | fs::copy_options::overwrite_existing);
}

std::string inFolder(const fs::path& folder) {
    return "cd '" + folder.string() + "'; ";
}

/// Runs the service until it has ended, or has tried to connect: then the status is 0.
Ran runService(const fs::path& folder, const std::string& switches) {
    const std::string command = inFolder(folder) + "echo $$; exec " + kMortal +
                                shellWords(kServiceProgram) + "-mode vrs vrs.json " + switches;
    FILE* const pipe = popen(command.c_str(), "r");
    std::string output, line;
    pid_t process = 0;
    bool tried = false;
    for (int c = 0; !tried && (c = fgetc(pipe)) != EOF;) {
        line += static_cast<char>(c);
        if (c != '\n')
            continue;
        if (process == 0)
            process = std::stoi(line);
        else if (tried = line.starts_with("ppppp:"); !tried)
            output += line;
        line.clear();
    }
    if (tried)
        kill(process, SIGKILL);
    const int status = pclose(pipe);
    return {tried ? 0 : WEXITSTATUS(status), output + line};
}

/// Runs `kestrunectl`; both streams.
Ran runTool(const fs::path& folder, const std::string& arguments) {
    const fs::path before = fs::current_path();
    fs::current_path(folder);
    Ran ran = runInShell(kCtlProgram, arguments + " 2>&1");
    fs::current_path(before);
    return ran;
}

/// Every finding that is expected is there, once, and no other.
void compare(const std::vector<Told>& expected, std::vector<Told> found,
             const std::string& output) {
    for (const Told& e : expected) {
        const auto it = std::find_if(found.begin(), found.end(), [&](const Told& f) {
            return f.place == e.place && f.text.find(e.text) != std::string::npos &&
                   f.advice.find(e.advice) != std::string::npos;
        });
        EXPECT_TRUE(it != found.end())
            << "lacks " << e.place << ": " << e.text << "\n    " << e.advice << "\n"
            << output;
        if (it != found.end())
            found.erase(it);
    }
    for (const Told& f : found)
        ADD_FAILURE() << "not expected: " << f.place << ": " << f.text;
}

TEST(BrokenConfigurations, HaveTheirFindingsAndTheirLinesOfTheService) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(kBroken))
        names.insert(entry.path().filename());
    EXPECT_GE(names.size(), 35U);
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        const ::check::Scratch scratch;
        lay(scratch.path, name);
        const Expected expected = readExpected(kBroken / name / "expected");
        const Ran checked = runTool(scratch.path, "check vrs.json " + expected.switches);
        EXPECT_EQ(checked.status, expected.check) << checked.output;
        compare(expected.findings, findingsOf(linesOf(checked.output)), checked.output);
        const Ran served = runService(scratch.path, expected.switches);
        EXPECT_EQ(served.status, expected.service);
        EXPECT_EQ(served.output, expected.printed);
    }
}

TEST(Check, SaysWhatTheServiceWouldDoWhereNothingIsWrong) {
    const ::check::Scratch scratch;
    lay(scratch.path, "good");
    const Ran checked = runTool(scratch.path, "check vrs.json -rawsav");
    EXPECT_EQ(checked.output, "    connects to 127.0.0.1:1\n"
                              "    station STR2 lands at 35.31617 S, 149.01015 E, height 802.6 m\n"
                              "    6 satellites: G2 R1 E1 C1 J1\n"
                              "    GPS: replies carry 1C 2W 5Q, not 1P 1W 1S 1L 1X 2C 2S 2L 2X 2P "
                              "5I 5X\n"
                              "    GLS: replies carry 1P 2P, not 1C 2C\n"
                              "    GAL: replies carry 1X 5X 7X 6X, not 1C 1A 1B 1Z 5I 5Q 7I 7Q 6A "
                              "6B 6C 6Z\n"
                              "    BDS: replies carry 2I 7I 6I, not 2X 2Q 7Q 7X 6X 6Q\n"
                              "    QZS: replies carry 1C 2X 5Q, not 1S 1L 1X 2S 2L 5I 5X\n"
                              "    TAI - UTC is 37 s; the leap-second file ends on 2030-01-01\n"
                              "    saves epochs in .\n"
                              "    its clock starts on 2018-07-12, for a recording of that day\n"
                              "vrs.json: no findings\n");
}

TEST(Check, WritesItsFindingsAsJson) {
    const ::check::Scratch scratch;
    lay(scratch.path, "station-without-coordinates");
    const Ran ran = runTool(scratch.path, "check vrs.json --json");
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> root(cJSON_Parse(ran.output.c_str()),
                                                               cJSON_Delete);
    const auto textOf = [](const cJSON* o, const char* key) {
        const char* const value = cJSON_GetStringValue(cJSON_GetObjectItem(o, key));
        return std::string(value ? value : "");
    };
    EXPECT_EQ(cJSON_GetNumberValue(cJSON_GetObjectItem(root.get(), "errors")), 1.0) << ran.output;
    const cJSON* const list = cJSON_GetObjectItem(root.get(), "findings");
    ASSERT_EQ(cJSON_GetArraySize(list), 2) << ran.output;
    const cJSON* const error = cJSON_GetArrayItem(list, 0);
    EXPECT_EQ(textOf(error, "severity") + " " + textOf(error, "file") + " " + textOf(error, "text"),
              "error session.obj station = ABCD,read coordinate error!");
    EXPECT_EQ(cJSON_GetNumberValue(cJSON_GetObjectItem(error, "line")), 11.0);
    EXPECT_EQ(textOf(cJSON_GetArrayItem(list, 1), "file"), "site.crd");
}

TEST(Check, WritesJsonAsUtf8WhateverTheFileHolds) {
    const ::check::Scratch scratch;
    scratch.write("vrs.json", "{\"M\xfcnchen\": 1}");
    const std::string output = runTool(scratch.path, "check vrs.json --json").output;
    EXPECT_NE(output.find("M?nchen"), std::string::npos) << output;
    EXPECT_EQ(output.find('\xfc'), std::string::npos);
}

TEST(Check, TellsWrongArgumentsByItsStatus) {
    const ::check::Scratch scratch;
    const struct {
        std::string arguments;
        int status;
        std::string part;
    } cases[] = {{"check", 2, "--unit NAME"},
                 {"check vrs.json --unit STR2", 2, "--unit NAME"},
                 {"check --unit ../STR2", 2, "no name of a unit"},
                 {"check vrs.json -quick", 2, "no switch of the service"},
                 {"check vrs.json -rawsv", 2, "is -rawsav meant?"},
                 {"check vrs.json -rawsaved", 1, "-rawsaved: warning: is read as -rawsav"},
                 {"check vrs.json", 1, "vrs.json: error"},
                 {"check vrs.json >/dev/full", 2, ""}};
    for (const auto& c : cases) {
        const Ran ran = runTool(scratch.path, c.arguments);
        EXPECT_EQ(ran.status, c.status) << c.arguments;
        EXPECT_NE(ran.output.find(c.part), std::string::npos) << c.arguments << ran.output;
    }
}

TEST(Check, FindsWhatTheUserOfTheUnitCannotRead) {
    const ::check::Scratch scratch;
    lay(scratch.path, "good");
    const fs::path inner = fs::path(scratch.path) / "inner";
    fs::create_directory(inner);
    const std::string file = scratch.write("inner/site.crd", "");
    fs::create_symlink(file, scratch.path + "link");
    const auto closed = [](const std::string& path) {
        const auto found = ctl::check::closedToOthers(path);
        return found ? (found->folder ? "enter " : "read ") +
                           fs::path(found->path).filename().string()
                     : "open";
    };
    EXPECT_EQ(closed(file) + closed(scratch.path + "none"), "openopen");
    fs::permissions(file, fs::perms(0640));
    EXPECT_EQ(closed(file) + closed(scratch.path + "link"), "read site.crdread link");
    fs::permissions(file, fs::perms(0644));
    fs::permissions(inner, fs::perms(0750));
    EXPECT_EQ(closed(file) + closed(scratch.path + "link"), "enter innerenter inner");
    if (geteuid() != 0)
        return; // the check itself speaks where root would not notice
    fs::permissions(scratch.path + "session.obj", fs::perms(0600));
    const Ran ran = runTool(scratch.path, "check vrs.json");
    EXPECT_EQ(ran.status, 0);
    EXPECT_NE(
        ran.output.find("session.obj: warning: the user of the unit cannot read it (mode 0600)"),
        std::string::npos)
        << ran.output;
}

TEST(Check, TakesTheSwitchesOfAUnit) {
    const struct {
        const char* dropIn;
        std::vector<std::string> options;
    } cases[] = {{"[Service]\nEnvironment=KESTRUNE_OPTIONS=-rawsav\n", {"-rawsav"}},
                 {"Environment=A=b \"KESTRUNE_OPTIONS=-rawsav -post\" C=d\n", {"-rawsav", "-post"}},
                 {"Environment=KESTRUNE_OPTIONS=-post\nEnvironment=KESTRUNE_OPTIONS=\n", {}},
                 {"# Environment=KESTRUNE_OPTIONS=-post\nEnvironment=OTHER=1\n", {"before"}}};
    for (const auto& c : cases) {
        std::vector<std::string> options{"before"};
        ctl::check::optionsIn(c.dropIn, options);
        EXPECT_EQ(options, c.options) << c.dropIn;
    }
    EXPECT_EQ(ctl::check::unitName("kestrune@STR2.service"), "STR2");
    EXPECT_EQ(ctl::check::unitName("a/b"), "");
    EXPECT_TRUE(
        ctl::check::isOrIn("../../var/lib/kestrune/STR2/raw", ctl::check::stateFolder("STR2")));
    EXPECT_FALSE(ctl::check::isOrIn("/var/lib/kestrune/STR21", ctl::check::stateFolder("STR2")));
}

TEST(Place, IsToldWithTheSidesOfItsCountry) {
    // by the closed formula: 39.73915 N, 104.98470 W, 1600 m on WGS 84
    const Vector3 denver{-1270182.5, -4745454.1, 4056779.4};
    EXPECT_EQ(shortText(placeOf(denver)), "39.7 N 105.0 W");
    const Vector3 canberra{-4467074.3577, 2683011.9038, -3667008.2845};
    const auto mended = [&](const Vector3& written) { return mendedTowards(written, canberra); };
    EXPECT_EQ(mended({canberra[0], canberra[1], -canberra[2]}), "the sign of Z turned");
    EXPECT_EQ(mended({canberra[1], canberra[0], canberra[2]}), "X and Y exchanged");
    EXPECT_EQ(mended({-canberra[1], -canberra[0], canberra[2]}),
              "X and Y exchanged, and the signs of X and Y turned");
    EXPECT_EQ(mended(canberra) + mended(denver), "");
}

/// Bytes changed, taken out or doubled, in a file of the good configuration.
std::string spoiled(std::string content, std::mt19937& random) {
    const auto below = [&](std::size_t n) { return random() % std::max<std::size_t>(n, 1); };
    constexpr std::string_view often = "\"#!:, \n\t-9\0{}[]\\\x1b\xff";
    for (std::size_t i = 1 + below(8); i > 0 && !content.empty(); --i) {
        const std::size_t at = below(content.size());
        switch (below(4)) {
        case 0:
            content[at] = static_cast<char>(below(256));
            break;
        case 1:
            content[at] = often[below(often.size())];
            break;
        case 2:
            content.erase(at, below(40));
            break;
        default:
            content.insert(at, content.substr(below(content.size()), below(60)));
        }
    }
    return content;
}

TEST(CheckOfSpoiledFiles, EndsAndStaysPrintable) {
    const ::check::Scratch scratch;
    lay(scratch.path, "good");
    const fs::path before = fs::current_path();
    fs::current_path(scratch.path);
    std::mt19937 random(5);
    const char* const files[] = {"vrs.json",    "tables.json",  "session.obj",    "site.crd",
                                 "leapsec.tab", "antennas.nam", "satellites.nav", "names.tab"};
    int refused = 0;
    Deployment deployment;
    for (int i = 0; i < 600; ++i) {
        const std::string file = files[static_cast<std::size_t>(i) % std::size(files)];
        const std::string good = readFile(file);
        scratch.write(file, spoiled(good, random));
        const std::vector<std::string> switches{i % 3 ? "-post" : "-rawsav"};
        const CheckResult result = checkDeployment(deployment, "vrs.json", switches);
        std::ostringstream out;
        printCheck(result, out);
        const std::string printed = out.str();
        EXPECT_TRUE(std::none_of(printed.begin(), printed.end(), [](char c) {
            return (static_cast<unsigned char>(c) < 0x20 && c != '\n') || c == 0x7f;
        })) << printed;
        refused += result.count(Severity::fatal) > 0 ? 1 : 0;
        scratch.write(file, good);
    }
    fs::current_path(before);
    EXPECT_TRUE(refused > 100 && refused < 600) << refused;
}

} // namespace

} // namespace ctl::check
