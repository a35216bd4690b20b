#include "gnss/ComTime.h"

#include "base/ComText.h"
#include "base/Print.h"
#include "gnss/GTime.h"
#include "gnss/Taiutc.h"

#include <array>
#include <cmath>
#include <cstddef>

namespace {

constexpr std::array<int, 12> kDaysBeforeMonth{0,   31,  59,  90,  120, 151,
                                               181, 212, 243, 273, 304, 334};
constexpr std::array<int, 12> kMonthLength{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

bool leapYear(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

} // namespace

int yr2year(int year) {
    return year;
}

bool validDate(int year, int month, int day) {
    return year >= 0 && month >= 0 && day >= 0 && month <= 12 && day <= 366 &&
           (month == 0 || day <= 31);
}

int md_julday(int year, int month, int day) {
    if (!validDate(year, month, day))
        fatal("iyear = %d,imonth = %d,iday = %d,incorrect argument", year, month, day);
    const int y = month < 3 ? year - 1 : year;
    // 365 takes the year as given, not y: the leap terms alone count from March.
    const int mjd = 365 * year - 678941 + y / 4 - y / 100 + y / 400 + day;
    return month == 0 ? mjd : mjd + kDaysBeforeMonth[static_cast<std::size_t>(month - 1)];
}

MonthDay yeardoy2monthday(int year, int doy) {
    int day = doy;
    for (std::size_t m = 0; m < kMonthLength.size(); ++m) {
        const int length = kMonthLength[m] + (m == 1 && leapYear(year) ? 1 : 0);
        if (day <= length)
            return {static_cast<int>(m) + 1, day};
        day -= length;
    }
    return {};
}

WeekTime mjd2wksow(int mjd, double sod) {
    const int week = static_cast<int>((mjd + sod / kSecondsPerDay - kGpsEpochMjd) / 7.0);
    return {week, (mjd - kGpsEpochMjd - 7 * week) * kSecondsPerDay + sod};
}

MjdTime wksow2mjd(int week, double sow) {
    return {static_cast<int>(sow / kSecondsPerDay) + 7 * week + kGpsEpochMjd,
            std::fmod(sow, kSecondsPerDay)};
}

YearDoy mjd2doy(int mjd) {
    // The estimate lies one or two years ahead; so does the first day of year, which is why it
    // misses its +1 and the loop makes up for it.
    int year = (mjd + 678940) / 365;
    int doy = mjd - md_julday(year, 1, 1);
    while (doy <= 0 && year > 0) {
        --year;
        doy = mjd - md_julday(year, 1, 1) + 1;
    }
    return {year, doy};
}

DateTime mjd2date(int mjd, double sod) {
    const YearDoy date = mjd2doy(mjd);
    const MonthDay md = yeardoy2monthday(date.year, date.doy);
    const int hour = static_cast<int>(sod / 3600.0);
    const int minute = static_cast<int>((sod - 3600.0 * hour) / 60.0);
    return {date.year, md.month, md.day, hour, minute, sod - 3600.0 * hour - 60.0 * minute};
}

std::int64_t mjd2time(int mjd, double sod) {
    const DateTime d = mjd2date(mjd, sod);
    return epoch2time(
               {1.0 * d.year, 1.0 * d.month, 1.0 * d.day, 1.0 * d.hour, 1.0 * d.minute, d.second})
        .time;
}

MjdTime time2mjd(std::int64_t seconds) {
    const CalendarTime c = time2epoch({seconds, 0.0});
    return {md_julday(static_cast<int>(c[0]), static_cast<int>(c[1]), static_cast<int>(c[2])),
            3600.0 * c[3] + 60.0 * c[4] + c[5]};
}

GTime gtimeOf(MjdTime t) {
    return timeadd({mjd2time(t.mjd, 0.0), 0.0}, t.sod);
}

WeekDay gpsweek(int year, int month, int day) {
    int mjd = day;
    if (year != 0)
        mjd = month == 0 ? day + md_julday(year, 1, 1) - 1 : md_julday(year, month, day);
    const int week = (mjd - kGpsEpochMjd) / 7;
    return {week, mjd - kGpsEpochMjd - 7 * week};
}

MjdTime timinc(int mjd, double sod, double delta) {
    double s = sod + delta;
    const int days = static_cast<int>(s / kSecondsPerDay);
    int day = mjd + days;
    s -= kSecondsPerDay * days;
    if (s < 0.0) {
        day -= 1;
        s += kSecondsPerDay;
    }
    return {day, s};
}

void brdtime(char system, int& mjd, double& sod, LeapSeconds& leaps) {
    double offset = 0.0;
    if (system == 'B' || system == 'C')
        offset = kBdtOffset;
    else if (system == 'R')
        offset = Taiutc_m_getTaiutc(leaps, mjd) - kTaiMinusGps;
    else
        return;
    const MjdTime moved = timinc(mjd, sod, offset);
    mjd = moved.mjd;
    sod = moved.sod;
}

int genAode(char system, int mjd, int iode, double sod, double t2, LeapSeconds& leaps) {
    switch (system) {
    case 'G':
    case 'J':
    case 'E':
        return iode;
    case 'R': {
        // Quarter of the hour of the Moscow day.
        const MjdTime utc = timinc(mjd, sod, kTaiMinusGps - Taiutc_m_getTaiutc(leaps, mjd));
        return NINT(std::fmod(utc.sod + kMoscowOffset, kSecondsPerDay) / 900.0);
    }
    case 'C':
        return NINT(std::fmod(t2, kSecondsPerDay) / 450.0);
    default:
        return -1;
    }
}
