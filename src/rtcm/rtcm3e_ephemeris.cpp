#include "rtcm/encode.h"
#include "rtcm/layouts/EphemerisMessages.h"

#include "common/Print.h"

#include <cmath>

namespace {

/// Whether `ephsat` is a satellite of the system; its PRN.
bool namesSatellite(const RtcmState& s, System system, int& prn) {
    if (satsys(s.ephsat, &prn) == system)
        return true;
    trace(2, "rtcm3 ephemeris of another system: sat=%d\n", s.ephsat);
    return false;
}

/// Everything of a message that needs no time. Weeks, and numbers beyond their fields, are written
/// with their low bits, which is the roll-over of the week.
WireEph wireOf(const EphRecord& r) {
    WireEph w;
    w.week = r.week;
    w.iode = r.iode;
    w.iodc = r.iodc;
    w.sva = r.sva;
    w.svh = r.svh;
    w.code = r.code;
    w.flag = r.flag;
    w.longFit = r.fit > 4.0 ? 1 : 0; // IS-GPS-200 20.3.3.4.3.1
    w.toe = r.toes;
    w.toc = time2gpst(r.toc).sow;
    w.f0 = r.f0;
    w.f1 = r.f1;
    w.f2 = r.f2;
    w.crs = r.crs;
    w.crc = r.crc;
    w.cuc = r.cuc;
    w.cus = r.cus;
    w.cic = r.cic;
    w.cis = r.cis;
    w.deln = r.deln / kSemicircle;
    w.M0 = r.M0 / kSemicircle;
    w.OMG0 = r.OMG0 / kSemicircle;
    w.i0 = r.i0 / kSemicircle;
    w.omg = r.omg / kSemicircle;
    w.OMGd = r.OMGd / kSemicircle;
    w.idot = r.idot / kSemicircle;
    w.e = r.e;
    w.sqrtA = std::sqrt(r.A);
    w.tgd = r.tgd[0];
    w.tgd2 = r.tgd[1];
    return w;
}

/// The ephemeris held for `ephsat` as a message of the system. `adjust` sets what the system says
/// differently, and refuses a record that is not for this message.
template <class Layout, class Adjust>
int encodeKepler(RtcmState& s, const Layout& layout, System system, int prnOfZero, Adjust adjust) {
    int prn = 0;
    if (!namesSatellite(s, system, prn))
        return 0;
    const EphRecord& r = s.nav.eph[static_cast<std::size_t>(s.ephsat - 1)];
    if (r.sat != s.ephsat)
        return 0;
    WireEph w = wireOf(r);
    w.id = prn - prnOfZero;
    if (!adjust(r, w)) {
        trace(2, "rtcm3 ephemeris of another message: sat=%d code=%d\n", r.sat, r.code);
        return 0;
    }
    return writeMessage(s, layout, w);
}

bool asHeld(const EphRecord&, WireEph&) {
    return true;
}

bool bdsTimes(const EphRecord& r, WireEph& w) {
    w.toc = time2bdt(timeadd(r.toc, -kBdtOffset)).sow;
    return true;
}

/// Health as bits of the RINEX 3 navigation record: E1-B from bit 0, E5a from bit 3, E5b from
/// bit 6, each validity then two bits of health. The data sources tell F/NAV (bit 1) from I/NAV
/// (bits 0 and 2); their clocks differ, so that one is not sent as the other.
bool fnavFields(const EphRecord& r, WireEph& w) {
    w.week = r.week - 1024; // Galileo counts its weeks from GPS week 1024
    w.svh = r.svh >> 4;
    w.valid = r.svh >> 3;
    return (r.code & (1 << 0 | 1 << 2)) == 0;
}
bool inavFields(const EphRecord& r, WireEph& w) {
    w.week = r.week - 1024;
    w.svh = r.svh >> 7;
    w.valid = r.svh >> 6;
    w.health2 = r.svh >> 1;
    w.valid2 = r.svh;
    return (r.code & 1 << 1) == 0;
}

/// Moscow time of day in whole units of so many seconds.
int moscowUnits(GTime time, double unitS) {
    const double tod = std::fmod(time2gpst(moscowTime(time)).sow, kSecondsPerDay);
    return static_cast<int>(std::fmod(roundHalfUp(tod / unitS), kSecondsPerDay / unitS));
}

/// Day of the four-year interval that begins with a leap year, from 1, and number of that interval
/// from 1996 on, of a Moscow date (GLONASS ICD 4.4).
void setDate(WireGlonass& w, GTime time) {
    const GTime moscow = moscowTime(time);
    const int interval = (static_cast<int>(time2epoch(moscow)[0]) - 1996) / 4;
    const GTime start = epoch2time({1996.0 + 4.0 * interval, 1, 1, 0, 0, 0});
    w.n4 = interval + 1;
    w.nt = static_cast<int>(timediff(moscow, start) / kSecondsPerDay) + 1;
}

/// Times as message fields.
void setTimes(WireGlonass& w, const GloEphRecord& r) {
    constexpr int halfMinutesOfHour = 120;
    const int tk = moscowUnits(r.tof, 30.0);
    w.tkHours = tk / halfMinutesOfHour;
    w.tkMinutes = tk % halfMinutesOfHour / 2;
    w.tkHalf = tk % 2;
    w.tb = moscowUnits(r.toe, 900.0);
    w.p2 = w.tb % 2;
    setDate(w, r.toe);
}

} // namespace

int encode_type1019(RtcmState& s) {
    return encodeKepler(s, layout1019, kGps, 0, asHeld);
}
int encode_type1044(RtcmState& s) {
    return encodeKepler(s, layout1044, kQzss, 192, asHeld);
}
int encode_type1045(RtcmState& s) {
    return encodeKepler(s, layout1045, kGalileo, 0, fnavFields);
}
int encode_type1046(RtcmState& s) {
    return encodeKepler(s, layout1046, kGalileo, 0, inavFields);
}
int encode_type1042(RtcmState& s) {
    return encodeKepler(s, layout1042, kBds, 0, bdsTimes);
}
int encode_type63(RtcmState& s) {
    return encodeKepler(s, layout63, kBds, 0, bdsTimes);
}

/// What a record does not carry (almanac health, P1, P3, P, P4, ln) is written as 0. The satellite
/// is called a GLONASS-M, since without that its group delay, accuracy and day would not count;
/// the additional data are called absent, for of them only the four-year interval is known.
int encode_type1020(RtcmState& s) {
    int slot = 0;
    if (!namesSatellite(s, kGlonass, slot))
        return 0;
    const GloEphRecord& r = s.nav.geph[static_cast<std::size_t>(slot - 1)];
    if (r.sat != s.ephsat)
        return 0;
    WireGlonass w;
    w.slot = slot;
    w.channel = r.frq + 7;
    w.health = r.svh;
    w.accuracy = r.sva;
    w.age = r.age;
    w.satelliteType = 1;
    setTimes(w, r);
    for (std::size_t i = 0; i < 3; ++i) {
        w.posKm[i] = r.pos[i] / 1000.0;
        w.velKmps[i] = r.vel[i] / 1000.0;
        w.accKmps2[i] = r.acc[i] / 1000.0;
    }
    w.taun = r.taun;
    w.gamn = r.gamn;
    w.dtaun = r.dtaun;
    return writeMessage(s, layout1020, w);
}
