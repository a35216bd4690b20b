#pragma once

#include <CLI/CLI.hpp>

/// Simulate: the subcommand `simulate`, the input endpoint of a service.

namespace ctl::simulate {

/// Adds the subcommand; its run leaves the exit status in `status`.
void addSimulate(CLI::App& app, int& status);

} // namespace ctl::simulate
