#include "gateway/settings/Section.h"

#include "gateway/net/Characters.h"
#include "gateway/net/Nearest.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <sstream>

namespace gateway {

namespace {

constexpr std::size_t kLongestText = 2000; // of a value
constexpr std::size_t kLongestShown = 80;  // of one that is repeated

constexpr std::string_view kSecretKeys[] = {"password", "source", "ephemerides", "push",
                                            "webhook",  "users",  "key"};

std::string rangeText(double least, double most) {
    return text("write a number from %g to %g", least, most);
}

/// A value as it is likely written, on one line.
std::string written(const toml::node& node) {
    if (const toml::array* const list = node.as_array()) {
        std::string out;
        for (const toml::node& item : *list)
            out += (out.empty() ? "" : ", ") + written(item);
        return "[" + out + "]";
    }
    if (const auto* const text = node.as_string())
        return '"' + text->get() + '"';
    if (const auto* const number = node.as_floating_point()) {
        char digits[40];
        return {digits, std::to_chars(std::begin(digits), std::end(digits), number->get()).ptr};
    }
    std::ostringstream out;
    node.visit([&](const auto& value) { out << value; });
    return out.str();
}

std::string shown(const toml::node& node) {
    const std::string all = written(node);
    return all.size() > kLongestShown ? all.substr(0, kLongestShown) + "..." : all;
}

} // namespace

bool mayBeSecret(std::string_view key) {
    return std::find(std::begin(kSecretKeys), std::end(kSecretKeys), key) != std::end(kSecretKeys);
}

FilePlace placeOf(const toml::node& node) {
    const toml::source_position& at = node.source().begin;
    return {static_cast<int>(at.line), static_cast<int>(at.column)};
}

Section::Section(const toml::table& table, std::size_t number, SettingsRemarks& remarks)
    : table_(table), number_(number), remarks_(remarks) {
    remarks_.place(number_, "", gateway::placeOf(table));
    for (const auto& [key, value] : table_)
        remarks_.place(number_, std::string(key.str()), gateway::placeOf(value));
}

void Section::tellUnknown(std::span<const std::string_view> known) const {
    for (const auto& [key, value] : table_)
        if (std::find(known.begin(), known.end(), key.str()) == known.end())
            error(key.str(), "key is not known", meantOrKnown(key.str(), known));
}

const toml::node* Section::find(std::string_view key) const {
    return table_.get(key);
}

void Section::error(std::string_view key, std::string wrong, std::string advice) const {
    remarks_.error(number_, std::string(key), std::move(wrong), std::move(advice));
}

void Section::errorAt(FilePlace at, std::string_view key, std::string wrong,
                      std::string advice) const {
    remarks_.error(at, number_, std::string(key), std::move(wrong), std::move(advice));
}

void Section::wrongValue(const toml::node& node, std::string_view key, const std::string& wrong,
                         std::string advice) const {
    errorAt(gateway::placeOf(node), key, mayBeSecret(key) ? wrong : shown(node) + " " + wrong,
            std::move(advice));
}

void Section::wrongValue(std::string_view key, const std::string& wrong, std::string advice) const {
    wrongValue(*find(key), key, wrong, std::move(advice));
}

std::optional<std::string> Section::goodText(const toml::node& node, std::string_view key) const {
    const auto* const value = node.as_string();
    if (!value) {
        wrongValue(node, key, "is no text", "put it in quotation marks");
        return std::nullopt;
    }
    const std::string& text = value->get();
    if (text.empty())
        errorAt(gateway::placeOf(node), key, "is empty", "write a value, or leave the key out");
    else if (std::any_of(text.begin(), text.end(), isControl))
        wrongValue(node, key, "holds a control character", "leave it out");
    else if (text.size() > kLongestText)
        errorAt(gateway::placeOf(node), key, ::text("has %zu characters", text.size()),
                ::text("write at most %zu", kLongestText));
    else
        return text;
    return std::nullopt;
}

std::optional<std::string> Section::text(std::string_view key) const {
    const toml::node* const node = find(key);
    return node ? goodText(*node, key) : std::nullopt;
}

std::optional<PlacedText> Section::placedText(std::string_view key) const {
    auto value = text(key);
    return value ? std::optional(PlacedText{std::move(*value), gateway::placeOf(*find(key))})
                 : std::nullopt;
}

std::vector<PlacedText> Section::texts(std::string_view key) const {
    std::vector<PlacedText> out;
    const toml::node* const node = find(key);
    if (!node)
        return out;
    const auto take = [&](const toml::node& item) {
        if (auto text = goodText(item, key))
            out.push_back({std::move(*text), gateway::placeOf(item)});
    };
    if (const toml::array* const list = node->as_array()) {
        for (const toml::node& item : *list)
            take(item);
        if (list->empty())
            error(key, "is an empty list", "write a value, or leave the key out");
    } else {
        take(*node);
    }
    return out;
}

std::optional<std::size_t> Section::word(std::string_view key,
                                         std::span<const std::string_view> known) const {
    const auto value = text(key);
    if (!value)
        return std::nullopt;
    const auto at = std::find(known.begin(), known.end(), *value);
    if (at != known.end())
        return static_cast<std::size_t>(at - known.begin());
    wrongValue(key, "is none of its words", meantOrKnown(*value, known));
    return std::nullopt;
}

std::optional<double> Section::number(std::string_view key, double least, double most) const {
    const toml::node* const node = find(key);
    if (!node)
        return std::nullopt;
    const auto value = node->is_number() ? node->value<double>() : std::nullopt;
    if (value && *value >= least && *value <= most) // false for nan
        return value;
    wrongValue(key, value ? "is out of range" : "is no number", rangeText(least, most));
    return std::nullopt;
}

std::optional<std::size_t> Section::whole(std::string_view key, std::size_t least,
                                          std::size_t most) const {
    const toml::node* const node = find(key);
    if (!node)
        return std::nullopt;
    const auto value = node->value_exact<std::int64_t>();
    if (value && *value >= 0 && static_cast<std::uint64_t>(*value) >= least &&
        static_cast<std::uint64_t>(*value) <= most)
        return static_cast<std::size_t>(*value);
    wrongValue(key, value ? "is out of range" : "is no whole number",
               ::text("write a whole number from %zu to %zu", least, most));
    return std::nullopt;
}

std::optional<bool> Section::flag(std::string_view key) const {
    const toml::node* const node = find(key);
    const auto value = node ? node->value_exact<bool>() : std::nullopt;
    if (node && !value)
        wrongValue(key, "is neither true nor false",
                   "write true or false, without quotation marks");
    return value;
}

std::optional<std::array<double, 3>> Section::triple(std::string_view key, const char* form) const {
    const toml::node* const node = find(key);
    if (!node)
        return std::nullopt;
    std::array<double, 3> out{};
    const toml::array* const list = node->as_array();
    bool good = list && list->size() == out.size();
    for (std::size_t i = 0; good && i < out.size(); ++i) {
        const toml::node& item = (*list)[i];
        const auto value = item.is_number() ? item.value<double>() : std::nullopt;
        good = value && std::fabs(*value) <= 1e9; // false for nan
        out[i] = value.value_or(0.0);
    }
    if (good)
        return out;
    wrongValue(key, "is no list of three numbers", form);
    return std::nullopt;
}

bool Section::isEmptyList(std::string_view key) const {
    const toml::node* const node = table_.get(key);
    return node && node->is_array() && node->as_array()->empty();
}

bool Section::isText(std::string_view key) const {
    const toml::node* const node = find(key);
    return node && node->is_string();
}

} // namespace gateway
