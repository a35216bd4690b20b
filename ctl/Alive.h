#pragma once

#include <chrono>
#include <string>

/// Alive: `kestrunectl alive`, the liveness probe of a container. It takes the place of the service
/// manager for a moment and waits for a sign of life, by the protocol of sd_watchdog_enabled(3).

namespace ctl::alive {

/// Whether a sign of life comes to the abstract socket (its name begins with '@') in time.
/// Throws where the name is no such socket, or another process has it.
bool hearsSignOfLife(const std::string& name, std::chrono::milliseconds limit);

/// Waits for one to the NOTIFY_SOCKET of the environment; the exit status: 0 alive, 1 silent.
int runAlive(int seconds);

} // namespace ctl::alive
