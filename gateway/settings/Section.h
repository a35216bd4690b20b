#pragma once

#include "gateway/settings/SettingsRemarks.h"

#include <toml++/toml.h>

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Section: the keys of one section of a TOML file. Each reader returns nothing where the key is
/// missing, and where it has told what is wrong with its value.

namespace gateway {

FilePlace placeOf(const toml::node& node);

/// Whether the value of a key may be a password, or hold one: then no remark repeats it.
bool mayBeSecret(std::string_view key);

/// A text with its place.
struct PlacedText {
    std::string text;
    FilePlace at;
};

class Section {
public:
    Section(const toml::table& table, std::size_t number, SettingsRemarks& remarks);

    /// Tells of keys that are none of these.
    void tellUnknown(std::span<const std::string_view> known) const;

    bool has(std::string_view key) const { return table_.contains(key); }
    /// Not empty, at most 2000 bytes, no control characters.
    std::optional<std::string> text(std::string_view key) const;
    std::optional<PlacedText> placedText(std::string_view key) const;
    /// A text, or a list of some.
    std::vector<PlacedText> texts(std::string_view key) const;
    /// One of these words, as its index.
    std::optional<std::size_t> word(std::string_view key,
                                    std::span<const std::string_view> known) const;
    std::optional<double> number(std::string_view key, double least, double most) const;
    std::optional<std::size_t> whole(std::string_view key, std::size_t least,
                                     std::size_t most) const;
    std::optional<bool> flag(std::string_view key) const;
    /// Three numbers; `form` is what to write.
    std::optional<std::array<double, 3>> triple(std::string_view key, const char* form) const;
    bool isText(std::string_view key) const;
    /// Whether it is a list without values.
    bool isEmptyList(std::string_view key) const;

    void error(std::string_view key, std::string wrong, std::string advice = {}) const;
    /// The same with the value in front, as it is written; not of a key that may hold a password.
    void wrongValue(std::string_view key, const std::string& wrong, std::string advice = {}) const;
    void errorAt(FilePlace at, std::string_view key, std::string wrong,
                 std::string advice = {}) const;

private:
    const toml::node* find(std::string_view key) const;
    void wrongValue(const toml::node& node, std::string_view key, const std::string& wrong,
                    std::string advice) const;
    std::optional<std::string> goodText(const toml::node& node, std::string_view key) const;

    const toml::table& table_;
    std::size_t number_;
    SettingsRemarks& remarks_;
};

} // namespace gateway
