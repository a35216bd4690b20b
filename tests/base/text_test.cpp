#include "base/ComText.h"
#include "base/LineReader.h"
#include "check.h"

namespace {

using Strings = std::vector<std::string>;

TEST(TextValue, TurnsTrailingWhiteSpaceIntoZeros) { // deliberate
    const struct {
        const char *text, *trimmed, *value;
    } cases[] = {{"ab  ", "ab00", "ab00"},
                 {" a\t\n\v\f\r", "a00000", "a00000"},
                 {"   ", "", ""},
                 {"\t\n3 # x", "3 # x", "30"}};
    for (const auto& c : cases)
        EXPECT_TRUE(trim(c.text) == c.trimmed && excludeAnnoValue(c.text) == c.value) << c.text;
    EXPECT_TRUE(NINT(2.5) == 3 && NINT(-2.5) == -3 && NINT(-0.49) == 0 && NINT(0) == 0);
}

TEST(Split, KeepsOrDropsEmptyFields) {
    EXPECT_EQ(split_string(EmptyFields::drop, "A  B\n", ' ', ' ', ' '), (Strings{"A", "B"}));
    EXPECT_EQ(split_string(EmptyFields::keep, ",a ", ' ', ' ', ','), (Strings{"  ", "a"}));
    EXPECT_EQ(split_string(EmptyFields::drop, "x(a,b)y", '(', ')', ','), (Strings{"(a", "b)"}));
}

TEST(Scanning, ReadsWhatScanfReads) {
    for (const char* text : {"12abc z", " -7 x", "+5 6", "+-5 6", "- 5", "1.5.3 z", "1e5x", ".5 z",
                             "-.5e-2y z", "0x10 z", "", "  ", "abc", "\t3\n4", "007 8"}) {
        int i = 0, scannedI = 0;
        double d = 0, scannedD = 0;
        char rest[32] = "";
        std::string word;
        TextScanner first(text), second(text);
        const bool integer = first.integer(scannedI) && first.word(word);
        EXPECT_EQ(integer, std::sscanf(text, "%d%31s", &i, rest) == 2) << text;
        EXPECT_TRUE(!integer || (scannedI == i && word == rest)) << text;
        EXPECT_EQ(first.skip(0), integer) << text; // after the first failure everything fails
        const bool number = second.number(scannedD) && second.word(word);
        EXPECT_EQ(number, std::sscanf(text, "%lf%31s", &d, rest) == 2) << text;
        EXPECT_TRUE(!number || (scannedD == d && word == rest)) << text;
    }
}

TEST(LineReading, GivesTheLinesWithoutTheirEnds) {
    const check::Scratch scratch;
    const std::string full(1024, 'f');
    std::string nine; // lines across the borders of any buffer
    for (int i = 0; i < 9; ++i)
        nine += full + "\r\n";
    const struct {
        std::string content;
        Strings lines;
        bool cut = false;
    } cases[] = {{"", {}},
                 {"\n\r\nlast", {"", "", "last"}},
                 {nine, Strings(9, full)},
                 {full + "beyond\nnext\n", {full, "next"}, true},
                 {full + full, {full}, true},
                 {full + "\nnext", {full, "next"}}};
    for (const auto& c : cases) {
        LineReader file(scratch.write("lines", c.content));
        Strings lines;
        for (std::string_view line; file.next(line); lines.emplace_back(line))
            EXPECT_EQ(file.cut(), c.cut && file.lineNumber() == 1);
        EXPECT_EQ(lines, c.lines);
    }
    EXPECT_FALSE(LineReader(scratch.path).isOpen() || LineReader(scratch.path + "no").isOpen());
}

} // namespace
