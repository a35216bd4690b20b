#include "rtcm/decode.h"
#include "rtcm/layouts/EphemerisMessages.h"

#include "common/Clock.h"
#include "common/Print.h"

#include <cmath>

namespace {

template <class Wire, class Layout>
bool readWire(const RtcmState& s, const Layout& layout, int type, Wire& wire) {
    BitReader in = messageOf(s);
    layout(in, wire);
    if (!in.ok())
        trace(2, "rtcm3 %d length error: len=%d\n", type, s.len);
    return in.ok();
}

/// Everything of a record that needs no time.
EphRecord recordOf(const WireEph& w, int sat) {
    EphRecord r;
    r.sat = sat;
    r.iode = w.iode;
    r.iodc = w.iodc;
    r.sva = w.sva;
    r.svh = w.svh;
    r.code = w.code;
    r.flag = w.flag;
    r.A = w.sqrtA * w.sqrtA;
    r.e = w.e;
    r.i0 = w.i0 * kSemicircle;
    r.OMG0 = w.OMG0 * kSemicircle;
    r.omg = w.omg * kSemicircle;
    r.M0 = w.M0 * kSemicircle;
    r.deln = w.deln * kSemicircle;
    r.OMGd = w.OMGd * kSemicircle;
    r.idot = w.idot * kSemicircle;
    r.crc = w.crc;
    r.crs = w.crs;
    r.cuc = w.cuc;
    r.cus = w.cus;
    r.cic = w.cic;
    r.cis = w.cis;
    r.toes = w.toe;
    r.fit = w.longFit ? 6.0 : 4.0; // IS-GPS-200 20.3.4.4: the shortest of the longer ones
    r.f0 = w.f0;
    r.f1 = w.f1;
    r.f2 = w.f2;
    r.tgd[0] = w.tgd;
    r.tgd[1] = w.tgd2;
    return r;
}

/// Places toe and toc in the week of toe, which is moved by one where that brings toe to within
/// half a week of `time`: strictly earlier than -302400 s, or +302400 s and later (deliberate).
void resolveWeek(RtcmState& s, EphRecord& r, int week, double toc) {
    needTime(s);
    r.stated = gpst2time(week, r.toes);
    const double ahead = timediff(r.stated, s.time);
    if (ahead < -kHalfWeek)
        ++week;
    else if (ahead >= kHalfWeek)
        --week;
    r.week = week;
    r.toe = gpst2time(week, r.toes);
    r.toc = gpst2time(week, toc);
    r.ttr = s.time;
}

/// Stores a record, unless its issue of data is the one that is held.
int store(RtcmState& s, const EphRecord& r) {
    EphRecord& held = s.nav.eph[static_cast<std::size_t>(r.sat - 1)];
    if (held.sat == r.sat && held.iode == r.iode && !hasOption(s, "-EPHALL"))
        return kNothing;
    held = r;
    s.touch(r.sat);
    s.ephsat = r.sat;
    return kEphemeris;
}

/// Satellite of a message, 0 with a trace where there is none.
int satelliteOf(unsigned system, int prn, int type) {
    const int sat = satno(system, prn);
    if (sat == 0)
        trace(2, "rtcm3 %d satellite number error: prn=%d\n", type, prn);
    return sat;
}

/// A message of the GPS pattern: read, name the satellite, widen and resolve the week, store.
/// `week` widens the broadcast week, `adjust` sets what the system says differently.
template <class Layout, class Week, class Adjust>
int decodeGpsPattern(RtcmState& s, const Layout& layout, int type, unsigned system, int prnOfZero,
                     Week week, Adjust adjust) {
    WireEph w;
    if (!readWire(s, layout, type, w))
        return kMalformed;
    const int sat = satelliteOf(system, w.id + prnOfZero, type);
    if (sat == 0)
        return kMalformed;
    EphRecord r = recordOf(w, sat);
    adjust(w, r);
    resolveWeek(s, r, week(w.week), w.toc);
    return store(s, r);
}

void asRead(const WireEph&, EphRecord&) {}

/// Galileo counts its weeks from GPS week 1024.
int galileoWeek(int week) {
    return week + 1024;
}

/// Health and data sources of Galileo as bits of the RINEX 3 navigation record: E1-B from bit 0,
/// E5a from bit 3, E5b from bit 6, each validity then two bits of health.
void fnavBits(const WireEph& w, EphRecord& r) {
    r.svh = w.svh << 4 | w.valid << 3;
    r.code = 1 << 1 | 1 << 8; // F/NAV of E5a; clock for E5a and E1
}
void inavBits(const WireEph& w, EphRecord& r) {
    r.svh = w.svh << 7 | w.valid << 6 | w.health2 << 1 | w.valid2;
    r.code = 1 << 0 | 1 << 2 | 1 << 9; // I/NAV of E1-B and E5b; clock for E5b and E1
}

} // namespace

int decode_type1019(RtcmState& s) {
    return decodeGpsPattern(s, layout1019, 1019, kGps, 0, adjgpsweek, asRead);
}

int decode_type1044(RtcmState& s) {
    return decodeGpsPattern(s, layout1044, 1044, kQzss, 192, adjgpsweek, asRead);
}

int decode_type1045(RtcmState& s) {
    if (hasOption(s, "-GALINAV"))
        return kNothing;
    return decodeGpsPattern(s, layout1045, 1045, kGalileo, 0, galileoWeek, fnavBits);
}

int decode_type1046(RtcmState& s) {
    if (hasOption(s, "-GALFNAV"))
        return kNothing;
    return decodeGpsPattern(s, layout1046, 1046, kGalileo, 0, galileoWeek, inavBits);
}

int decode_type1042(RtcmState& s) {
    WireEph w;
    if (!readWire(s, layout1042, 1042, w))
        return kMalformed;
    const int sat = satelliteOf(kBds, w.id, 1042);
    if (sat == 0)
        return kMalformed;
    EphRecord r = recordOf(w, sat);
    needTime(s);
    r.week = adjbdtweek(w.week);
    r.toe = r.stated = timeadd(bdt2time(r.week, w.toe), kBdtOffset);
    r.toc = timeadd(bdt2time(r.week, w.toc), kBdtOffset);
    r.ttr = s.time;
    return store(s, r);
}

/// IRNSS satellites have no numbers, so every one of its ephemerides ends here.
int decode_type1041(RtcmState& s) {
    int id = 0;
    BitReader in = messageOf(s);
    in.fixed(12, 1041);
    in.u(6, id); // DF516
    return satelliteOf(kIrnss, id, 1041) == 0 ? kMalformed : kNothing;
}

int decode_type1020(RtcmState& s) {
    WireGlonass w;
    if (!readWire(s, layout1020, 1020, w))
        return kMalformed;
    const int sat = satelliteOf(kGlonass, w.slot, 1020);
    if (sat == 0)
        return kMalformed;
    constexpr double moscow = 10800.0; // s ahead of UTC
    needTime(s);
    const WeekTime utc = time2gpst(gpst2utc(s.time));
    const double reference = std::fmod(utc.sow, kSecondsPerDay);
    const double day = utc.sow - reference;
    const auto gpst = [&](double tod) {
        return utc2gpst(gpst2time(utc.week, day + nearestDay(tod - moscow, reference)));
    };

    GloEphRecord r;
    r.sat = sat;
    r.iode = w.tb & 0x7F;
    r.frq = w.channel - 7;
    r.svh = w.health;
    r.sva = w.accuracy;
    r.age = w.age;
    r.tof = gpst(w.tkHours * 3600.0 + w.tkMinutes * 60.0 + w.tkHalf * 30.0);
    r.toe = gpst(w.tb * 900.0);
    // A stream can move `time` from message to message; no ephemeris is that far from the clock.
    if (std::fabs(timediff(r.toe, utc2gpst(utcNow()))) > kSecondsPerWeek) {
        trace(2, "rtcm3 1020 epoch time error: prn=%d\n", w.slot);
        return kMalformed;
    }
    for (std::size_t i = 0; i < 3; ++i) {
        r.pos[i] = w.posKm[i] * 1000.0;
        r.vel[i] = w.velKmps[i] * 1000.0;
        r.acc[i] = w.accKmps2[i] * 1000.0;
    }
    r.taun = w.taun;
    r.gamn = w.gamn;
    r.dtaun = w.dtaun;

    learnChannel(s, w.slot, r.frq);
    GloEphRecord& held = s.nav.geph[static_cast<std::size_t>(w.slot - 1)];
    if (held.sat == sat && std::fabs(timediff(held.toe, r.toe)) < 1.0 && held.svh == r.svh &&
        !hasOption(s, "-EPHALL"))
        return kNothing;
    held = r;
    s.touch(sat);
    s.ephsat = sat;
    return kEphemeris;
}
