#include "gnss/GTime.h"

#include "gnss/Clock.h"
#include "gnss/Leaps.h"

#include <algorithm>
#include <cmath>

namespace {

// Seconds from 1970 to 1980-01-06 and to 2006-01-01.
constexpr std::int64_t kGpsEpoch = 315964800;
constexpr std::int64_t kBdtEpoch = 1136073600;

constexpr std::array<int, 12> kDayOfYearStart{1,   32,  60,  91,  121, 152,
                                              182, 213, 244, 274, 305, 335};

/// Days of the 48 months of the four-year cycle that starts in 1970; its third year is leap.
constexpr std::array<int, 48> kMonthDays{
    31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31,
    31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

GTime fromWeek(std::int64_t origin, int week, double sow) {
    if (!(sow >= -1e9 && sow <= 1e9))
        sow = 0.0;
    const double whole = std::floor(sow);
    return {origin + std::int64_t{604800} * week + static_cast<std::int64_t>(whole), sow - whole};
}

WeekTime toWeek(std::int64_t origin, GTime t) {
    const std::int64_t seconds = t.time - origin;
    const std::int64_t week = seconds / 604800;
    return {static_cast<int>(week), static_cast<double>(seconds - 604800 * week) + t.sec};
}

} // namespace

GTime epoch2time(const CalendarTime& calendar) {
    const int year = static_cast<int>(calendar[0]);
    const int month = static_cast<int>(calendar[1]);
    const int day = static_cast<int>(calendar[2]);
    if (year < 1970 || year > 2099 || month < 1 || month > 12)
        return {};
    const int leapDay = year % 4 == 0 && month >= 3 ? 1 : 0;
    const int days = (year - 1970) * 365 + (year - 1969) / 4 +
                     kDayOfYearStart[static_cast<std::size_t>(month - 1)] + day - 2 + leapDay;
    const double whole = std::floor(calendar[5]);
    const double secondOfDay = 3600.0 * calendar[3] + 60.0 * calendar[4] + whole;
    return {std::int64_t{86400} * days + static_cast<std::int64_t>(secondOfDay),
            calendar[5] - whole};
}

CalendarTime time2epoch(GTime t) {
    const auto days = static_cast<int>(t.time / 86400);
    const auto secondOfDay = static_cast<int>(t.time - std::int64_t{86400} * days);
    int day = days % 1461;
    std::size_t month = 0;
    while (month < kMonthDays.size() - 1 && day >= kMonthDays[month])
        day -= kMonthDays[month++];
    const int year = 1970 + days / 1461 * 4 + static_cast<int>(month) / 12;
    const int hour = secondOfDay / 3600;
    const int minute = secondOfDay % 3600 / 60;
    return {
        static_cast<double>(year), static_cast<double>(month % 12 + 1), day + 1.0,
        static_cast<double>(hour), static_cast<double>(minute),         secondOfDay % 60 + t.sec};
}

GTime gpst2time(int week, double sow) {
    return fromWeek(kGpsEpoch, week, sow);
}
WeekTime time2gpst(GTime t) {
    return toWeek(kGpsEpoch, t);
}
GTime bdt2time(int week, double sow) {
    return fromWeek(kBdtEpoch, week, sow);
}
WeekTime time2bdt(GTime t) {
    return toWeek(kBdtEpoch, t);
}

GTime timeadd(GTime t, double seconds) {
    const double sum = t.sec + seconds;
    const double whole = std::floor(sum);
    return {t.time + static_cast<std::int64_t>(whole), sum - whole};
}

double timediff(GTime a, GTime b) {
    return static_cast<double>(a.time - b.time) + a.sec - b.sec;
}

int adjgpsweek(int week) {
    const int now = std::max(time2gpst(utc2gpst(utcNow())).week, 1560);
    return week + (now - week + 1) / 1024 * 1024;
}

int adjbdtweek(int week) {
    const int now = std::max(time2bdt(utc2gpst(utcNow())).week, 1);
    return week + (now - week + 512) / 1024 * 1024;
}
