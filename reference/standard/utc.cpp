#include "utc.h"

namespace ref {

namespace {

constexpr double kDayS = 86400.0;

/// GPS time - UTC from the day of a leap second on.
int leapFrom(const LeapSecond& l) {
    constexpr int taiMinusGpsS = 19;
    return l.taiMinusUtcS - taiMinusGpsS;
}

double utcDayOf(const LeapSecond& l) {
    return (l.mjd - kMjdOfGpsStart) * kDayS;
}

/// Of the last leap second that has come.
template <class Came> double lastLeap(const Came& came) {
    int leap = leapFrom(kLeapSeconds[0]);
    for (const LeapSecond& l : kLeapSeconds)
        if (came(l))
            leap = leapFrom(l);
    return leap;
}

} // namespace

double leapS(GpsTime t) {
    const double totalS = t - GpsTime{};
    return lastLeap([&](const LeapSecond& l) { return totalS >= utcDayOf(l) + leapFrom(l); });
}

double utcOf(GpsTime t) {
    return t - GpsTime{} - leapS(t);
}

GpsTime gpsTimeOf(double utcS) {
    return GpsTime{} + (utcS + lastLeap([&](const LeapSecond& l) { return utcS >= utcDayOf(l); }));
}

} // namespace ref
