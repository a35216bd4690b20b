#include "base/Print.h"
#include "rtcm/Messages.h"
#include "rtcm/rtcm3e.h"

#include <cmath>

namespace {

/// Whether `ephsat` is a satellite of the system; its PRN.
bool namesSatellite(const RtcmState& s, System system, int& prn) {
    if (satsys(s.ephsat, &prn) == system)
        return true;
    trace(2, "rtcm3 ephemeris of another system: sat=%d\n", s.ephsat);
    return false;
}

/// The ephemeris held for `ephsat`, where it is of the system of the message. Weeks, and numbers
/// beyond their fields, are written with their low bits, which is the roll-over of the week.
bool takeHeld(const RtcmState& s, KeplerMessage& m) {
    int prn = 0;
    if (!namesSatellite(s, m.system, prn))
        return false;
    const EphRecord& r = s.nav.eph[static_cast<std::size_t>(s.ephsat - 1)];
    if (r.sat != s.ephsat)
        return false;
    static_cast<EphRecord&>(m) = r;
    m.id = prn - prnOfZero(m.system);
    m.sqrtA = std::sqrt(r.A);
    m.tocs = time2gpst(r.toc).sow;
    m.longFit = r.fit > 4.0 ? 1 : 0; // IS-GPS-200 20.3.3.4.3.1
    return true;
}

/// Galileo counts its weeks from GPS week 1024. Health is bits of the RINEX 3 navigation record:
/// E1-B from bit 0, E5a from bit 3, E5b from bit 6, each validity then two bits of health. The data
/// sources tell F/NAV (bit 1) from I/NAV (bits 0 and 2); their clocks differ, so that one is not
/// sent as the other.
bool takeGalileo(const RtcmState& s, KeplerMessage& m, int otherSources) {
    if (!takeHeld(s, m))
        return false;
    m.week -= 1024;
    if ((m.code & otherSources) == 0)
        return true;
    trace(2, "rtcm3 ephemeris of another message: sat=%d code=%d\n", m.sat, m.code);
    return false;
}

/// Moscow time of day in whole units of so many seconds.
int moscowUnits(GTime time, double unitS) {
    const double tod = std::fmod(time2gpst(moscowTime(time)).sow, kSecondsPerDay);
    return static_cast<int>(std::fmod(roundHalfUp(tod / unitS), kSecondsPerDay / unitS));
}

/// Day of the four-year interval that begins with a leap year, from 1, and number of that interval
/// from 1996 on, of a Moscow date (GLONASS ICD 4.4).
void setDate(GlonassMessage& w, GTime time) {
    const GTime moscow = moscowTime(time);
    const int interval = (static_cast<int>(time2epoch(moscow)[0]) - 1996) / 4;
    const GTime start = epoch2time({1996.0 + 4.0 * interval, 1, 1, 0, 0, 0});
    w.n4 = interval + 1;
    w.nt = static_cast<int>(timediff(moscow, start) / kSecondsPerDay) + 1;
}

/// Times as message fields.
void setTimes(GlonassMessage& w) {
    constexpr int halfMinutesOfHour = 120;
    const int tk = moscowUnits(w.tof, 30.0);
    w.tkHours = tk / halfMinutesOfHour;
    w.tkMinutes = tk % halfMinutesOfHour / 2;
    w.tkHalf = tk % 2;
    w.tb = moscowUnits(w.toe, 900.0);
    w.p2 = w.tb % 2;
    setDate(w, w.toe);
}

} // namespace

bool encode_type1019(RtcmState& s, KeplerMessage& m) {
    return takeHeld(s, m);
}
bool encode_type1044(RtcmState& s, KeplerMessage& m) {
    return takeHeld(s, m);
}

bool encode_type1045(RtcmState& s, KeplerMessage& m) {
    if (!takeGalileo(s, m, 1 << 0 | 1 << 2))
        return false;
    m.valid = m.svh >> 3;
    m.svh >>= 4;
    return true;
}
bool encode_type1046(RtcmState& s, KeplerMessage& m) {
    if (!takeGalileo(s, m, 1 << 1))
        return false;
    m.valid2 = m.svh;
    m.health2 = m.svh >> 1;
    m.valid = m.svh >> 6;
    m.svh >>= 7;
    return true;
}

bool encode_type1042(RtcmState& s, KeplerMessage& m) {
    if (!takeHeld(s, m))
        return false;
    m.tocs = time2bdt(timeadd(m.toc, -kBdtOffset)).sow;
    return true;
}

/// What a record does not carry (almanac health, P1, P3, P, P4, ln) is written as 0. The satellite
/// is called a GLONASS-M, since without that its group delay, accuracy and day would not count;
/// the additional data are called absent, for of them only the four-year interval is known.
bool encode_type1020(RtcmState& s, GlonassMessage& m) {
    if (!namesSatellite(s, m.system, m.slot))
        return false;
    const GloEphRecord& r = s.nav.geph[static_cast<std::size_t>(m.slot - 1)];
    if (r.sat != s.ephsat)
        return false;
    static_cast<GloEphRecord&>(m) = r;
    m.channel = r.frq + 7;
    m.satelliteType = 1;
    setTimes(m);
    return true;
}
