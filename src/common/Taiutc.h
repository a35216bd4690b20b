#pragma once

/// Taiutc: TAI - UTC from the leap-second file that the tables name ("leapsc"). Each line between
/// "+leap sec" and "-leap sec" holds the MJD from which a value is valid, and the value in s.

/// Reads the file into `taiutc`; ends the process when it cannot be opened.
void Taiutc_m_rdUtcFile();
/// TAI - UTC at an MJD, s; reads the file anew, so that an update of it is seen. 0 exactly on an
/// entry's day; ends the process before the first and after the last entry.
int Taiutc_m_getTaiutc(int mjd);
