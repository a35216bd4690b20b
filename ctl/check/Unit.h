#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Unit: where the systemd unit kestrune@NAME finds its station.

namespace ctl::check {

inline constexpr const char* kUnitFolder = "/etc/kestrune"; // its working directory

/// NAME of "NAME", "kestrune@NAME" or "kestrune@NAME.service"; empty where it is none.
std::string unitName(std::string_view argument);
/// The deployment file of a unit.
std::string deploymentOf(const std::string& unit);
/// The folder that it can write in.
std::string stateFolder(const std::string& unit);
bool isOrIn(const std::string& path, const std::string& folder);

/// Words of KESTRUNE_OPTIONS in a unit file or drop-in; the last line that sets it counts. False
/// where none does.
bool optionsIn(const std::string& content, std::vector<std::string>& options);
/// The same of the unit as its drop-ins leave it.
std::vector<std::string> optionsOfUnit(const std::string& unit);

} // namespace ctl::check
