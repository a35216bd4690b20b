/// GPS time and UTC, by the leap seconds of IERS Bulletin C. UTC is counted in s since 1980-01-06,
/// each day as 86400; a leap second counts to the day that it ends.
#pragma once

#include "geometry.h"

namespace ref {

/// From an MJD of UTC on, TAI - UTC, s.
struct LeapSecond {
    int mjd, taiMinusUtcS;
};
/// From 1999 on; the last one holds on.
constexpr LeapSecond kLeapSeconds[] = {{51179, 32}, {53736, 33}, {54832, 34},
                                       {56109, 35}, {57204, 36}, {57754, 37}};
constexpr int kMjdOfGpsStart = 44244; // 1980-01-06

/// GPS time - UTC, s.
double leapS(GpsTime t);
double utcOf(GpsTime t);
GpsTime gpsTimeOf(double utcS);

} // namespace ref
