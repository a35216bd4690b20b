#pragma once

#include "gateway/settings/Settings.h"
#include "gateway/settings/SettingsRemarks.h"

/// Loops: stations that would wait for themselves.

namespace gateway {

/// Tells of each station that gets its own stream, by way of our caster and of other stations.
void examineLoops(const Settings& settings, SettingsRemarks& remarks);

} // namespace gateway
