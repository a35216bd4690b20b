#pragma once

#include <array>
#include <cstdint>

/// GTime: the time form of the RTCM path and the scales it moves between.
/// Whole seconds since 1970-01-01 plus a fraction 0 <= sec < 1; GPS time unless a function says
/// otherwise. Scale epochs: GPS 1980-01-06, BDT 2006-01-01 (IS-GPS-200, BDS ICD).
struct GTime {
    std::int64_t time = 0;
    double sec = 0.0;

    bool operator==(const GTime&) const = default;
    /// The zero time stands for "unknown".
    bool unknown() const { return time == 0; }
};

/// Week of a scale and seconds of that week.
struct WeekTime {
    int week = 0;
    double sow = 0.0;

    bool operator==(const WeekTime&) const = default;
};

/// Year, month, day, hour, minute, second.
using CalendarTime = std::array<double, 6>;

inline constexpr double kSecondsPerDay = 86400.0;
inline constexpr double kSecondsPerWeek = 604800.0;
inline constexpr double kHalfWeek = 302400.0;
/// GPS time minus BeiDou time, s.
inline constexpr double kBdtOffset = 14.0;
/// Moscow time, of GLONASS, minus UTC, s.
inline constexpr double kMoscowOffset = 10800.0;
/// TAI minus GPS time, s.
inline constexpr int kTaiMinusGps = 19;

/// Calendar to time; years outside 1970..2099 and months outside 1..12 give time 0.
GTime epoch2time(const CalendarTime& calendar);
CalendarTime time2epoch(GTime t);

/// Seconds of week outside -1e9..1e9 count as 0.
GTime gpst2time(int week, double sow);
WeekTime time2gpst(GTime t);
GTime bdt2time(int week, double sow);
WeekTime time2bdt(GTime t);

GTime timeadd(GTime t, double seconds);
/// a - b, s.
double timediff(GTime a, GTime b);

/// Full GPS week of a 10-bit one: the latest with the same remainder that is not later than one
/// week ahead of the clock.
int adjgpsweek(int week);
/// Full BeiDou week of a 13-bit one: the nearest to the clock's, by cycles of 1024.
int adjbdtweek(int week);
