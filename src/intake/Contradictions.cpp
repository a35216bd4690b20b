#include "intake/Contradictions.h"

#include "base/ComText.h"
#include "base/Print.h"
#include "gnss/Session.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

namespace {

constexpr std::chrono::hours kGone{1};
constexpr std::chrono::minutes kTogether{1};
// Antenna heights and old datums stay below it, another station does not.
constexpr double kSamePlaceM = 5.0;

/// Such as 2018-07-12 23:59.
struct DateText {
    explicit DateText(GTime t) {
        const CalendarTime c = time2epoch(t);
        std::snprintf(text.data(), text.size(), "%04.0f-%02.0f-%02.0f %02.0f:%02.0f", c[0], c[1],
                      c[2], c[3], c[4]);
    }
    std::array<char, 32> text{};
};

/// GPS and QZSS send their weeks modulo 1024; a time that is completed to the past may be one that
/// lies ahead of the clock.
GTime nearestCycle(GTime t, GTime clock) {
    constexpr double cycleS = 1024 * kSecondsPerWeek;
    return timediff(clock, t) > cycleS / 2 ? timeadd(t, cycleS) : t;
}

/// Whether an ephemeris of that week fits the clock. Around the change of weeks those of both are
/// in use, and the week of a message may be that of its transmission or of its toe.
bool weekOfClock(int week, WeekTime clock) {
    constexpr double bothInUseS = 6 * 3600.0;
    return week == clock.week ||
           (week == clock.week + 1 && clock.sow > kSecondsPerWeek - bothInUseS) ||
           (week == clock.week - 1 && clock.sow < bothInUseS);
}

} // namespace

bool Contradictions::Standing::begins(bool contradicts, Instant now) {
    const bool first = contradicts && !begun;
    if (contradicts)
        last = now;
    else if (now - last >= kGone)
        begun = false;
    begun = begun || contradicts;
    return first;
}

void Contradictions::newConnection() {
    id_ = -1;
    changed_ = false;
}

void Contradictions::stationId(int id, Instant now) {
    const int before = std::exchange(id_, id);
    const bool changes = before >= 0 && before != id;
    if (ids_.begins(changes && changed_ && now - changedAt_ <= kTogether, now))
        print(Level::warning,
              "***WARN(StreamObs): stations %d and %d on one stream, replies may mix two places!\n",
              std::min(before, id), std::max(before, id));
    if (changes) {
        changed_ = true;
        changedAt_ = now;
    }
}

void Contradictions::otherStation(int id, int own, Instant now) {
    if (others_.begins(id != own, now))
        print(Level::warning,
              "***WARN(StreamObs): messages of station %d are refused, the stream is station "
              "%d's!\n",
              id, own);
}

void Contradictions::takeOverRefused(int id, bool elsewhere, Instant now) {
    if (refused_.begins(elsewhere, now))
        print(Level::warning,
              "***WARN(StreamObs): station %d states another place, the stream is not its own!\n",
              id);
}

void Contradictions::position(int type, const Vector3& stated, std::string_view station,
                              const Vector3& configured, Instant now) {
    const double apartM = distance(stated, configured);
    if (position_.begins(!(apartM <= kSamePlaceM), now))
        print(Level::warning,
              "***WARN(StreamObs): %d says X = %.4f, Y = %.4f, Z = %.4f, %.*s is configured at "
              "X = %.4f, Y = %.4f, Z = %.4f, distance(%.1f)!\n",
              type, stated[0], stated[1], stated[2], static_cast<int>(station.size()),
              station.data(), configured[0], configured[1], configured[2], apartM);
}

void Contradictions::ephemeris(std::string_view satellite, GTime stated, GTime clock, Instant now) {
    static_assert(kSystemLetters == kSystemCount);
    const std::size_t system = satellite.empty() ? kSystemCount : systemIndex(satellite.front());
    if (system >= kSystemCount)
        return;
    if (contains("GJ", satellite.substr(0, 1)))
        stated = nearestCycle(stated, clock);
    const bool otherWeek = !weekOfClock(time2gpst(stated).week, time2gpst(clock));
    if (ephemerides_[system].begins(otherWeek, now))
        print(Level::warning, "***WARN(StreamObs): %.*s eph is of %s, the clock says %s!\n",
              static_cast<int>(satellite.size()), satellite.data(), DateText(stated).text.data(),
              DateText(clock).text.data());
}

void Contradictions::channel(int slot, int stated, int configured, Instant now) {
    if (slot < 1 || slot > kGlonassSlots || !validChannel(stated) || !validChannel(configured))
        return;
    if (channels_[static_cast<std::size_t>(slot - 1)].begins(stated != configured, now))
        print(Level::warning,
              "***WARN(StreamObs): R%02d has channel %d in session.obj, %d in the stream!\n", slot,
              configured, stated);
}
