#pragma once

/// Taiutc: TAI - UTC from the leap-second file that the tables name ("leapsc"). Each line between
/// "+leap sec" and "-leap sec" holds the MJD from which a value is valid, and the value in s.
///
/// Once a table is in force, only a whole reading takes its place: an editor that writes the file
/// anew leaves it empty or cut for a moment. What is in force also extends the built-in table of
/// gpst2utc and utc2gpst.

#include "common/GTime.h"

#include <cstddef>
#include <span>

/// From this many days before its end the table is told to end soon.
inline constexpr int kLeapTableEndsSoonDays = 60;

struct LeapEntry {
    int mjd;
    int taiMinusUtc; // s
    int line;        // of the file
    bool stuck;      // something other than a blank or a comment follows one of the numbers
};
/// The table in force.
struct LeapFile {
    std::span<const LeapEntry> entries; // at most as many as there is room for
    int passedOver = 0;                 // line of the first row that is none; 0 = no such row
    bool ended = false;                 // "-leap sec" was there
};

/// Reads the file; false where there is no table, because it never could be opened. A reading that
/// is not whole is told once, until the next whole one.
bool Taiutc_m_load();
/// Reads the file once a day, for streams without GLONASS ephemerides, and tells an end that is
/// near where GLONASS is configured.
void Taiutc_m_lookDaily(GTime utc);
LeapFile Taiutc_m_file();
/// Reads the file into `taiutc`; ends the process where there is no table.
void Taiutc_m_rdUtcFile();
/// TAI - UTC at an MJD, s; reads the file anew, so that an update of it is seen. 0 exactly on an
/// entry's day; ends the process before the first and after the last entry.
int Taiutc_m_getTaiutc(int mjd);
