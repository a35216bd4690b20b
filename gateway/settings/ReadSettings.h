#pragma once

#include "ctl/check/Remarks.h"
#include "gateway/settings/Settings.h"
#include "gateway/settings/Users.h"

#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// ReadSettings: the gateway's file (TOML) or command line, into settings, with everything that is
/// wrong with them. A fault ends nothing: what follows is read as well.

namespace gateway {

struct ReadSettings {
    Settings settings;            // with defaults where remarks tell of errors
    std::shared_ptr<Users> users; // of their file; null: none is read
    std::vector<ctl::check::Remark> remarks;
    /// Nothing is fatal.
    bool usable() const;
};

/// How far a look goes at what settings name: files and folders; for `check` also its ports, which
/// are taken while the gateway runs.
enum class Look { files, filesAndPorts };
/// Reads the file and looks at all that it names.
ReadSettings readSettings(const std::filesystem::path& path, Look look = Look::files);
/// The same of a text, without a look at what it names.
ReadSettings parseSettings(std::string_view toml, const std::string& file);

/// Settings without a file: stations as NAME=ADDRESS, listeners as ADDRESS:PORT (none: [::]:2101).
/// The state is in the home of the user, but for root.
ReadSettings settingsOfCommandLine(std::span<const std::string> stations,
                                   std::span<const std::string> listeners);

/// Whether a name can be one of a station, a mountpoint and a file: letters, digits, - _ and .,
/// 1 to 100 of them, not . or - at the beginning.
bool isStationName(std::string_view name);

} // namespace gateway
