#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

/// Notify: what the service tells the service manager that started it, by the protocol of
/// sd_notify(3) and sd_watchdog_enabled(3): that it is ready, what it does, and that it is
/// alive. Without NOTIFY_SOCKET it sends nothing. Sending never waits and never stops the service.

/// Reads NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID.
void notifyInitial();
/// Sends once that the service is ready.
void notifyReady();
/// What the service does, in plain words of at most 150 bytes. It is sent with the next wait, at
/// most once a second.
[[gnu::format(printf, 1, 2)]] void notifyStatus(const char* format, ...);

/// Sends what is due, without waiting: for long work between two waits.
void notifyDue();

/// Longer than any process lives, and short enough for sums of nanoseconds.
inline constexpr std::chrono::milliseconds kNoLimit = std::chrono::hours(24 * 365 * 100);
/// Lets the printed lines out, then waits until poll finds the descriptor ready (or in error), and
/// meanwhile sends what is due. False when the limit passes first. Signals end the process here.
bool waitTelling(int fd, short events, std::chrono::milliseconds limit);
/// What every wait does besides, empty = nothing: it gives the time until it is due again.
void tellBeside(std::function<std::chrono::milliseconds()> what);
/// Waits for nothing but the time.
void pauseTelling(std::chrono::milliseconds time);

/// Time between two signs of life, a quarter of WATCHDOG_USEC; zero for none. At least 10 ms, so
/// that a wrong value does not keep the processor busy.
std::chrono::milliseconds watchdogPeriod(const char* usec, const char* pid, std::int64_t ownPid);
