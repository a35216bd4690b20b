#pragma once

#include "ctl/check/Remarks.h"

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// SettingsRemarks: what is said of the settings, each remark at its place in the file. No text
/// holds a value that may be a password.

namespace gateway {

/// Sections of the file by number: [gateway], [caster], [web], [alarms], then the stations as they
/// stand.
inline constexpr std::size_t kFileSection = 0; // of what belongs to no section
inline constexpr std::size_t kGatewaySection = 1;
inline constexpr std::size_t kCasterSection = 2;
inline constexpr std::size_t kWebSection = 3;
inline constexpr std::size_t kAlarmsSection = 4;
inline constexpr std::size_t kFirstStation = 5;

/// Where something stands in the file, counted from 1; 0 where it does not.
struct FilePlace {
    int line = 0, column = 0;
};

class SettingsRemarks {
public:
    explicit SettingsRemarks(std::string file) : file_(std::move(file)) {}

    /// Tells where a section or a key stands; an empty key is the section itself.
    void place(std::size_t section, const std::string& key, FilePlace at) {
        places_[{section, key}] = at;
    }
    /// A line was left out: what is missing may have been in it.
    void leftOut() { leftOut_ = true; }
    /// Whether a key stands in the file, well or badly, or may have been meant to.
    bool present(std::size_t section, const std::string& key) const {
        return leftOut_ || places_.contains({section, key});
    }
    /// What a station is called in the remarks: "station NAME".
    void name(std::size_t station, const std::string& name) { names_[station] = name; }

    /// A remark on a key that was placed, else on its section.
    void error(std::size_t section, const std::string& key, std::string wrong, std::string advice);
    void warn(std::size_t section, const std::string& key, std::string wrong, std::string advice);
    /// An error at a place of its own.
    void error(FilePlace at, std::size_t section, const std::string& key, std::string wrong,
               std::string advice);
    /// A remark that names its place itself.
    void add(ctl::check::Remark remark);

    const std::string& file() const { return file_; }
    /// By line and column.
    std::vector<ctl::check::Remark> sorted() &&;

private:
    FilePlace placeOf(std::size_t section, const std::string& key) const;
    std::string keyText(std::size_t section, const std::string& key) const;

    std::string file_;
    std::map<std::pair<std::size_t, std::string>, FilePlace> places_;
    std::map<std::size_t, std::string> names_;
    std::vector<ctl::check::Remark> list_;
    bool leftOut_ = false;
};

} // namespace gateway
