#include "base/Print.h"
#include "gnss/Clock.h"
#include "gnss/Leaps.h"
#include "rtcm/Messages.h"
#include "rtcm/rtcm3.h"

#include <cmath>

namespace {

/// Weeks to add to a time of ephemeris so that it comes within half a week of another time:
/// strictly earlier than -302400 s, or +302400 s and later (deliberate).
int weeksToNearest(GTime toe, GTime time) {
    const double ahead = timediff(toe, time);
    return ahead < -kHalfWeek ? 1 : ahead >= kHalfWeek ? -1 : 0;
}

/// Places toe and toc in the week of toe that is nearest to `time`.
void resolveWeek(RtcmState& s, KeplerMessage& r, int week) {
    needTime(s);
    r.stated = gpst2time(week, r.toes);
    week += weeksToNearest(r.stated, s.time);
    r.week = week;
    r.toe = gpst2time(week, r.toes);
    r.toc = gpst2time(week, r.tocs);
    r.ttr = s.time;
}

/// Stores a record, unless its issue of data is the one that is held.
int store(RtcmState& s, const EphRecord& r) {
    EphRecord& held = s.nav.eph[static_cast<std::size_t>(r.sat - 1)];
    if (held.sat == r.sat && held.iode == r.iode && !hasOption(s, "-EPHALL"))
        return kNothing;
    held = r;
    s.withEphemeris.add(r.sat);
    s.ephsat = r.sat;
    return kEphemeris;
}

/// The satellite of a message, 0 with a trace where there is none.
int satelliteOf(System system, int prn, int type) {
    const int sat = satno(system, prn);
    if (sat == 0)
        trace(2, "rtcm3 %d satellite number error: prn=%d\n", type, prn);
    return sat;
}

/// Names the satellite and derives what needs no time; false where there is no such satellite.
bool complete(KeplerMessage& m) {
    m.sat = satelliteOf(m.system, m.id + prnOfZero(m.system), m.type);
    m.A = m.sqrtA * m.sqrtA;
    m.fit = m.longFit ? 6.0 : 4.0; // IS-GPS-200 20.3.4.4: the shortest of the longer ones
    return m.sat != 0;
}

/// Galileo counts its weeks from GPS week 1024. Health and data sources are bits of the RINEX 3
/// navigation record: E1-B from bit 0, E5a from bit 3, E5b from bit 6, each validity then two bits
/// of health.
int decodeGalileo(RtcmState& s, KeplerMessage& m, int health, int sources) {
    if (!complete(m))
        return kMalformed;
    m.svh = health;
    m.code = sources;
    resolveWeek(s, m, m.week + 1024);
    return store(s, m);
}

} // namespace

int decode_type1019(RtcmState& s, KeplerMessage& m) {
    if (!complete(m))
        return kMalformed;
    resolveWeek(s, m, adjgpsweek(m.week));
    return store(s, m);
}
int decode_type1044(RtcmState& s, KeplerMessage& m) {
    return decode_type1019(s, m);
}

int decode_type1045(RtcmState& s, KeplerMessage& m) {
    // F/NAV of E5a; clock for E5a and E1
    return decodeGalileo(s, m, m.svh << 4 | m.valid << 3, 1 << 1 | 1 << 8);
}

int decode_type1046(RtcmState& s, KeplerMessage& m) {
    // I/NAV of E1-B and E5b; clock for E5b and E1
    return decodeGalileo(s, m, m.svh << 7 | m.valid << 6 | m.health2 << 1 | m.valid2,
                         1 << 0 | 1 << 2 | 1 << 9);
}

int decode_type1042(RtcmState& s, KeplerMessage& m) {
    if (!complete(m))
        return kMalformed;
    needTime(s);
    m.week = adjbdtweek(m.week);
    m.stated = timeadd(bdt2time(m.week, m.toes), kBdtOffset);
    if (s.byStandards)
        m.week += weeksToNearest(m.stated, s.time);
    m.toe = timeadd(bdt2time(m.week, m.toes), kBdtOffset);
    m.toc = timeadd(bdt2time(m.week, m.tocs), kBdtOffset);
    m.ttr = s.time;
    return store(s, m);
}

int decode_type1041(RtcmState& s) {
    int id = 0;
    BitReader in = messageOf(s);
    in.fixed(12, 1041);
    in.u(6, id); // DF516
    return satelliteOf(kIrnss, id, 1041) == 0 ? kMalformed : kNothing;
}

int decode_type1020(RtcmState& s, GlonassMessage& m) {
    m.sat = satelliteOf(m.system, m.slot, m.type);
    if (m.sat == 0)
        return kMalformed;
    needTime(s);
    const WeekTime utc = time2gpst(gpst2utc(s.time));
    const double reference = std::fmod(utc.sow, kSecondsPerDay);
    const double day = utc.sow - reference;
    const auto gpst = [&](double tod) {
        return utc2gpst(gpst2time(utc.week, day + nearestDay(tod - kMoscowOffset, reference)));
    };

    m.iode = m.tb & 0x7F;
    m.frq = m.channel - 7;
    m.tof = gpst(m.tkHours * 3600.0 + m.tkMinutes * 60.0 + m.tkHalf * 30.0);
    m.toe = gpst(m.tb * 900.0);
    // A stream can move `time` from message to message; no ephemeris is that far from the clock.
    if (std::fabs(timediff(m.toe, utc2gpst(utcNow()))) > kSecondsPerWeek) {
        trace(2, "rtcm3 1020 epoch time error: prn=%d\n", m.slot);
        return kMalformed;
    }

    learnChannel(s, m.slot, m.frq);
    GloEphRecord& held = s.nav.geph[static_cast<std::size_t>(m.slot - 1)];
    if (held.sat == m.sat && std::fabs(timediff(held.toe, m.toe)) < 1.0 && held.svh == m.svh &&
        !hasOption(s, "-EPHALL"))
        return kNothing;
    held = m;
    s.withEphemeris.add(m.sat);
    s.ephsat = m.sat;
    return kEphemeris;
}
