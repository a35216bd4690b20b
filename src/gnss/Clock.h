#pragma once

#include "gnss/GTime.h"

#include <chrono>

/// Clock: the only way to the time of day, always with 64 bits. Weeks and days of the stream are
/// resolved against it.

/// Current UTC. Tests replace it by a fixed instant.
extern GTime (*utcNow)();

/// From now on `utcNow` stands at the given UTC and runs on with the monotonic clock, so that a
/// recording can be replayed on any day.
void startReplayClock(GTime utc);

/// Time since an arbitrary start. Setting the clock does not change it.
std::chrono::nanoseconds monotonicNow();

/// Sleeps. The service itself waits with net/Notify, so that its manager hears from it.
void sleepms(int milliseconds);
