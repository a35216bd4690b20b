#pragma once

/// Taiutc: TAI - UTC from the leap-second file that the tables name ("leapsc"). Each line between
/// "+leap sec" and "-leap sec" holds the MJD from which a value is valid, and the value in s.
///
/// Once a table is in force, only a whole reading takes its place: an editor that writes the file
/// anew leaves it empty or cut for a moment. Nothing behind the first MiB is read. What is in force
/// also extends the built-in table of gpst2utc and utc2gpst.

#include "gnss/GTime.h"
#include "gnss/Leaps.h"

#include <array>
#include <cstddef>
#include <span>
#include <string>

/// From this many days before its end the table is told to end soon.
inline constexpr int kLeapTableEndsSoonDays = 60;

/// Room for every leap second since 1972 and a good many to come; rows beyond it are not read.
struct LeapTable {
    std::array<LeapEntry, 128> entries;
    std::size_t count = 0;
    int passedOver = 0; // line of the first row that is none; 0 = no such row
    bool ended = false; // "-leap sec" was there

    std::span<const LeapEntry> rows() const { return std::span(entries).first(count); }
};

/// What comes of the end of the table, which matters where GLONASS is configured: it ends the
/// service, or its last value stays in force.
enum class LeapEnd { doesNot, endsService, lastValueStays };

/// The file of one path, and what was said of it.
struct LeapSeconds {
    std::string path;
    bool read = false;    // `table` is in force
    bool regular = false; // so was the file that it came from
    LeapTable table;
    bool told = false; // that a later reading was not whole
    int lookedDay = 0; // MJD of the last daily look
    LeapEnd end = LeapEnd::endsService;
};

/// Reads the file; false where there is no table, because it never could be opened. A reading that
/// is not whole is told once, until the next whole one.
bool Taiutc_m_load(LeapSeconds& leaps);
/// Reads the file once a day, for streams without GLONASS ephemerides.
void Taiutc_m_lookDaily(LeapSeconds& leaps, GTime utc);
/// Reads the file; ends the process where there is no table.
void Taiutc_m_rdUtcFile(LeapSeconds& leaps);
/// TAI - UTC at an MJD, s; reads the file anew, so that an update of it is seen. 0 exactly on an
/// entry's day; ends the process before the first entry and after the last one, where that does not
/// stay in force.
int Taiutc_m_getTaiutc(LeapSeconds& leaps, int mjd);
