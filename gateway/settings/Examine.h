#pragma once

#include "gateway/settings/Settings.h"
#include "gateway/settings/SettingsRemarks.h"

/// Examine: what is wrong with settings that were read, beyond single values.

namespace gateway {

/// What does not fit together.
void examineTogether(const Settings& settings, SettingsRemarks& remarks);
/// What is wrong with the files and folders that are named.
void examineFiles(const Settings& settings, SettingsRemarks& remarks);

} // namespace gateway
