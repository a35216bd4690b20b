#pragma once

#include "common/GTime.h"

#include <chrono>

/// Clock: the only way to the time of day, always with 64 bits. Weeks and days of the stream are
/// resolved against it.

/// Current UTC. Tests replace it by a fixed instant.
extern GTime (*utcNow)();

/// From now on `utcNow` stands at the given UTC and runs on with the monotonic clock, so that a
/// recording can be replayed on any day.
void startReplayClock(GTime utc);

/// Time since a start of no meaning, which setting the clock does not move.
std::chrono::nanoseconds monotonicNow();

/// Sleeps; the service itself waits where its manager hears of it (net/Notify).
void sleepms(int milliseconds);
