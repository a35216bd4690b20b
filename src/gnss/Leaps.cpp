#include "gnss/Leaps.h"

#include <array>
#include <cstdlib>

namespace {

// clang-format off
/// UTC minus GPS time from that UTC date on, newest first (IERS Bulletin C).
struct LeapRow { CalendarTime date; int utcMinusGps; };
constexpr std::array<LeapRow, 18> leaps{{
    {{2017, 1, 1, 0, 0, 0}, -18}, {{2015, 7, 1, 0, 0, 0}, -17}, {{2012, 7, 1, 0, 0, 0}, -16},
    {{2009, 1, 1, 0, 0, 0}, -15}, {{2006, 1, 1, 0, 0, 0}, -14}, {{1999, 1, 1, 0, 0, 0}, -13},
    {{1997, 7, 1, 0, 0, 0}, -12}, {{1996, 1, 1, 0, 0, 0}, -11}, {{1994, 7, 1, 0, 0, 0}, -10},
    {{1993, 7, 1, 0, 0, 0}, -9},  {{1992, 7, 1, 0, 0, 0}, -8},  {{1991, 1, 1, 0, 0, 0}, -7},
    {{1990, 1, 1, 0, 0, 0}, -6},  {{1988, 1, 1, 0, 0, 0}, -5},  {{1985, 7, 1, 0, 0, 0}, -4},
    {{1983, 7, 1, 0, 0, 0}, -3},  {{1982, 7, 1, 0, 0, 0}, -2},  {{1981, 7, 1, 0, 0, 0}, -1}}};
// clang-format on

/// The rows behind `leaps`, oldest first.
struct LaterRow {
    GTime from; // UTC
    int utcMinusGps;
};
struct LaterRows {
    std::array<LaterRow, 64> rows;
    std::size_t count = 0;
};
LaterRows later;

GTime startOf(int mjd) {
    constexpr int mjdOf1970 = 40587;
    return {(std::int64_t{mjd} - mjdOf1970) * 86400, 0.0};
}

/// UTC minus GPS time of the newest row that holds, s; 0 where none does.
template <class Holds> double newest(Holds holds) {
    for (std::size_t i = later.count; i-- > 0;)
        if (holds(later.rows[i].from, later.rows[i].utcMinusGps))
            return later.rows[i].utcMinusGps;
    for (const LeapRow& row : leaps)
        if (holds(epoch2time(row.date), row.utcMinusGps))
            return row.utcMinusGps;
    return 0.0;
}

} // namespace

void extendLeaps(std::span<const LeapEntry> values) {
    LaterRow last{epoch2time(leaps.front().date), leaps.front().utcMinusGps};
    later.count = 0;
    for (const LeapEntry& value : values) {
        const GTime from = startOf(value.mjd);
        // A file may hold any number.
        const std::int64_t step = kTaiMinusGps - std::int64_t{value.taiMinusUtc} - last.utcMinusGps;
        if (timediff(from, last.from) <= 0.0 || step == 0)
            continue;
        if (std::abs(step) != 1 || later.count == later.rows.size())
            return;
        last = {from, last.utcMinusGps + static_cast<int>(step)};
        later.rows[later.count++] = last;
    }
}

GTime gpst2utc(GTime t) {
    return timeadd(t, newest([&](GTime from, int utcMinusGps) {
                       return timediff(timeadd(t, utcMinusGps), from) >= 0.0;
                   }));
}

GTime utc2gpst(GTime t) {
    return timeadd(t, -newest([&](GTime from, int) { return timediff(t, from) >= 0.0; }));
}
