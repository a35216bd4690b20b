#pragma once

#include "gnss/GTime.h"

#include <cstdint>

/// Com, time: calendar arithmetic on the modified Julian day (MJD, integer) and the seconds of
/// day (sod, double), the GPS week counted from MJD 44244, and broadcast-time corrections.

inline constexpr int kGpsEpochMjd = 44244;

struct MjdTime {
    int mjd = 0;
    double sod = 0.0;
};
struct MonthDay {
    int month = 0;
    int day = 0;
};
struct YearDoy {
    int year = 0;
    int doy = 0;
};
struct DateTime {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0;
    double second = 0.0;
};

/// Widens a two-digit year; this program takes years literally.
int yr2year(int year);
/// What md_julday accepts; month 0 means that day is a day of year.
bool validDate(int year, int month, int day);
/// MJD of a date; ends the process on an argument that validDate refuses.
int md_julday(int year, int month, int day);
/// Month and day of a day of year; {0, 0} beyond the year's length.
MonthDay yeardoy2monthday(int year, int doy);
/// First epoch minus second, s.
inline double timdif(int mjd1, int mjd2, double sod1, double sod2) {
    return (mjd1 - mjd2) * kSecondsPerDay + sod1 - sod2;
}
WeekTime mjd2wksow(int mjd, double sod);
MjdTime wksow2mjd(int week, double sow);
YearDoy mjd2doy(int mjd);
DateTime mjd2date(int mjd, double sod);
/// Whole seconds since 1970; 0 outside 1970..2099.
std::int64_t mjd2time(int mjd, double sod);
MjdTime time2mjd(std::int64_t seconds);
/// The same instant of the same scale.
GTime gtimeOf(MjdTime t);

struct WeekDay {
    int week = 0;
    int day = 0;
};
/// GPS week and day of week; year 0: day is an MJD, month 0: day is a day of year.
WeekDay gpsweek(int year, int month, int day);

/// The epoch moved by delta seconds, sod in [0, 86400).
MjdTime timinc(int mjd, double sod, double delta);
struct LeapSeconds; // gnss/Taiutc.h
/// A broadcast time of the system turned into GPS time, in place.
void brdtime(char system, int& mjd, double& sod, LeapSeconds& leaps);
/// Age-of-data number of an ephemeris; -1 for systems without one.
int genAode(char system, int mjd, int iode, double sod, double t2, LeapSeconds& leaps);
