#include "gnss/Leaps.h"
#include "rtcm/layouts/EphemerisMessages.h"
#include "session.h"

#include <cmath>

namespace {

using ref::Bytes;
using ref::frame;

/// One record against the independent reading of the same message.
void expectSame(const EphRecord& r, const ref::Kepler& k) {
    EXPECT_EQ(r.iode, k.iode);
    EXPECT_EQ(r.iodc, k.system == 'E' ? 0 : k.iodc);
    EXPECT_EQ(r.sva, k.ura);
    const std::vector<std::pair<double, double>> values{{r.toes, k.toe},
                                                        {r.f0, k.af0},
                                                        {r.f1, k.af1},
                                                        {r.f2, k.af2},
                                                        {std::sqrt(r.A), k.sqrtA},
                                                        {r.e, k.e},
                                                        {r.i0, k.i0},
                                                        {r.OMG0, k.node},
                                                        {r.omg, k.perigee},
                                                        {r.M0, k.m0},
                                                        {r.deln, k.deltaN},
                                                        {r.OMGd, k.nodeDot},
                                                        {r.idot, k.idot},
                                                        {r.crc, k.crc},
                                                        {r.crs, k.crs},
                                                        {r.cuc, k.cuc},
                                                        {r.cus, k.cus},
                                                        {r.cic, k.cic},
                                                        {r.cis, k.cis},
                                                        {r.tgd[0], k.tgd[0]},
                                                        {r.tgd[1], k.tgd[1]}};
    for (std::size_t i = 0; i < values.size(); ++i)
        EXPECT_NEAR(values[i].first, values[i].second, 1e-14 * std::abs(values[i].second)) << i;
    const double toc = k.system == 'C' ? time2bdt(timeadd(r.toc, -14.0)).sow : time2gpst(r.toc).sow;
    EXPECT_EQ(toc, k.toc);
    const double toe = k.system == 'C' ? time2bdt(timeadd(r.toe, -14.0)).sow : time2gpst(r.toe).sow;
    EXPECT_EQ(toe, k.toe);
}

void expectSame(const GloEphRecord& r, const ref::Glonass& g) {
    EXPECT_EQ(r.frq, g.channel);
    EXPECT_EQ(r.iode, g.tb);
    EXPECT_EQ(r.svh, g.bn);
    EXPECT_EQ(r.age, g.en);
    EXPECT_EQ(r.taun, g.taun);
    EXPECT_EQ(r.gamn, g.gamn);
    EXPECT_EQ(r.dtaun, g.dtaun);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(r.pos[i], g.pos[i] * 1e3, 1e-8);
        EXPECT_NEAR(r.vel[i], g.vel[i] * 1e3, 1e-11);
        EXPECT_NEAR(r.acc[i], g.acc[i] * 1e3, 1e-14);
    }
    // tb counts quarter hours of the Moscow day.
    const double tod = std::fmod(time2gpst(gpst2utc(r.toe)).sow + 10800.0, 86400.0);
    EXPECT_NEAR(tod, g.tb * 900.0, 1e-6);
}

/// The record of a message that was stored, against the independent reading.
void expectHeld(const RtcmState& state, const ref::Frame& f) {
    const std::string name = satno2id(state.ephsat);
    SCOPED_TRACE(name);
    if (f.type == 1020) {
        const ref::Glonass g = ref::readGlonass(f.body);
        EXPECT_EQ(name, ref::satName('R', g.slot));
        expectSame(state.nav.geph.at(static_cast<std::size_t>(g.slot - 1)), g);
    } else {
        const ref::Kepler k = ref::readKepler(f.body);
        EXPECT_EQ(name, ref::satName(k.system, k.id));
        expectSame(state.nav.eph.at(static_cast<std::size_t>(state.ephsat - 1)), k);
    }
}

/// The messages that may follow one: another issue of data; of GLONASS another time, then another
/// health at the same time.
std::vector<Bytes> newer(const ref::Frame& f) {
    if (f.type != 1020) {
        ref::Kepler k = ref::readKepler(f.body);
        k.iode = (k.iode + 1) % 32; // AODE has five bits
        k.m0 = -k.m0;
        return {frame(ref::writeKepler(k))};
    }
    ref::Glonass later = ref::readGlonass(f.body);
    later.tb += 1;
    later.pos = -1.0 * later.pos;
    ref::Glonass ill = later;
    ill.bn ^= 1;
    return {frame(ref::writeGlonass(later)), frame(ref::writeGlonass(ill))};
}

/// Decodes every good ephemeris frame of a stream and compares; the number compared.
int compareAll(const Bytes& stream) {
    const auto state = newState();
    int compared = 0;
    for (const ref::Frame& f : ref::goodFrames(stream)) {
        const bool kepler = f.type == 1019 || (f.type >= 1042 && f.type <= 1046);
        if (!kepler && f.type != 1020)
            continue;
        init_rtcm(*state);
        EXPECT_EQ(feed(*state, f.bytes), std::vector<int>{kEphemeris}) << f.type;
        expectHeld(*state, f);
        ++compared;
    }
    return compared;
}

/// A GPS ephemeris whose toe lies the given seconds from the clock.
EphRecord gpsAt(double ahead, ref::GpsTime now) {
    const FixedClock clock(now);
    const ref::GpsTime toe = now + ahead;
    ref::Kepler k;
    k.type = 1019;
    k.id = 7;
    // As broadcast: the week of the clock, whatever the week of toe.
    k.week = now.week % 1024;
    k.toe = k.toc = std::round(toe.sow / 16) * 16;
    k.sqrtA = 5153.6;
    const auto state = newState();
    EXPECT_EQ(feed(*state, frame(ref::writeKepler(k))), std::vector<int>{kEphemeris});
    return state->nav.eph[6];
}

} // namespace

TEST(Ephemerides, OfEverySystemAreReadAsTheStandardSays) {
    const FixedClock clock(ref::GpsTime{2009, 430650});
    ref::Sky sky(kSite);
    Bytes stream;
    for (const Bytes& f : sky.ephemerisFrames({2009, 430650}))
        stream.insert(stream.end(), f.begin(), f.end());
    EXPECT_GT(compareAll(stream), 100);
}

TEST(Ephemerides, OfRecordedStreamsAreReadAsTheStandardSays) {
    struct Case {
        const char* file;
        CalendarTime clock;
        int count;
    };
    for (const Case& c : {Case{"str24-msm4.rtcm3", {2018, 7, 12, 23, 37, 11}, 719},
                          Case{"bds-eph.rtcm3", {2018, 8, 12, 0, 0, 0}, 96},
                          Case{"gal-eph.rtcm3", {2018, 8, 12, 0, 0, 0}, 188},
                          Case{"glo-eph.rtcm3", {2018, 8, 12, 0, 0, 0}, 94}}) {
        CAPTURE_OR_SKIP(stream, c.file);
        const FixedClock clock(c.clock);
        EXPECT_EQ(compareAll(stream), c.count) << c.file;
    }
}

TEST(Ephemerides, ArePlacedInTheWeekNearestToTheClock) {
    const ref::GpsTime now{2009, 302400};
    EXPECT_EQ(gpsAt(0, now).week, 2009);
    EXPECT_EQ(gpsAt(-302400, now).week, 2009); // not strictly earlier
    EXPECT_EQ(gpsAt(302400 - 16, now).week, 2009);
    // 4 days after the clock in its own week belongs to the week before, 4 days before to the next.
    EXPECT_EQ(gpsAt(345600, {2009, 86400}).week, 2008);
    EXPECT_EQ(gpsAt(-345600, {2009, 518400}).week, 2010);
    EXPECT_EQ(gpsAt(302400, {2009, 86400}).week, 2008); // exactly half a week ahead
    const EphRecord r = gpsAt(-345600, {2009, 518400});
    EXPECT_EQ(time2gpst(r.toe).week, 2010);
    EXPECT_EQ(time2gpst(r.toc).week, 2010);
}

// Weeks as broadcast: modulo 1024 (1019, 1044), of Galileo, which began with GPS week 1024, of BDT,
// which began with GPS week 1356 and is 14 s behind.
TEST(Ephemerides, KeepTheirWeekAcrossTheRollOversOfTheGpsWeek) {
    const struct {
        ref::GpsTime clock;
        int type, week;
        double toe;
        ref::GpsTime toeGps;
    } cases[] = {// 6 April 2019, and 20 November 2038: both 23:59:41 UTC.
                 {{2047, 604799}, 1019, 0, 7200, {2048, 7200}},
                 {{2047, 604799}, 1019, 1023, 597600, {2047, 597600}},
                 {{2048, 1}, 1044, 1023, 597600, {2047, 597600}},
                 {{2047, 604799}, 1045, 1024, 7200, {2048, 7200}},
                 {{2047, 604799}, 1042, 692, 7200, {2048, 7214}},
                 {{3071, 604799}, 1019, 0, 7200, {3072, 7200}},
                 {{3072, 1}, 1044, 1023, 597600, {3071, 597600}},
                 {{3071, 604799}, 1046, 2048, 7200, {3072, 7200}},
                 {{3071, 604799}, 1042, 1716, 7200, {3072, 7214}},
                 // The week in which 32-bit times end.
                 {{3028, 184465}, 1019, 3028 - 2048, 187200, {3028, 187200}},
                 {{3028, 184465}, 1042, 3028 - 1356, 187200, {3028, 187214}}};
    for (const auto& c : cases) {
        const FixedClock clock(c.clock);
        ref::Kepler k;
        k.type = c.type;
        k.system = std::map<int, char>{
            {1019, 'G'}, {1042, 'C'}, {1044, 'J'}, {1045, 'E'}, {1046, 'E'}}[c.type];
        k.id = 2;
        k.week = c.week;
        k.toe = k.toc = c.toe;
        k.sqrtA = 5153.6;
        const auto state = newState();
        EXPECT_EQ(feed(*state, frame(ref::writeKepler(k))), std::vector<int>{kEphemeris});
        const auto sat = static_cast<std::size_t>(satid2no(ref::satName(k.system, 2)));
        const EphRecord& r = state->nav.eph.at(sat - 1);
        // GPS time began 315964800 s after 1970.
        EXPECT_EQ(r.toe.time, 315964800 + 604800LL * c.toeGps.week + std::lround(c.toeGps.sow))
            << c.type << " " << c.week;
    }
}

TEST(Ephemerides, OfGlonassTakeTheDayNearestToTheClock) {
    struct Case {
        CalendarTime utc;
        int tb;
        CalendarTime toeUtc;
    };
    for (const Case& c : {Case{{2018, 7, 12, 21, 0, 1}, 0, {2018, 7, 12, 21, 0, 0}},
                          Case{{2018, 7, 12, 20, 59, 0}, 0, {2018, 7, 12, 21, 0, 0}},
                          Case{{2018, 7, 12, 0, 5, 0}, 12, {2018, 7, 12, 0, 0, 0}},
                          Case{{2018, 7, 12, 23, 50, 0}, 13, {2018, 7, 13, 0, 15, 0}},
                          // Before and after a leap second, the end of 32-bit times, of 2099.
                          Case{{2016, 12, 31, 23, 59, 59}, 11, {2016, 12, 31, 23, 45, 0}},
                          Case{{2016, 12, 31, 23, 59, 59}, 13, {2017, 1, 1, 0, 15, 0}},
                          Case{{2038, 1, 19, 3, 14, 7}, 25, {2038, 1, 19, 3, 15, 0}},
                          Case{{2099, 12, 31, 20, 59, 59}, 0, {2099, 12, 31, 21, 0, 0}}}) {
        const FixedClock clock(c.utc);
        ref::Glonass g;
        g.slot = 24;
        g.channel = 2;
        g.tb = c.tb;
        g.pos = {20000, 3000, 12000};
        const auto state = newState();
        EXPECT_EQ(feed(*state, frame(ref::writeGlonass(g))), std::vector<int>{kEphemeris});
        EXPECT_EQ(timediff(state->nav.geph[23].toe, utc2gpst(epoch2time(c.toeUtc))), 0.0) << c.tb;
        EXPECT_EQ(state->nav.glo_fcn[23], 10);
    }
}

TEST(Ephemerides, UnchangedAreNotStoredAgainUnlessAsked) {
    const FixedClock clock(ref::GpsTime{2009, 430650});
    ref::Sky sky(kSite);
    for (const Bytes& f : sky.ephemerisFrames({2009, 430650})) {
        const auto state = newState();
        EXPECT_EQ(feed(*state, f), std::vector<int>{kEphemeris});
        EXPECT_TRUE(feed(*state, f).empty());
        for (const Bytes& next : newer(ref::goodFrames(f).at(0))) {
            EXPECT_EQ(feed(*state, next), std::vector<int>{kEphemeris});
            expectHeld(*state, ref::goodFrames(next).at(0));
            EXPECT_TRUE(feed(*state, next).empty());
        }
        state->opt = "-EPHALL";
        EXPECT_EQ(feed(*state, f), std::vector<int>{kEphemeris});
        init_rtcm(*state);
        EXPECT_EQ(feed(*state, f), std::vector<int>{kEphemeris}); // the state forgot it
        init_rtcm(*state);
        const bool inav = ref::goodFrames(f).at(0).type == 1046;
        const bool fnav = ref::goodFrames(f).at(0).type == 1045;
        state->opt = "-GALINAV";
        EXPECT_EQ(feed(*state, f).empty(), fnav);
        init_rtcm(*state);
        state->opt = "-GALFNAV";
        EXPECT_EQ(feed(*state, f).empty(), inav);
    }
}

TEST(Ephemerides, OfUnknownSatellitesOrCutShortAreMalformed) {
    const FixedClock clock(ref::GpsTime{2009, 430650});
    ref::Sky sky(kSite);
    for (const Bytes& f : sky.ephemerisFrames({2009, 430650})) {
        const ref::Frame good = ref::goodFrames(f).at(0);
        const auto state = newState();
        Bytes body = good.body;
        body.pop_back();
        EXPECT_EQ(feed(*state, frame(body)), std::vector<int>{kMalformed}) << good.type;
        state->opt = "-GALINAV -GALFNAV"; // what is left out is not even looked at
        EXPECT_EQ(feed(*state, frame(body)).empty(), good.type == 1045 || good.type == 1046);
        state->opt.clear();
        body = good.body; // satellite id 0
        body[1] &= 0xF0;
        body[2] &= good.type == 1044 ? 0xFF : 0x3F;
        EXPECT_EQ(feed(*state, frame(body)), std::vector<int>{kMalformed}) << good.type;
    }
    const auto state = newState();
    EXPECT_EQ(feed(*state, frame(ref::BitString().u(12, 1041).u(6, 3).u(64, 0).u(64, 0).bytes())),
              std::vector<int>{kMalformed});
}

TEST(Ephemerides, Type63IsReadAs1042) {
    const FixedClock clock(ref::GpsTime{2009, 430650});
    ref::Sky sky(kSite);
    for (const Bytes& f : sky.ephemerisFrames({2009, 430650})) {
        ref::Frame message = ref::goodFrames(f).at(0);
        if (message.type != 1042)
            continue;
        const auto known = newState();
        feed(*known, f);
        message.body[0] = 63 >> 4;
        message.body[1] = static_cast<std::uint8_t>((63 & 15) << 4 | (message.body[1] & 15));
        const auto state = newState();
        EXPECT_EQ(feed(*state, frame(message.body)), std::vector<int>{kEphemeris});
        const auto row = static_cast<std::size_t>(known->ephsat - 1);
        EXPECT_EQ(state->nav.eph[row].M0, known->nav.eph[row].M0);
        EXPECT_EQ(timediff(state->nav.eph[row].toe, known->nav.eph[row].toe), 0.0);
    }
}
