#include "fuzz/support.h"

#include "base/ComText.h"
#include "config/Patterns.h"

#include <array>

// Names of files: three lines (keyword, variables, date) and a file of patterns. A template gives
// the same name under its keyword and in place.

namespace {

/// Cuts off the first line.
std::string nextLine(std::string_view& text) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text = text.substr(std::min(line.size() + 1, text.size()));
    return std::string(line);
}

struct Expansion {
    bool good = false;
    std::string name;
};

Expansion expand(const PatternTable& table, PatternMode mode, std::string_view keyword,
                 std::string_view variables, const std::array<int, 4>& date, std::string text) {
    Findings findings;
    const bool good = Patterns_m_getPatternName(table, mode, keyword, variables, date[0], date[1],
                                                date[2], date[3], text, findings);
    require(good != findings.anyFatal(), "a name or a finding");
    return {good, text};
}

const Folder folder;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view rest = textOf({data, size});
    const std::string keyword = nextLine(rest);
    const std::string variables = nextLine(rest);
    const std::string day = nextLine(rest);
    std::array<int, 4> date{2018, 7, 12, 23};
    TextScanner scan(day);
    for (int& number : date)
        scan.integer(number);
    if (date[0] > 9999)
        return -1; // no configuration leads there

    PatternTable table{folder.write("patterns", rest), {}};
    Findings findings;
    require(Patterns_readFile(table, findings) != findings.anyFatal(), "patterns or a finding");
    require(table.patterns.size() <= kMaxPatterns, "at most 100 patterns");
    const Expansion named = expand(table, PatternMode::named, keyword, variables, date, "");
    for (const Pattern& pattern : table.patterns)
        if (pattern.keyword == keyword) {
            const Expansion inPlace =
                expand(table, PatternMode::inPlace, "", variables, date, pattern.text);
            require(named.good == inPlace.good, "the same name under the keyword and in place");
            require(!named.good || named.name == inPlace.name,
                    "the same name under the keyword and in place");
            break;
        }
    return 0;
}
