#pragma once

#include "gateway/settings/ReadSettings.h"

#include <iosfwd>

/// CheckSettings: `kestrune-gateway check FILE`, in the manner of `kestrunectl check`.

namespace gateway {

/// Prints what was said of the settings, and what the gateway would do with them.
void printSettings(const ReadSettings& read, const std::string& file, std::ostream& out);
/// Reads, examines and prints; the exit status: 0, or 1 where it cannot work.
int runCheck(const std::filesystem::path& file, std::ostream& out);

} // namespace gateway
