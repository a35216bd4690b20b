#pragma once

#include "common/Findings.h"

#include <string>

/// Advice: the lines of the service in the words of `kestrunectl check`.

namespace ctl::check {

/// The line without what its place says already.
std::string saidBy(const Finding& finding);
/// The reason, and for a relative path the folder that it is taken from.
std::string reasonWith(const std::string& path, std::string reason);
/// Whether it says that its file cannot be read.
bool saysUnreadable(const Finding& finding);
/// What to write instead; empty where there is nothing to say.
std::string adviceOn(const Finding& finding);

} // namespace ctl::check
