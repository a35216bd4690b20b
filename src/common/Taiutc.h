#pragma once

/// Taiutc: TAI - UTC from the leap-second file that the tables name ("leapsc"). Each line between
/// "+leap sec" and "-leap sec" holds the MJD from which a value is valid, and the value in s.

#include <cstddef>
#include <span>

struct LeapEntry {
    int mjd;
    int taiMinusUtc; // s
    int line;        // of the file
    bool stuck;      // something other than a blank or a comment follows one of the numbers
};
/// The file as it was read last.
struct LeapFile {
    std::span<const LeapEntry> entries; // at most as many as there is room for
    int passedOver = 0;                 // line of the first row that is none; 0 = no such row
    bool ended = false;                 // "-leap sec" was there
};

/// Reads the file; false where it cannot be opened.
bool Taiutc_m_load();
LeapFile Taiutc_m_file();
/// Reads the file into `taiutc`; ends the process when it cannot be opened.
void Taiutc_m_rdUtcFile();
/// TAI - UTC at an MJD, s; reads the file anew, so that an update of it is seen. 0 exactly on an
/// entry's day; ends the process before the first and after the last entry.
int Taiutc_m_getTaiutc(int mjd);
