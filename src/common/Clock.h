#pragma once

#include "common/GTime.h"

/// Clock: the only way to the time of day. Weeks and days of the stream are resolved against it.

/// Current UTC. Tests replace it by a fixed instant.
extern GTime (*utcNow)();

/// From now on `utcNow` stands at the given UTC and runs on with the monotonic clock, so that a
/// recording can be replayed on any day.
void startReplayClock(GTime utc);

void sleepms(int milliseconds);
