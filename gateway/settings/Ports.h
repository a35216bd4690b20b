#pragma once

#include "gateway/settings/Settings.h"
#include "gateway/settings/SettingsRemarks.h"

#include <vector>

/// Ports: where the gateway listens.

namespace gateway {

/// An address, and where the settings name it.
struct Port {
    HostPort at;
    std::size_t section;
    const char* key;
};
/// As the settings name them. Engines that somebody else starts find one for each station.
std::vector<Port> portsOf(const Settings& settings);

/// Whether the two cannot both listen: any address takes the port of all, and port 0 is any free
/// one.
bool clash(const HostPort& a, const HostPort& b);
/// Warns of those on which nobody could listen now. All of them are taken while the gateway runs
/// that has these settings; that is one remark.
void examinePorts(const Settings& settings, SettingsRemarks& remarks);

} // namespace gateway
