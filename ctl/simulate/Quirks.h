#pragma once

#include "reference/standard/geometry.h"

#include <array>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

/// Quirks: how some receivers in use write the time of an epoch, and two stations in one stream. A
/// service understands the first four; the complete answer all of them.

namespace ctl::simulate {

enum class Quirk {
    bdsWeek,     // BeiDou: in the first 14 s of a GPS week a negative number, in 30 unsigned bits
    weekEnd,     // the first instant of a week is 604800000 ms instead of 0
    glonassDay,  // the Moscow day goes on beyond 24 h, up to midnight of GPS time
    sbasDay,     // SBAS: the time of day instead of the time of week
    bdsGpsTime,  // BeiDou: GPS time, without the 14 s between them
    leapSecond,  // GLONASS: a leap second behind UTC
    twoStations, // another station's messages come between
};
inline constexpr std::array<std::string_view, 7> kQuirkNames{
    "bds-week",     "week-end",    "glonass-day", "sbas-day",
    "bds-gps-time", "leap-second", "two-stations"};

/// All of them, for people.
std::string quirkNames();

/// Those that a receiver has.
class Quirks {
public:
    Quirks() = default;
    /// std::invalid_argument for a name that is none.
    explicit Quirks(const std::vector<std::string>& names);

    /// The epoch field of a system's messages at a GPS time.
    std::uint32_t epochField(char system, ref::GpsTime t) const;
    bool has(Quirk q) const { return asked_.contains(q); }

private:
    std::set<Quirk> asked_;
};

} // namespace ctl::simulate
