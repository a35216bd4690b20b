#include "ctl/check/Unit.h"

#include "base/ComText.h"
#include "base/Findings.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

namespace ctl::check {

namespace {

namespace fs = std::filesystem;

/// Drop-ins by their name: of two with one name the folder named last counts (systemd.unit(5)).
std::map<std::string, fs::path> dropIns(const std::string& unit) {
    std::map<std::string, fs::path> out;
    const std::array<std::string, 2> names{"kestrune@.service.d",
                                           "kestrune@" + unit + ".service.d"};
    for (const std::string& name : names)
        for (const char* const root : {"/usr/lib", "/run", "/etc"}) {
            std::error_code none;
            for (const auto& entry :
                 fs::directory_iterator(fs::path(root) / "systemd/system" / name, none))
                if (entry.path().extension() == ".conf")
                    out[entry.path().filename()] = entry.path();
        }
    return out;
}

} // namespace

std::string unitName(std::string_view argument) {
    constexpr std::string_view before = "kestrune@";
    constexpr std::string_view behind = ".service";
    if (argument.starts_with(before))
        argument.remove_prefix(before.size());
    if (argument.ends_with(behind))
        argument.remove_suffix(behind.size());
    const bool name = argument.find('/') == std::string_view::npos && !argument.starts_with('.');
    return name ? std::string(argument) : std::string();
}

std::string deploymentOf(const std::string& unit) {
    return text("%s/%s.json", kUnitFolder, unit.c_str());
}

std::string stateFolder(const std::string& unit) {
    return "/var/lib/kestrune/" + unit;
}

bool isOrIn(const std::string& path, const std::string& folder) {
    const std::string whole = (fs::path(kUnitFolder) / path).lexically_normal().string();
    return whole == folder || whole.starts_with(folder + "/");
}

bool optionsIn(const std::string& content, std::vector<std::string>& options) {
    constexpr std::string_view key = "KESTRUNE_OPTIONS=";
    bool set = false;
    std::istringstream lines(content);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t at = line.find(key);
        if (!line.starts_with("Environment=") || at == std::string::npos)
            continue;
        // Quotes around the assignment take in blanks; without them a blank ends it.
        const char before = line[at - 1];
        const bool quoted = before == '"' || before == '\'';
        const std::size_t from = at + key.size();
        const std::size_t end = line.find_first_of(quoted ? std::string(1, before) : " \t", from);
        std::string value = line.substr(from, end == std::string::npos ? end : end - from);
        std::erase_if(value, [](char c) { return c == '"' || c == '\''; });
        std::istringstream words(value);
        options.assign(std::istream_iterator<std::string>(words), {});
        set = true;
    }
    return set;
}

std::vector<std::string> optionsOfUnit(const std::string& unit) {
    std::vector<std::string> options;
    for (const auto& [name, path] : dropIns(unit)) {
        std::ifstream file(path);
        optionsIn({std::istreambuf_iterator<char>(file), {}}, options);
    }
    return options;
}

} // namespace ctl::check
