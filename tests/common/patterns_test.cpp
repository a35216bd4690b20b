#include "common/Patterns.h"
#include "common/check.h"

namespace {

/// What a template becomes on 2020-02-29 at 7 h; behind '!' the finding where there is one.
std::string expanded(std::string pattern, const char* variables) {
    Findings findings;
    const bool good = Patterns_m_getPatternName(PatternMode::inPlace, "kw", variables, 2020, 2, 29,
                                                7, pattern, findings);
    EXPECT_EQ(good, findings.list().empty());
    return good ? pattern : "!" + findings.list().at(0).text;
}

// 2020-02-29: day 60 of its year, MJD 58908, Saturday of GPS week 2094.
TEST(Pattern, TakesLiteralsAndVariablesInTurn) {
    const struct {
        const char *pattern, *name, *variables = "";
    } cases[] = {
        {"-STANAM-.-YY-o", "abcd.20o", "STANAM=abcd"},
        {"x-Y-_-YYYY-_-DDD-_-HH-_-MM-", "x0_2020_060_07_02"},
        {"-WWWW-_-GPSW-_-WWWWD-_-MJD-z", "2094_2094_20946_58908z"},
        {"plain", "plain"},
        {"", ""},
        {"a--b", "ab"}, // an empty word takes the place of a variable
        {"-YY- -HH-", "2007"},
        {"-A-_-B-", "1_2", "::A=1::B=2:"},
        {"-YY-", "own", "YY=own"}, // before those of the date
        {"-V-_-W-", "a=b_", "V=a=b:W="},
        {"-YYY-_-D-_-STA-", "2020_060_x", "STANAM=x"}, // deliberate: a beginning is enough
        {"a - YY-b", "a020b"}, // deliberate: a trailing blank becomes a zero
        {"-Q-", "!word = Q,keyword = kw,word is not defined in keyword"},
        {"-Q-", "!word = Q,keyword = kw,word is not defined in keyword", "Q"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(expanded(c.pattern, c.variables), c.name) << c.pattern;
}

struct PatternFile : testing::Test, check::Scratch {
    /// Loads this content; empty, or "line: text" of the finding.
    std::string load(const std::string& content) {
        DLY.tables.vrnfln = write("vrnfln", content);
        Findings findings;
        const bool good = Patterns_readFile(findings);
        EXPECT_EQ(good, findings.list().empty());
        if (good)
            return "";
        const Finding& f = findings.list()[0];
        EXPECT_TRUE(f.severity == Severity::fatal && f.file == DLY.tables.vrnfln);
        return std::to_string(f.line) + ": " + f.text;
    }
    static std::string named(const char* keyword) {
        std::string out = "before";
        Findings findings;
        return Patterns_m_getPatternName(PatternMode::named, keyword, "", 1999, 12, 31, 0, out,
                                         findings)
                   ? out
                   : std::to_string(findings.list().at(0).line) + ": " + findings.list()[0].text;
    }
};

TEST_F(PatternFile, HoldsATemplateForEachKeyword) {
    EXPECT_EQ(load("old -YY-\n"), "");
    EXPECT_EQ(load("rnxo a-YY- and more\r\n\n  log\tb-YYYY-\nrnxo c\nbad -Q-\n"), "");
    EXPECT_EQ(PATTERNS.size(), 5U); // a blank line uses up an entry
    EXPECT_EQ(named("rnxo"), "a99");
    EXPECT_EQ(named("log"), "b1999");
    EXPECT_EQ(named("old"), "0: keyword = old,keyword not defined in varno_file_name");
    EXPECT_EQ(named("rnx"), "0: keyword = rnx,keyword not defined in varno_file_name");
    EXPECT_EQ(named("bad"), "5: word = Q,keyword = bad,word is not defined in keyword");
}

TEST_F(PatternFile, IsBounded) {
    const std::string full(255, 'k');
    std::string hundred;
    for (int i = 0; i < 99; ++i)
        hundred += "k t\n";
    EXPECT_EQ(load(hundred + full + " " + full), "");
    EXPECT_EQ(named(full.c_str()), full);
    EXPECT_EQ(load(hundred + "\n\n"), "101: nfile = 101,too many files defined in varno_file_name");
    const std::string start = "2: file = " + path + "vrnfln,line = 2,value = ";
    const std::string shown(32, 'k');
    EXPECT_EQ(load("a b\nk" + full + " t\n"),
              start + shown + ",keyword is longer than 255 characters");
    EXPECT_EQ(load("a b\nt k" + full), start + shown + ",template is longer than 255 characters");
    EXPECT_EQ(load("a b\n" + shown + std::string(1000, ' ')),
              start + shown + ",line is longer than 1024 bytes");
    Findings findings;
    DLY.tables.vrnfln = path + "absent";
    EXPECT_FALSE(Patterns_readFile(findings));
    EXPECT_EQ(findings.list().at(0).text, "file = " + path + "absent,can't access vrnfln file");
}

} // namespace
