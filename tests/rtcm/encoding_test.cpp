#include "gnss/Leaps.h"
#include "reference/service/predict.h"
#include "reference/standard/ephemeris.h"
#include "reference/standard/kinds.h"
#include "reference/standard/legacy.h"
#include "reference/standard/msm.h"
#include "rtcm/rtcm3e.h"
#include "session.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <span>

// Messages that are decoded into records and encoded from them again.

namespace {

using ref::Bytes;
using ref::Frame;

/// The frame that the encoder makes of a state; empty where it makes none.
Bytes generated(RtcmState& state, int type, int sync = 0) {
    const bool made = gen_rtcm3(state, type, 0, sync) == 1;
    EXPECT_EQ(made, state.nbyte > 0) << type;
    return Bytes(state.buff.begin(), state.buff.begin() + state.nbyte);
}

/// A frame without what its record does not carry. 1005, 1006: the indicators are constants. 1020:
/// almanac health, P1, P3, P, ln, P4, additional data; every satellite is called a GLONASS-M. The
/// number of the four-year interval is there also without additional data, 6 for 2016 to 2019.
Bytes asCarried(const Frame& f) {
    if (f.type == 1005 || f.type == 1006) {
        ref::Station1005 s = ref::read1005(f.body);
        s.galileo = s.computed = false;
        s.gps = s.glonass = s.oneOscillator = true;
        s.quarterCycle = 0;
        return ref::frame(ref::write1005(s));
    }
    if (f.type != 1020)
        return f.bytes;
    ref::Glonass g = ref::readGlonass(f.body);
    g.almanacHealth = g.p1 = g.p3 = g.mp = g.ln3 = g.p4 = g.additional = g.na = g.ln5 = 0;
    g.tauc = g.tauGps = 0;
    g.m = 1;
    g.n4 = 6;
    return ref::frame(ref::writeGlonass(g));
}

/// Frames that came back as they were carried.
int compareFrames(const std::vector<Frame>& frames) {
    const auto state = newState();
    int compared = 0;
    for (const Frame& f : frames) {
        if (!ref::isEphemeris(f.type) && !ref::isStation(f.type))
            continue;
        init_rtcm(*state);
        EXPECT_EQ(feed(*state, f.bytes).size(), 1U) << f.type;
        EXPECT_EQ(generated(*state, f.type), asCarried(f)) << f.type << " at " << f.offset;
        ++compared;
    }
    return compared;
}

struct Compared {
    int cells = 0, without = 0; // without: a fine range of exactly 0 is not sent again
};

/// Every cell of a message written again against the one it was read from. Where lock is said to
/// be lost, an MSM takes the phase back by whole cycles.
void compareCells(const ref::Msm& was, const ref::Msm& is, Compared& count) {
    EXPECT_EQ(is.station, was.station);
    EXPECT_EQ(is.epochField, was.epochField);
    EXPECT_EQ(is.more, was.more);
    for (const ref::Cell& c : is.cells) {
        const auto w = std::find_if(was.cells.begin(), was.cells.end(), [&](const ref::Cell& x) {
            return x.sat == c.sat && x.signal == c.signal;
        });
        ASSERT_NE(w, was.cells.end()) << c.sat << c.signal;
        SCOPED_TRACE(c.sat + c.signal);
        ++count.cells;
        EXPECT_EQ(c.half, w->half);
        EXPECT_EQ(c.cnr, w->cnr);
        EXPECT_EQ(c.rateMps.has_value(), w->rateMps.has_value());
        EXPECT_NEAR(c.rateMps.value_or(0), w->rateMps.value_or(0), 1.001e-4); // D is a float
        if (w->pseudorangeM && !c.pseudorangeM)
            ++count.without;
        else
            EXPECT_NEAR(c.pseudorangeM.value_or(0), w->pseudorangeM.value_or(0), 1e-6);
        ASSERT_EQ(c.phaseRangeM.has_value(), w->phaseRangeM.has_value());
        const double wavelengthM =
            ref::kLightSpeed / ref::frequencyHz(c.system, c.signal, c.system == 'R' ? 3 : 0);
        const double changeM = c.phaseRangeM.value_or(0) - w->phaseRangeM.value_or(0);
        const bool whole = was.msm != 0 && w->lock == 0;
        EXPECT_NEAR(changeM, whole ? std::round(changeM / wavelengthM) * wavelengthM : 0.0,
                    whole ? 0.0003 : 1e-6);
    }
}

/// Every observation message of a stream by itself, with one channel for all of GLONASS where the
/// message does not say it.
Compared compareObservations(const Bytes& stream) {
    const auto state = newState();
    Compared count;
    double sow = 0.0; // GPS comes first in every epoch
    for (const Frame& f : ref::goodFrames(stream)) {
        if (!ref::isMsm(f.type) && !ref::isLegacy(f.type))
            continue;
        const auto read = ref::isMsm(f.type) ? ref::readMsm : ref::readLegacy;
        const ref::Msm was = read(f.body);
        if (was.system == 'G')
            sow = was.epochField * 0.001;
        const FixedClock clock(ref::GpsTime{2009, sow});
        init_rtcm(*state);
        state->nav.glo_fcn.fill(8 + 3);
        feed(*state, f.bytes);
        const Bytes again = generated(*state, f.type, was.more ? 1 : 0);
        const ref::Msm is = read(ref::goodFrames(again).at(0).body);
        EXPECT_EQ(is.sats, was.sats);
        std::size_t held = 0;
        for (const ObsRecord& r : std::span(state->obs.data.data(), is.sats.size()))
            held += kObsSlots - static_cast<std::size_t>(std::ranges::count(r.code, 0));
        EXPECT_EQ(is.cells.size(), held);
        compareCells(was, is, count);
    }
    return count;
}

} // namespace

TEST(RecordedMessages, ComeBackFromTheirRecordsByteForByte) {
    const struct {
        const char* file;
        CalendarTime clock;
        int frames;
    } cases[] = {{"str24-msm4.rtcm3", {2018, 7, 12, 23, 37, 11}, 1243},
                 {"antarctica-msm7.rtcm3", {2018, 1, 2, 19, 57, 47}, 19},
                 {"bds-eph.rtcm3", {2018, 8, 12, 0, 0, 0}, 96},
                 {"gal-eph.rtcm3", {2018, 8, 12, 0, 0, 0}, 188},
                 {"glo-eph.rtcm3", {2018, 8, 21, 0, 0, 0}, 94}, // its NT is 964
                 {"corsica-legacy.rtcm3", {2018, 8, 12, 0, 0, 0}, 8},
                 {"california-legacy-glo-day-rollover.rtcm3", {2018, 8, 12, 0, 0, 0}, 2},
                 {"japan-msm5.rtcm3", {2018, 8, 12, 0, 0, 0}, 42},
                 {"pittsburgh-msm4.rtcm3", {2018, 8, 12, 0, 0, 0}, 61}};
    for (const auto& c : cases) {
        CAPTURE_OR_SKIP(stream, c.file);
        const FixedClock clock(c.clock);
        EXPECT_EQ(compareFrames(ref::goodFrames(stream)), c.frames) << c.file;
    }
}

TEST(RecordedMessages, KeepTheirObservationsThroughTheRecords) {
    for (const char* file :
         {"str24-msm4.rtcm3", "pittsburgh-msm4.rtcm3", "japan-msm5.rtcm3", "antarctica-msm7.rtcm3",
          "corsica-legacy.rtcm3", "california-legacy-glo-day-rollover.rtcm3"}) {
        CAPTURE_OR_SKIP(stream, file);
        SCOPED_TRACE(file);
        const Compared count = compareObservations(stream);
        EXPECT_GT(count.cells, 100);
        EXPECT_LE(count.without, count.cells / 5000);
    }
}

TEST(EncodedEphemerides, AreThoseOfTheIndependentWriters) {
    const ref::GpsTime now = kNow;
    const FixedClock clock(now);
    const ref::Navigation nav = ref::Sky(kSite).navigation(now);
    std::vector<Frame> frames;
    const auto add = [&](const Bytes& body) {
        frames.push_back(ref::goodFrames(ref::frame(body)).at(0));
    };
    for (auto [sat, k] : nav.kepler) {
        const bool gps = k.type == 1019 || k.type == 1044;
        k.health = k.type == 1046 ? 0b101101 : k.type == 1042 ? 1 : 0b101; // each bit in its place
        k.codeL2 = gps ? 2 : 0;
        k.l2p = k.type == 1019 ? 1 : 0;
        k.fit = gps ? 1 : 0;
        add(ref::writeKepler(k));
        if (k.type == 1042) {
            k.type = 63;
            add(ref::writeKepler(k));
        }
    }
    for (auto [sat, g] : nav.glonass) {
        g.bn = 1;
        g.en = 17;
        g.ft = 9;
        g.dtaun = -3e-9;
        g.p2 = g.tb % 2;
        add(ref::writeGlonass(g));
    }
    EXPECT_GT(compareFrames(frames), 100);
}

TEST(EncodedEphemerides, OfGlonassCountTheirDayFromTheirTimes) {
    const auto state = newState();
    state->ephsat = satid2no("R02");
    const struct {
        CalendarTime tof, toe; // Moscow
        int tkHour, tkMinute, tkHalf, tb, nt, n4;
    } cases[] = {{{2018, 7, 13, 2, 37, 30}, {2018, 7, 13, 2, 45, 0}, 2, 37, 1, 11, 925, 6},
                 {{2019, 12, 31, 23, 59, 0}, {2020, 1, 1, 0, 15, 0}, 23, 59, 0, 1, 1, 7},
                 {{2023, 12, 31, 23, 30, 0}, {2023, 12, 31, 23, 45, 0}, 23, 30, 0, 95, 1461, 7},
                 {{2024, 3, 1, 0, 0, 0}, {2024, 3, 1, 0, 0, 0}, 0, 0, 0, 0, 61, 8}};
    for (const auto& c : cases) {
        const auto gps = [](const CalendarTime& moscow) {
            return utc2gpst(timeadd(epoch2time(moscow), -10800.0));
        };
        GloEphRecord& r = state->nav.geph[1];
        r.sat = state->ephsat;
        r.tof = gps(c.tof);
        r.toe = gps(c.toe);
        const ref::Glonass g =
            ref::readGlonass(ref::goodFrames(generated(*state, 1020)).at(0).body);
        EXPECT_EQ((std::array{g.tkHour, g.tkMinute, g.tkHalf, g.tb, g.nt, g.n4, g.p2}),
                  (std::array{c.tkHour, c.tkMinute, c.tkHalf, c.tb, c.nt, c.n4, c.tb % 2}));
    }
    EXPECT_EQ(state->nmsg3[20], 4U);
}

TEST(EncodedStation, IsTheOneThatWasRead) {
    const ref::Station1005 position{
        .type = 1006, .station = 77, .itrf = 14, .xyzM = kSite, .heightM = 1.2345};
    const auto antenna = [](int type) {
        return ref::BitString().u(12, type).u(12, 77).text("TRM59800.00     SCIS").u(8, 3);
    };
    std::vector<Frame> frames;
    for (const Bytes& body : {ref::write1005(position), antenna(1007).bytes(),
                              antenna(1008).text("5141354312").bytes()})
        frames.push_back(ref::goodFrames(ref::frame(body)).at(0));
    EXPECT_EQ(compareFrames(frames), 3);
}

TEST(EncodedStation, SendsBiasesOf1230ThatAreKnown) {
    const auto state = newState();
    state->staid = 77;
    state->sta.glo_cp_bias = {1.24, 0.0, -3.0, 0.02};
    const auto body = [&] { return ref::goodFrames(generated(*state, 1230)).at(0).body; };
    const auto head = [](int align, int mask) {
        return ref::BitString().u(12, 1230).u(12, 77).u(1, align).u(3, 0).u(4, mask);
    };
    EXPECT_EQ(body(), head(0, 0b1011).s(16, 62).s(16, -150).s(16, 1).bytes());
    state->sta.glo_cp_align = 1;
    EXPECT_EQ(body(), head(1, 0b1111).s(16, 62).s(16, 0).s(16, -150).s(16, 1).bytes());
}

TEST(Encoding, RefusesWhatTheStateDoesNotHold) {
    const auto state = newState();
    for (const int type : {0, 1000, 1013, 1029, 1041, 1057, 1071, 1083, 1099, 1118, 1240, 4076})
        EXPECT_TRUE(generated(*state, type).empty()) << type;
    const struct {
        int type;
        const char* satellite;
        int code; // data sources
    } cases[] = {{1020, "R05", 0}, {1019, "G05", 0},     {1042, "C05", 0},    {63, "C06", 0},
                 {1044, "J05", 0}, {1045, "E05", 0x102}, {1046, "E05", 0x205}};
    for (const auto& c : cases) {
        const int sat = satid2no(c.satellite);
        EphRecord& kepler = state->nav.eph.at(static_cast<std::size_t>(sat - 1));
        state->ephsat = sat;
        EXPECT_TRUE(generated(*state, c.type).empty()) << c.type; // none held
        kepler.sat = sat;
        state->nav.geph[4].sat = satid2no("R05");
        kepler.code = c.code;
        EXPECT_FALSE(generated(*state, c.type).empty()) << c.type;
        // the clock of F/NAV is not that of I/NAV
        EXPECT_TRUE(c.code == 0 || generated(*state, 1045 + 1046 - c.type).empty());
        for (const int wrong : {-1, 0, 208, satid2no("S20"), satid2no("G06")}) {
            state->ephsat = wrong;
            EXPECT_TRUE(generated(*state, c.type).empty()) << c.type << " of " << wrong;
        }
    }
    // Every satellite is held now; each message takes those of its system alone.
    for (const auto& c : cases)
        for (const auto& other : cases) {
            state->ephsat = satid2no(other.satellite);
            EXPECT_TRUE(c.satellite[0] == other.satellite[0] || generated(*state, c.type).empty())
                << c.type << other.satellite;
        }
    EXPECT_EQ(state->nmsg3[0], 1U); // 63
}

TEST(InputFile, GivesTheFirstStatusOfAPieceAndItsEnd) {
    Bytes bytes(5000, 0x55);
    for (const int type : {1005, 1006}) {
        const Bytes f = ref::frame(ref::write1005({.type = type, .station = 7, .xyzM = kSite}));
        bytes.insert(bytes.end(), f.begin(), f.end());
    }
    bytes.push_back(0xD3);
    std::FILE* const file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), file), bytes.size());
    std::rewind(file);
    const auto state = newState();
    for (const int status : {0, 5, 5, -2, -2}) // 4096 bytes; then each frame by itself
        EXPECT_EQ(input_rtcm3f(*state, file), status);
    EXPECT_EQ(state->nbyte, 1);
    std::fclose(file);
}
