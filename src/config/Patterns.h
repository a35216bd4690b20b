#pragma once

#include "base/Findings.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// Patterns: names of files from templates. A template is words separated by '-': the first, third,
/// ... are literal, those between name a variable, such as "-STANAM-.-YY-o".

inline constexpr std::size_t kMaxPatterns = 100;
/// Longest keyword, and longest template, of the pattern file.
inline constexpr std::size_t kLongestPattern = 255;

struct Pattern {
    std::string keyword;
    std::string text;
};
/// A pattern file; one entry a line, a blank line has an empty one.
struct PatternTable {
    std::string file; // its path
    std::vector<Pattern> patterns;
};

/// Loads the file anew; false after a fatal finding.
bool Patterns_readFile(PatternTable& table, Findings& findings);

enum class PatternMode {
    named,  // the template of the keyword
    inPlace // the text that `out` holds
};
/// Expands a template into `out`; false after a fatal finding. `variables` are definitions such as
/// "STANAM=abcd", separated by ':'; those of the date follow them. A word of a template takes the
/// first definition that begins with it.
bool Patterns_m_getPatternName(const PatternTable& table, PatternMode mode,
                               std::string_view keyword, std::string_view variables, int year,
                               int month, int day, int hour, std::string& out, Findings& findings);
