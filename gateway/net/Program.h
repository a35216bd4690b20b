#pragma once

#include <filesystem>

/// Program: where a program is that the gateway is to start.

namespace gateway {

/// A name without '/' is looked for in PATH, then beside this program, then where services are
/// (/usr/sbin, which the PATH of people may lack). Empty where there is none that can be run.
std::filesystem::path findProgram(const std::filesystem::path& name);

} // namespace gateway
