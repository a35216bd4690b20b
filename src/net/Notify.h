#pragma once

#include <chrono>
#include <cstdint>

/// Notify: what the service tells the service manager that started it, by the protocol of
/// sd_notify(3) and sd_watchdog_enabled(3): that it is ready, what it is about, and that it is
/// alive. Without NOTIFY_SOCKET it tells nothing. Telling never waits and never fails the service.

/// Reads NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID.
void notifyInitial();
/// The service does its work from now on; told once.
void notifyReady();
/// What it is about, in plain words of at most 150 bytes; told with the next wait, and no more
/// often than once a second.
[[gnu::format(printf, 1, 2)]] void notifyStatus(const char* format, ...);

/// Tells what is due, without waiting: for work that goes on for long between two waits.
void notifyDue();

/// Longer than any process lives, and short enough for sums of nanoseconds.
inline constexpr std::chrono::milliseconds kNoLimit = std::chrono::hours(24 * 365 * 100);
/// Waits until poll finds the descriptor ready (or in error), and tells meanwhile what is due;
/// false where the limit passes first.
bool waitTelling(int fd, short events, std::chrono::milliseconds limit);
/// Waits for nothing but the time.
void pauseTelling(std::chrono::milliseconds time);

/// Time between two signs of life, a quarter of WATCHDOG_USEC; zero for none. At least 10 ms: no
/// manager is so impatient, and it keeps a wrong value from burning the processor.
std::chrono::milliseconds watchdogPeriod(const char* usec, const char* pid, std::int64_t ownPid);
