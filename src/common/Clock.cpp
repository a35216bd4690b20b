#include "common/Clock.h"

#include <cerrno>
#include <ctime>

namespace {

GTime read(clockid_t id) {
    timespec now{};
    clock_gettime(id, &now);
    return {now.tv_sec, static_cast<double>(now.tv_nsec) * 1e-9};
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

void sleepms(int milliseconds) {
    if (milliseconds <= 0)
        return;
    timespec left{milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
    while (nanosleep(&left, &left) == -1 && errno == EINTR) {
    }
}
