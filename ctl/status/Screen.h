#pragma once

#include "ctl/status/StatusFile.h"

#include <string>

namespace ctl::status {

/// Screen: the state of a service for people.
std::string screenOf(const StatusFile& status, double nowUnixS);
/// The same in one line.
std::string lineOf(const StatusFile& status, double nowUnixS);

} // namespace ctl::status
