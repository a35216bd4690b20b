#include "gnss/Clock.h"

#include <cerrno>
#include <ctime>

namespace {

// clock_gettime, because the clocks of <chrono> read 32 bits of seconds on 32-bit ARM.
timespec now(clockid_t id) {
    timespec time{};
    clock_gettime(id, &time);
    return time;
}

GTime read(clockid_t id) {
    const timespec time = now(id);
    return {time.tv_sec, static_cast<double>(time.tv_nsec) * 1e-9};
}

GTime systemUtc() {
    return read(CLOCK_REALTIME);
}

struct ReplayClock {
    GTime utc;            // where the clock stood
    GTime monotonicStart; // when it was started
};
ReplayClock replay;

GTime replayUtc() {
    return timeadd(replay.utc, timediff(read(CLOCK_MONOTONIC), replay.monotonicStart));
}

} // namespace

GTime (*utcNow)() = systemUtc;

void startReplayClock(GTime utc) {
    replay = {utc, read(CLOCK_MONOTONIC)};
    utcNow = replayUtc;
}

std::chrono::nanoseconds monotonicNow() {
    const timespec time = now(CLOCK_MONOTONIC);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

void sleepms(int milliseconds) {
    if (milliseconds <= 0)
        return;
    timespec left{milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
    while (nanosleep(&left, &left) == -1 && errno == EINTR) {
    }
}
