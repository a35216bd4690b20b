#include "base/ComText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <system_error>

namespace {

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

} // namespace

std::string trim(std::string_view text) {
    const auto first = std::find_if_not(text.begin(), text.end(), isSpace);
    std::string out(first, text.end());
    for (auto it = out.rbegin(); it != out.rend() && isSpace(*it); ++it)
        *it = '0';
    return out;
}

std::size_t len_trim(std::string_view text) {
    const std::size_t last = text.find_last_not_of(std::string_view("\0\n\r ", 4));
    return last == std::string_view::npos ? 0 : last + 1;
}

std::optional<std::string> substringEx(std::string_view text, int start, int n) {
    const auto length = static_cast<std::ptrdiff_t>(text.size());
    if (start < 0 || n < 0 || start >= length || std::ptrdiff_t{start} + n > length)
        return std::nullopt;
    return std::string(text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(n)));
}

std::string_view left_justify_string(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \n\r"), text.size()));
    return text;
}

std::string toUpper(std::string text) {
    for (char& c : text)
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    return text;
}

std::string toLower(std::string text) {
    for (char& c : text)
        if (isUpperLetter(c))
            c = static_cast<char>(c - 'A' + 'a');
    return text;
}

bool isUpperLetter(char c) {
    return c >= 'A' && c <= 'Z';
}

std::vector<std::string> split_string(EmptyFields empty, std::string_view text, char first,
                                      char last, char sep) {
    const std::size_t length = len_trim(text);
    std::size_t start = 0;
    std::size_t end = length; // one past the last character
    if (first != ' ') {
        start = text.find(first);
        if (start == std::string_view::npos)
            return {};
    }
    if (last != ' ') {
        end = text.find(last);
        if (end == std::string_view::npos)
            return {};
        ++end;
    }
    if (start >= end)
        return {};
    std::string range(text.substr(start, end - start));
    if (range.back() != sep)
        range += sep;
    std::vector<std::string> fields;
    std::size_t field = 0;
    for (std::size_t i = 0; i < range.size(); ++i) {
        if (range[i] != sep)
            continue;
        if (i > field)
            fields.push_back(range.substr(field, i - field));
        else if (empty == EmptyFields::keep)
            fields.emplace_back("  ");
        field = i + 1;
    }
    return fields;
}

int pointer_string(std::span<const std::string> names, std::string_view s) {
    const auto it = std::find(names.begin(), names.end(), s);
    return it == names.end() ? -1 : static_cast<int>(it - names.begin());
}

int pointer_charstr(std::span<const std::string> names, std::string_view prefix) {
    const auto it = std::find_if(names.begin(), names.end(),
                                 [&](const std::string& n) { return n.starts_with(prefix); });
    return it == names.end() ? -1 : static_cast<int>(it - names.begin());
}

int Map_index(std::span<const std::string> table, std::string_view needle) {
    const auto it = std::find_if(table.begin(), table.end(),
                                 [&](const std::string& n) { return contains(n, needle); });
    return it == table.end() ? -1 : static_cast<int>(it - table.begin());
}

int index_string(std::string_view s, char c) {
    const std::size_t at = s.find(c);
    return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

std::string itoa(int n) {
    return std::to_string(n);
}

std::string excludeAnnoValue(std::string_view value) {
    value.remove_prefix(std::min(value.find_first_not_of(" \t\n"), value.size()));
    return trim(value.substr(0, value.find_first_of("#!")));
}

bool TextScanner::skipSpace() {
    while (at_ < text_.size() && isSpace(text_[at_]))
        ++at_;
    return !failed_ && at_ < text_.size();
}

bool TextScanner::atEnd() {
    return !skipSpace();
}

std::string_view TextScanner::rest() {
    skipSpace();
    return text_.substr(at_);
}

bool TextScanner::word(std::string& out) {
    if (!skipSpace()) {
        failed_ = true;
        return false;
    }
    const std::size_t start = at_;
    while (at_ < text_.size() && !isSpace(text_[at_]))
        ++at_;
    out.assign(text_.substr(start, at_ - start));
    return true;
}

bool TextScanner::integer(int& out) {
    failed_ = !skipSpace();
    if (failed_)
        return false;
    // from_chars knows no leading plus.
    std::size_t start = at_;
    if (text_[start] == '+' && start + 1 < text_.size() && text_[start + 1] != '-')
        ++start;
    const char* const begin = text_.data() + start;
    const auto [next, error] = std::from_chars(begin, text_.data() + text_.size(), out);
    failed_ = error != std::errc{};
    at_ = start + static_cast<std::size_t>(next - begin);
    return !failed_;
}

bool TextScanner::number(double& out) {
    failed_ = !skipSpace();
    if (failed_)
        return false;
    // strtod, not from_chars: it reads what scanf reads (a leading plus, hexadecimal).
    std::array<char, 128> buffer{};
    const std::size_t n = std::min(buffer.size() - 1, text_.size() - at_);
    std::memcpy(buffer.data(), text_.data() + at_, n);
    char* end = nullptr;
    const double value = std::strtod(buffer.data(), &end);
    failed_ = end == buffer.data();
    if (failed_)
        return false;
    at_ += static_cast<std::size_t>(end - buffer.data());
    out = value;
    return true;
}

bool TextScanner::skip(std::size_t n) {
    failed_ = failed_ || at_ + n > text_.size();
    if (!failed_)
        at_ += n;
    return !failed_;
}
