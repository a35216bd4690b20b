#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Com, text: the helpers that every reader of a configuration or data file uses.

inline constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

/// The text without leading white space; every trailing white-space character becomes '0'
/// (deliberate: a value followed by a blank and a comment gains zeros).
std::string trim(std::string_view text);
/// Length without trailing NUL, newline, carriage return and blank; a tab counts as text.
std::size_t len_trim(std::string_view text);
/// n characters from start; nothing where they are not all there.
std::optional<std::string> substringEx(std::string_view text, int start, int n);
/// The text after leading blanks, newlines and carriage returns.
std::string_view left_justify_string(std::string_view text);
/// ASCII letters only.
std::string toUpper(std::string text);
std::string toLower(std::string text);
bool isUpperLetter(char c);

enum class EmptyFields { keep, drop };
/// Fields of the text between separators, from the first `first` to the last `last` (a blank for
/// either means from the start, to the end). A kept empty field is two blanks.
std::vector<std::string> split_string(EmptyFields empty, std::string_view text, char first,
                                      char last, char sep);

/// Index of the first of the names equal to s, or -1.
int pointer_string(std::span<const std::string> names, std::string_view s);
/// Index of the first of the names that begins with the prefix, or -1.
int pointer_charstr(std::span<const std::string> names, std::string_view prefix);
/// Index of the first entry of the table that contains the needle, or -1.
int Map_index(std::span<const std::string> table, std::string_view needle);
/// Index of the first occurrence of c in s, or -1.
int index_string(std::string_view s, char c);
std::string itoa(int n);

template <class T> constexpr T ABS(T x) {
    return x < T{} ? -x : x;
}
/// a when b > 0, else -a (also for b = 0).
template <class T> constexpr T SIGN(T a, T b) {
    return b > T{} ? a : -a;
}
/// Rounds half away from zero.
inline int NINT(double x) {
    return static_cast<int>(x + 0.5 * SIGN(1.0, x));
}

/// A value of a configuration file: without leading blanks, tabs and newlines, cut at the first
/// '#' or '!', then trimmed as `trim` does.
std::string excludeAnnoValue(std::string_view value);

inline bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

/// Reads words and numbers one after another as scanf's "%s", "%d" and "%lf" do: white space in
/// front is skipped, a number ends where it stops being one, and after the first failure
/// everything fails.
class TextScanner {
public:
    explicit TextScanner(std::string_view text) : text_(text) {}

    bool word(std::string& out);
    bool integer(int& out);
    bool number(double& out);
    /// Passes over n characters, as "%*nc" does.
    bool skip(std::size_t n);
    /// Only white space is left.
    bool atEnd();
    /// What is left, without white space in front.
    std::string_view rest();

private:
    bool skipSpace();

    std::string_view text_;
    std::size_t at_ = 0;
    bool failed_ = false;
};
