#pragma once

#include "gateway/settings/Settings.h"
#include "gateway/settings/SettingsRemarks.h"
#include "gateway/settings/Users.h"

#include <memory>

/// Examine: what is wrong with settings that were read, beyond single values.

namespace gateway {

/// What does not fit together.
void examineTogether(const Settings& settings, SettingsRemarks& remarks);
/// What is wrong with the files and folders that are named. Returns the users of their file; null
/// where there is none that can be read.
std::shared_ptr<Users> examineFiles(const Settings& settings, SettingsRemarks& remarks);

} // namespace gateway
