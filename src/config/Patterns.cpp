#include "config/Patterns.h"

#include "base/ComText.h"
#include "base/LineReader.h"
#include "gnss/ComTime.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

namespace {

constexpr std::size_t kShownOfWord = 32; // of one that is too long, characters

/// Adds a finding about a value of the line read last; false.
bool refuse(const std::string& path, const LineReader& file, std::string_view value, FindingId id,
            Findings& findings) {
    findings.add(id, path, file.lineNumber(), {std::string(value.substr(0, kShownOfWord))});
    return false;
}

/// Keyword and template of a line; false after a finding about what has no room.
bool readPattern(std::string_view line, const std::string& path, const LineReader& file,
                 Pattern& pattern, Findings& findings) {
    if (file.cut())
        return refuse(path, file, line, FindingId::lineTooLong, findings);
    TextScanner scan(line);
    if (scan.word(pattern.keyword))
        scan.word(pattern.text);
    if (pattern.keyword.size() > kLongestPattern)
        return refuse(path, file, pattern.keyword, FindingId::keywordTooLong, findings);
    if (pattern.text.size() > kLongestPattern)
        return refuse(path, file, pattern.text, FindingId::templateTooLong, findings);
    return true;
}

/// The definitions of the date; a short word takes the first that begins with it.
std::array<std::string, 10> dateDefinitions(int year, int month, int day, int hour) {
    const int mjd = md_julday(year, month, day);
    const WeekDay gps = gpsweek(year, month, day);
    return {text("Y=%1.1d", year % 10),   text("YY=%2.2d", year % 100),
            text("YYYY=%4.4d", year),     text("DDD=%3.3d", mjd2doy(mjd).doy),
            text("HH=%2.2d", hour),       text("WWWW=%4.4d", gps.week),
            text("GPSW=%4.4d", gps.week), text("WWWWD=%5.5d", 10 * gps.week + gps.day),
            text("MJD=%5.5d", mjd),       text("MM=%2.2d", month)};
}

/// The first definition that begins with the word, or null.
const std::string* findDefinition(std::span<const std::string> definitions, std::string_view word) {
    // Deliberate: "YYY" finds "YYYY=", "D" finds "DDD=".
    const auto it = std::find_if(definitions.begin(), definitions.end(), [&](const std::string& d) {
        return d.starts_with(word) && contains(d, "=");
    });
    return it == definitions.end() ? nullptr : &*it;
}

/// Appends what the words of a template stand for; returns the word that nothing defines, or an
/// empty text.
std::string expand(std::string_view pattern, std::span<const std::string> definitions,
                   std::string& out) {
    const std::vector<std::string> words = split_string(EmptyFields::keep, pattern, ' ', ' ', '-');
    for (std::size_t i = 0; i < words.size(); ++i) {
        std::string word = trim(words[i]); // trailing blanks are zeros now, blanks alone none
        if (word.empty())
            continue;
        if (i % 2 == 0) {
            out += word;
            continue;
        }
        const std::string* const definition = findDefinition(definitions, word);
        if (!definition)
            return word;
        out += definition->substr(definition->find('=') + 1);
    }
    return {};
}

} // namespace

bool Patterns_readFile(PatternTable& table, Findings& findings) {
    auto& [path, patterns] = table;
    patterns.clear();
    LineReader file(path);
    if (!file.isOpen()) {
        findings.add(FindingId::patternsUnreadable, path, 0);
        return false;
    }
    std::string_view line;
    while (file.next(line)) {
        if (patterns.size() == kMaxPatterns) {
            findings.add(FindingId::tooManyPatterns, path, file.lineNumber(),
                         {std::to_string(patterns.size() + 1)});
            return false;
        }
        Pattern pattern;
        if (!readPattern(line, path, file, pattern, findings))
            return false;
        patterns.push_back(std::move(pattern));
    }
    return true;
}

bool Patterns_m_getPatternName(const PatternTable& table, PatternMode mode,
                               std::string_view keyword, std::string_view variables, int year,
                               int month, int day, int hour, std::string& out, Findings& findings) {
    const std::string name(keyword);
    std::string file; // of the template, where it has one
    int line = 0;
    const auto refuse = [&](FindingId id, std::vector<std::string> values) {
        findings.add(id, file, line, std::move(values));
        return false;
    };
    std::string pattern = out;
    if (mode == PatternMode::named) {
        file = table.file;
        const auto it = std::find_if(table.patterns.begin(), table.patterns.end(),
                                     [&](const Pattern& p) { return p.keyword == keyword; });
        if (it == table.patterns.end())
            return refuse(FindingId::keywordUndefined, {name});
        pattern = it->text;
        line = static_cast<int>(it - table.patterns.begin()) + 1; // every line is an entry
    }
    if (!validDate(year, month, day))
        return refuse(FindingId::dateImpossible,
                      {std::to_string(year), std::to_string(month), std::to_string(day)});
    std::vector<std::string> definitions =
        split_string(EmptyFields::drop, variables, ' ', ' ', ':');
    for (std::string& definition : dateDefinitions(year, month, day, hour))
        definitions.push_back(std::move(definition));

    out.clear();
    const std::string undefined = expand(pattern, definitions, out);
    if (!undefined.empty())
        return refuse(FindingId::wordUndefined, {undefined, name});
    return true;
}
