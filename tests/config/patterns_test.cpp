#include "check.h"
#include "config/Patterns.h"

namespace {

/// The name on 2020-02-29 at 7 h (day 60 of its year, MJD 58908, Saturday of GPS week 2094), or
/// '!', line and text of the finding.
std::string named(const PatternTable& table, PatternMode mode, const char* keyword,
                  std::string pattern, const char* own) {
    Findings findings;
    return Patterns_m_getPatternName(table, mode, keyword, own, 2020, 2, 29, 7, pattern, findings)
               ? pattern
               : text("!%d %s", findings.list().at(0).line,
                      printedLine(findings.list()[0]).c_str());
}

TEST(Pattern, TakesLiteralsAndVariablesInTurn) {
    const struct {
        const char *pattern, *name, *variables = "";
    } cases[] = {
        {"-STANAM-.-YY-o", "abcd.20o", "STANAM=abcd"},
        {"x-Y-_-YYYY-_-DDD-_-HH-_-MM-", "x0_2020_060_07_02"},
        {"-WWWW-_-GPSW-_-WWWWD-_-MJD-z", "2094_2094_20946_58908z"},
        {"a--b-YY- -HH-", "ab2007"}, // an empty word takes its place, too
        {"-YY-_-V-_-W-", "own_a=b_", "::YY=own::V=a=b:W="},
        {"-YYY-_-D-_-STA-", "2020_060_x", "STANAM=x"}, // deliberate: a beginning is enough
        {"a - YY-b", "a020b"},                         // deliberate: trailing blanks become zeros
        {"-Q-", "!0 word = Q,keyword = kw,word is not defined in keyword", "Q"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(named({}, PatternMode::inPlace, "kw", c.pattern, c.variables), c.name)
            << c.pattern;
}

TEST(PatternFile, HoldsATemplateALine) {
    const check::Scratch scratch;
    PatternTable table;
    const auto load = [&](const std::string& content) {
        table.file = scratch.write("vrnfln", content);
        Findings findings;
        return Patterns_readFile(table, findings) ? ""
                                                  : text("!%d %s", findings.list().at(0).line,
                                                         printedLine(findings.list()[0]).c_str());
    };
    const auto name = [&](const char* key) {
        return named(table, PatternMode::named, key, "-", "");
    };
    EXPECT_EQ(load("old -YY-\n"), "");
    EXPECT_EQ(load("rnxo a-YY- and more\r\n\n  log\tb-YYYY-\nrnxo c\nbad -Q-\n"), "");
    EXPECT_EQ(name("rnxo") + name("log"), "a20b2020");
    EXPECT_EQ(name("old"), "!0 keyword = old,keyword not defined in varno_file_name");
    // A blank line is an entry.
    EXPECT_EQ(name("bad"), "!5 word = Q,keyword = bad,word is not defined in keyword");

    const std::string full(255, 'k'), shown(32, 'k');
    std::string lines;
    for (int i = 0; i < 99; ++i)
        lines += "k t\n";
    EXPECT_EQ(load(lines + full + " " + full), "");
    EXPECT_EQ(name(full.c_str()), full);
    EXPECT_EQ(load(lines + "\n\n"), "!101 nfile = 101,too many files defined in varno_file_name");
    const std::string start = "!1 file = " + table.file + ",line = 1,value = " + shown;
    EXPECT_EQ(load("k" + full), start + ",keyword is longer than 255 characters");
    EXPECT_EQ(load("t k" + full), start + ",template is longer than 255 characters");
    EXPECT_EQ(load(shown + std::string(999, ' ')), start + ",line is longer than 1024 bytes");
    std::filesystem::remove(table.file);
    Findings findings;
    EXPECT_FALSE(Patterns_readFile(table, findings));
    EXPECT_EQ(printedLine(findings.list().at(0)),
              "file = " + table.file + ",can't access vrnfln file");
}

} // namespace
