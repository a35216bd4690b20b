#include "session.h"

#include "reference/service/slots.h"
#include "reference/standard/msm.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace {

using ref::BitString;
using ref::Bytes;
using ref::frame;

ref::Bytes msm(int type, std::uint32_t epochField, const std::vector<ref::Cell>& cells,
               bool more = false, int station = 1) {
    ref::Msm m;
    m.system = std::string("GRESJCI").at(static_cast<std::size_t>((type - 1070) / 10));
    m.msm = type % 10;
    m.epochField = epochField;
    m.station = station;
    m.more = more;
    m.cells = cells;
    for (ref::Cell& c : m.cells)
        c.system = m.system;
    return frame(ref::writeMsm(m));
}

ref::Cell cell(int id, const std::string& signal, double rangeM = 22e6) {
    ref::Cell c;
    c.id = id;
    c.signal = signal;
    c.pseudorangeM = rangeM;
    c.phaseRangeM = rangeM + 5.0;
    c.rateMps = 123.0;
    c.lock = 9;
    c.cnr = 41.0;
    return c;
}

/// Codes in the record's slots, such as "1C - 5Q - 2X".
std::string codes(const ObsRecord* record) {
    std::string out;
    for (std::size_t k = 0; record && k < kObsSlots; ++k)
        out += (k ? " " : "") + (record->code[k] ? std::string(code2obs(record->code[k])) : "-");
    return out;
}

/// Every cell of an independently read message against the decoder's records; cells compared.
int compare(const RtcmState& state, const ref::Msm& m) {
    int compared = 0;
    for (const ref::Cell& c : m.cells) {
        const ObsRecord* const record = recordOf(state, c.sat);
        if (!record)
            continue;
        for (std::size_t k = 0; k < kObsSlots; ++k) {
            if (!record->code[k] || code2obs(record->code[k]) != c.signal)
                continue;
            int slot = 0;
            satsys(record->sat, &slot);
            const int channel =
                c.system == 'R' ? state.nav.glo_fcn.at(static_cast<std::size_t>(slot - 1)) - 8 : 0;
            const bool phase = c.system != 'R' || channel >= -7;
            const double cyclesPerM =
                ref::frequencyHz(c.system, c.signal, channel) / ref::kLightSpeed;
            EXPECT_NEAR(record->P[k], c.pseudorangeM.value_or(0.0), 1e-6) << c.sat << c.signal;
            EXPECT_NEAR(record->L[k], phase ? c.phaseRangeM.value_or(0.0) * cyclesPerM : 0.0, 1e-6)
                << c.sat << c.signal;
            EXPECT_NEAR(static_cast<double>(record->D[k]),
                        phase ? -c.rateMps.value_or(0.0) * cyclesPerM : 0.0, 1e-3)
                << c.sat << c.signal;
            EXPECT_EQ(record->SNR[k], static_cast<int>(std::lround(c.cnr * 1000.0)));
            EXPECT_EQ(record->LLI[k], (c.lock == 0 ? 1 : 0) + (c.half ? 2 : 0));
            ++compared;
        }
    }
    return compared;
}

/// Feeds the observation messages of a stream, wiping after every epoch; cells compared.
int compareStream(const Bytes& stream) {
    const auto state = newState();
    state->nav.glo_fcn.fill(8 + 3);
    state->nav.glo_fcn[6] = 0; // unknown
    int compared = 0;
    for (const ref::Frame& f : ref::goodFrames(stream)) {
        if (f.type < 1071 || f.type > 1137 || f.type % 10 < 4)
            continue;
        const auto statuses = feed(*state, f.bytes);
        const ref::Msm m = ref::readMsm(f.body);
        EXPECT_EQ(statuses, m.more ? std::vector<int>{} : std::vector<int>{kEpoch});
        compared += compare(*state, m);
        if (!m.more)
            init_rtcm(*state);
    }
    return compared;
}

} // namespace

TEST(MsmDecoding, GivesTheValuesOfEveryFormAndSystem) {
    const FixedClock clock(kNow);
    ref::Sky sky(kSite);
    sky.signals['J'] = {"1C", "2X", "5Q", "6L"};
    for (int form = 4; form <= 7; ++form) {
        Bytes stream;
        for (const Bytes& f : sky.epochFrames(kNow, form))
            stream.insert(stream.end(), f.begin(), f.end());
        EXPECT_GT(compareStream(stream), 90) << form;
    }
    for (const char* name : {"japan-msm5.rtcm3", "antarctica-msm7.rtcm3", "str24-msm4.rtcm3"}) {
        CAPTURE_OR_SKIP(stream, name);
        EXPECT_GT(compareStream(stream), 1000) << name;
    }
}

TEST(SignalSlots, GoToTheBestPriorityAndOneOtherToTheFifth) {
    const FixedClock clock(kNow);
    struct Case {
        int type;
        std::vector<std::string> signals;
        std::string slots;
        std::string options;
    };
    for (const Case& c : std::vector<Case>{
             {1077, {"1C", "1W"}, "1C - - - 1W", ""},
             {1074, {"1C", "2W", "2X", "5X"}, "1C 2W 5X - 2X", ""},
             {1074, {"1C", "1P", "2W", "2X"}, "1C 2W - - 1P", ""}, // 2X is dropped
             {1074, {"1C", "1P"}, "1P - - - 1C", "-GL1P"},
             {1084, {"1C", "1P", "2C", "2P"}, "1C 2P - - 1P", ""}, // 2C lost its slot, too late
             {1094, {"1X", "8X", "7X", "5X", "6X"}, "1X 7X 5X 6X 8X", ""},
             {1114, {"1C", "2X", "5Q", "6S", "1X"}, "1C 2X 5Q 6S 1X", ""},
             {1124, {"2I", "1X"}, "2I - - - 1X", ""},
             {1124, {"2I", "1C", "1A"}, "2I - - - 1A", ""}, // 1A has the lower id
             {1124, {"6I", "7I", "5X"}, "- 7I 5X 6I -", ""},
             {1104, {"1C", "5I"}, "1C 5I - - -", ""}}) {
        const auto state = newState();
        state->opt = c.options;
        std::vector<ref::Cell> cells;
        for (const std::string& signal : c.signals)
            cells.push_back(cell(3, signal));
        EXPECT_EQ(feed(*state, msm(c.type, 430650000, cells)), std::vector<int>{kEpoch});
        ASSERT_EQ(state->obs.n, 1) << c.type;
        EXPECT_EQ(codes(&state->obs.data[0]), c.slots) << c.type;
    }
}

TEST(SignalSlots, HoldEveryPairOfSignalsAsTheIndependentTablesSay) {
    const FixedClock clock(kNow);
    for (const char system : std::string("GRESJC")) {
        std::vector<std::string> signals;
        for (int id = 1; id <= 32; ++id)
            if (const std::string signal = ref::signalOf(system, id);
                !signal.empty() && std::ranges::find(signals, signal) == signals.end())
                signals.push_back(signal); // BDS has 1X twice
        for (std::size_t i = 0; i < signals.size(); ++i)
            for (std::size_t j = i + 1; j < signals.size(); ++j) {
                const auto state = newState();
                feed(*state, msm(1074 + 10 * static_cast<int>(std::string("GRESJC").find(system)),
                                 430650000, {cell(3, signals[i]), cell(3, signals[j])}));
                std::string expected;
                for (const std::string& held : ref::storedSignals(system, {signals[i], signals[j]}))
                    expected += held;
                std::string held = codes(state->obs.n ? &state->obs.data[0] : nullptr);
                std::erase_if(held, [](char c) { return c == ' ' || c == '-'; });
                EXPECT_EQ(held, expected) << system << signals[i] << signals[j];
            }
    }
}

TEST(SignalSlots, HaveNoPlaceForSignalsWithoutACode) {
    const FixedClock clock(kNow);
    const auto state = newState();
    // BDS ids 20 to 25 ("7A" to "8X") and 1: only 24 and 25 have observation codes.
    BitString b;
    b.u(12, 1124).u(12, 1).u(30, 430650000).u(1, 0).u(18, 0);
    b.u(64, std::uint64_t{1} << 63).u(32, 0x80000000U | 0xFC0U << 1).u(7, 0b1111111);
    b.u(8, 75).u(10, 0);
    for (int i = 0; i < 7; ++i)
        b.s(15, 100 + i);
    for (int i = 0; i < 7; ++i)
        b.s(22, 1000);
    b.u(28, 0).u(7, 0).u(42, 0);
    EXPECT_EQ(feed(*state, frame(b.bytes())), std::vector<int>{kEpoch});
    ASSERT_EQ(state->obs.n, 1);
    EXPECT_EQ(codes(&state->obs.data[0]), "- - - - 8Q");
    EXPECT_NEAR(state->obs.data[0].P[4], (75 + 105 * std::ldexp(1.0, -24)) * 299792.458, 1e-6);
}

TEST(MsmDecoding, ReadsAnMsm7CellTypedBitByBit) {
    // GPS 5 (id 5), 2W (id 10): rough 70 ms + 512/1024, rough rate -300 m/s, fine values distinct.
    BitString b;
    b.u(12, 1077).u(12, 17).u(30, 430650500).u(1, 1).u(3, 2).u(7, 0).u(8, 0);
    b.u(64, std::uint64_t{1} << 59).u(32, 1U << 22).u(1, 1);
    b.u(8, 70).u(4, 0).u(10, 512).s(14, -300);
    b.s(20, -4321).s(24, 654321).u(10, 77).u(1, 1).u(10, 700).s(15, -1234);
    const FixedClock clock(kNow);
    const auto state = newState();
    EXPECT_TRUE(feed(*state, frame(b.bytes())).empty());
    ASSERT_EQ(state->obs.n, 1);
    const ObsRecord& r = state->obs.data[0];
    EXPECT_EQ(satno2id(r.sat), "G05");
    EXPECT_EQ(codes(&r), "- 2W - - -");
    EXPECT_NEAR(r.P[1], (70.5 - 4321 * std::ldexp(1.0, -29)) * 299792.458, 1e-6);
    EXPECT_NEAR(r.L[1], (70.5 + 654321 * std::ldexp(1.0, -31)) * 1e-3 * 1227600000.0, 1e-6);
    EXPECT_NEAR(static_cast<double>(r.D[1]), 300.1234 * 1227600000.0 / 299792458.0, 1e-3);
    EXPECT_EQ(r.SNR[1], 43750);
    EXPECT_EQ(r.LLI[1], 2);
    EXPECT_EQ(state->staid, 17);
    EXPECT_STREQ(state->msmtype[0].data(), "2W");
    EXPECT_NEAR(timediff(r.time, gpst2time(2009, 430650.5)), 0.0, 1e-9);
    EXPECT_EQ(state->nmsg3[77], 1U);
}

TEST(EpochTimes, AreResolvedAgainstTheClock) {
    struct Case {
        int type;
        std::uint32_t field;
        ref::GpsTime clock;
        ref::GpsTime epoch;
    };
    // Weeks from the day numbers: 2019-04-07 is MJD 58580, 14336 days = 2048 weeks after 44244;
    // 2017-01-01 is MJD 57754 = week 1930, day 0; 2^31 s after 1970 is 24855 days and 11648 s, so
    // MJD 65442 = week 3028, day 2; 2099-12-31 is MJD 88068 = week 6260, day 4.
    for (const Case& c : std::vector<Case>{{1074, 0, {2047, 604799}, {2048, 0}},
                                           {1074, 604799000, {3072, 1}, {3071, 604799}},
                                           {1074, 184466000, {3028, 184465}, {3028, 184466}},
                                           {1074, 431999000, {6260, 431998}, {6260, 431999}},
                                           // 02:59:59 and 03:00:00 in Moscow, the leap second of
                                           // 2016 between them.
                                           {1074, 17000, {1930, 17}, {1930, 17}},
                                           {1084, 10799000, {1930, 16}, {1930, 16}},
                                           {1084, 10799000, {1930, 18}, {1930, 16}},
                                           {1084, 10800000, {1930, 16}, {1930, 18}},
                                           {1074, 0, {2009, 604799}, {2010, 0}},
                                           {1074, 604799000, {2010, 1}, {2009, 604799}},
                                           {1124, 0, {2009, 100}, {2009, 14}},
                                           {1124, 604799000, {2010, 1}, {2010, 13}},
                                           // Moscow is 3 h ahead of UTC, UTC 18 s behind GPS time.
                                           {1084, 7U << 27, {2009, 75615}, {2009, 75618}},
                                           {1084, 86399000, {2009, 75620}, {2009, 75617}},
                                           {1012, 86399000, {2009, 75620}, {2009, 75617}},
                                           {1004, 604799000, {2010, 1}, {2009, 604799}},
                                           // Below zero, in 30 bits: 2^30 is 1073741824.
                                           {1124, 1073727824, {2009, 604799}, {2010, 0}},
                                           {1127, 1073741724, {2010, 14}, {2010, 13.9}},
                                           {1074, 1073741823, {2010, 0}, {2009, 604799.999}},
                                           {1094, 1073721824, {2009, 604780}, {2009, 604780}},
                                           {1114, 1073740824, {2010, 3}, {2009, 604799}},
                                           {1104, 1073740824, {2010, 3}, {2009, 604799}},
                                           {1004, 1073740824, {2010, 3}, {2009, 604799}},
                                           {1074, 604800000, {2009, 604799}, {2010, 0}},
                                           {1004, 604800000, {2010, 1}, {2010, 0}},
                                           {1124, 604800000, {2010, 1}, {2010, 14}},
                                           // Moscow days that go on beyond 24 h: 24:00:01, 27:00:00
                                           // and 37:16:57, nearest as 13:16:57 of the day before.
                                           {1084, 86401000, {2009, 75620}, {2009, 75619}},
                                           {1012, 97200000, {2009, 86000}, {2009, 86418}},
                                           {1012, 134217000, {2009, 75620}, {2009, 37035}}}) {
        const FixedClock clock(c.clock);
        const auto state = newState();
        if (c.type > 1070)
            feed(*state, msm(c.type, c.field, {}));
        else
            feed(*state, frame(BitString()
                                   .u(12, c.type)
                                   .u(12, 1)
                                   .u(c.type == 1012 ? 27 : 30, c.field)
                                   .u(10, 0)
                                   .bytes()));
        EXPECT_NEAR(timediff(state->time, gpst2time(c.epoch.week, c.epoch.sow)), 0.0, 1e-9)
            << c.type << " " << c.field;
    }
    const FixedClock clock(kNow);
    const auto state = newState();
    for (const auto& [type, field] : std::map<int, std::uint32_t>{
             {1074, 604800001}, {1094, 700000000}, {1104, 1073721823}, {1124, 1073721823}})
        EXPECT_EQ(feed(*state, msm(type, field, {})), std::vector<int>{kMalformed});
    state->opt = "-RT_INP";
    feed(*state, kNow.week ? frame(BitString().u(12, 1013).u(60, 0).bytes()) : Bytes{});
    EXPECT_EQ(timediff(state->time, gpst2time(2009, 430650)), 0.0);
}

TEST(Epochs, HoldWhatTheirOwnMessagesCarried) {
    const FixedClock clock(kNow);
    const auto state = newState();
    EXPECT_TRUE(feed(*state, msm(1074, 430650000, {cell(1, "1C")}, true)).empty());
    EXPECT_EQ(feed(*state, msm(1094, 430650000, {cell(2, "1X")})), std::vector<int>{kEpoch});
    EXPECT_TRUE(recordOf(*state, "G01") && recordOf(*state, "E02"));
    // Complete: the next message starts anew, even at the same time.
    EXPECT_TRUE(feed(*state, msm(1074, 430650000, {cell(3, "1C")}, true)).empty());
    EXPECT_EQ(state->obs.n, 1);
    // Unfinished and of an older time: gone, also when the new epoch brings no satellite.
    EXPECT_EQ(feed(*state, msm(1094, 430651000, {})), std::vector<int>{kEpoch});
    EXPECT_EQ(state->obs.n, 0);
    feed(*state, msm(1074, 430652000, {cell(4, "1C")}, true));
    EXPECT_EQ(feed(*state, msm(1094, 430653000, {cell(5, "1X")})), std::vector<int>{kEpoch});
    EXPECT_TRUE(!recordOf(*state, "G04") && recordOf(*state, "E05"));
    // SBAS is kept where its time is the epoch's, and makes room for other systems where not.
    for (const std::uint32_t time : {430654000U, 85054000U}) {
        feed(*state, msm(1074, 430654000, {cell(1, "1C")}, true));
        EXPECT_EQ(feed(*state, msm(1104, time, {cell(3, "1C")})), std::vector<int>{kEpoch});
        EXPECT_TRUE(recordOf(*state, "G01"));
        EXPECT_EQ(state->obs.n, time == 430654000U ? 2 : 1);
        feed(*state, msm(1104, time, {cell(3, "1C")}, true));
        EXPECT_EQ(feed(*state, msm(1074, 430654000, {cell(1, "1C")})), std::vector<int>{kEpoch});
        EXPECT_TRUE(recordOf(*state, "G01"));
        EXPECT_EQ(state->obs.n, time == 430654000U ? 2 : 1);
    }
}

TEST(Epochs, AreOfOneStation) {
    const FixedClock clock(kNow);
    const auto state = newState();
    std::uint32_t field = 430650000;
    const auto statuses = [&](int station, bool more) {
        return feed(*state, msm(1074, field, {cell(station, "1C")}, more, station));
    };
    EXPECT_EQ(statuses(1, false), std::vector<int>{kEpoch});
    field += 1000;
    EXPECT_TRUE(statuses(2, true).empty()); // between epochs another one may begin
    EXPECT_EQ(statuses(3, true), std::vector<int>{kMalformed});
    EXPECT_TRUE(statuses(3, true).empty()); // it was given up for this one
    EXPECT_EQ(statuses(3, false), std::vector<int>{kEpoch});
    EXPECT_TRUE(recordOf(*state, "G03"));
}

// RTCM 10403.x, DF402, DF407 and DF013: lock was lost where the indicator is smaller than the last
// one; 0 is a lock that has just begun.
TEST(LossOfLock, IsAnIndicatorThatIsZeroOrSmallerThanTheLast) {
    const FixedClock clock(kNow);
    const auto state = newState();
    std::uint32_t field = 430650000;
    for (const auto& [lock, lost] : {std::pair{9, 0},
                                     {9, 0},
                                     {10, 0},
                                     {9, 1},
                                     {9, 0},
                                     {0, 1},
                                     {0, 1},
                                     {1, 0},
                                     {15, 0},
                                     {14, 1}}) {
        ref::Cell c = cell(3, "1C");
        c.lock = lock;
        feed(*state, msm(1074, field += 1000, {c}));
        EXPECT_EQ(recordOf(*state, "G03")->LLI[0], lost) << field << ' ' << lock;
    }
}

TEST(MsmDecoding, RefusesMasksThatDoNotFit) {
    const FixedClock clock(kNow);
    const auto head = [](std::uint64_t satellites, std::uint32_t signals) {
        BitString b;
        b.u(12, 1074).u(12, 1).u(30, 430650000).u(1, 0).u(18, 0).u(64, satellites).u(32, signals);
        return b;
    };
    const auto state = newState();
    // 8 satellites, 9 signals.
    EXPECT_EQ(feed(*state, frame(head(0xFF, 0x1FF).u(64, 0).u(64, 0).bytes())),
              std::vector<int>{kMalformed});
    EXPECT_EQ(feed(*state, frame(head(0xFF, 0xF).u(16, 0).bytes())), std::vector<int>{kMalformed});
    EXPECT_EQ(state->obs.n, 0);
    // Satellite ids without a number are passed over, with the cells they have.
    auto cells = std::vector{cell(32, "1C"), cell(33, "1C"), cell(64, "1C")};
    EXPECT_EQ(feed(*state, msm(1074, 430650000, cells)), std::vector<int>{kEpoch});
    EXPECT_EQ(state->obs.n, 1);
    for (const int type : {1071, 1083, 1118, 1119, 1120})
        EXPECT_TRUE(feed(*state, frame(BitString().u(12, type).u(64, ~0ULL).bytes())).empty());
    EXPECT_EQ(feed(*state, msm(1134, 430650000, {})), std::vector<int>{kEpoch});
}

TEST(GlonassChannel, ComesFromConfigurationThenEphemerisThenStream) {
    const FixedClock clock(kNow);
    const auto phase = [&](RtcmState& state) {
        feed(state, msm(1084, 5U << 27 | 9432000U, {cell(5, "1C")}));
        const ObsRecord* const r = recordOf(state, "R05");
        EXPECT_NE(r->P[0], 0.0); // the range needs no channel
        return r->L[0] * 299792458.0 / (22e6 + 5.0);
    };
    auto state = newState();
    EXPECT_EQ(phase(*state), 0.0);
    state->nav.glo_fcn[4] = 8 + 2;
    EXPECT_NEAR(phase(*state), 1602e6 + 2 * 562500.0, 0.5);
    ref::Glonass g;
    g.slot = 5;
    g.channel = -3;
    feed(*state, frame(ref::writeGlonass(g)));
    state->nav.glo_fcn[4] = 0;
    EXPECT_NEAR(phase(*state), 1602e6 - 3 * 562500.0, 0.5);
    state->nav.configuredChannels[4] = 8 + 6;
    EXPECT_NEAR(phase(*state), 1602e6 + 6 * 562500.0, 0.5);
}

TEST(LegacyObservations, OfGpsAreReadFieldByField) {
    const FixedClock clock(kNow);
    BitString b;
    b.u(12, 1004).u(12, 3).u(30, 430651000).u(1, 0).u(5, 3).u(4, 0);
    // G07: L1 P code, L2 W
    b.u(6, 7).u(1, 1).u(24, 1234567).s(20, 2222).u(7, 50).u(8, 70).u(8, 180);
    b.u(2, 3).s(14, -333).s(20, -4444).u(7, 0).u(8, 150);
    // SBAS 120: no phase, no L2 range
    b.u(6, 40).u(1, 0).u(24, 7654321).s(20, -524288).u(7, 1).u(8, 125).u(8, 0);
    b.u(2, 0).s(14, -8192).s(20, -524288).u(7, 0).u(8, 0);
    b.u(6, 0).u(1, 0).u(64, 0).u(54, 0); // no satellite
    const auto state = newState();
    EXPECT_EQ(feed(*state, frame(b.bytes())), std::vector<int>{kEpoch});
    ASSERT_EQ(state->obs.n, 2);
    const ObsRecord& g = *recordOf(*state, "G07");
    const double rangeM = 1234567 * 0.02 + 70 * 299792.458;
    EXPECT_EQ(codes(&g), "1P 2W - - -");
    EXPECT_NEAR(g.P[0], rangeM, 1e-6);
    EXPECT_NEAR(g.P[1], rangeM - 6.66, 1e-6);
    EXPECT_NEAR(g.L[0], (rangeM + 1.111) * 1575420000.0 / 299792458.0, 1e-6);
    EXPECT_NEAR(g.L[1], (rangeM - 2.222) * 1227600000.0 / 299792458.0, 1e-6);
    EXPECT_EQ(g.SNR[0], 45000);
    EXPECT_EQ(g.SNR[1], 37500);
    EXPECT_EQ(g.LLI[0], 0);
    EXPECT_EQ(g.LLI[1], 1);
    const ObsRecord& s = *recordOf(*state, "120");
    EXPECT_EQ(codes(&s), "1C 2X - - -");
    EXPECT_NEAR(s.P[0], 7654321 * 0.02 + 125 * 299792.458, 1e-6);
    EXPECT_EQ(s.L[0], 0.0);
    EXPECT_EQ(s.P[1], 0.0);
}

TEST(LegacyObservations, OfGlonassTakeTheirChannelFromTheMessage) {
    const FixedClock clock(kNow);
    for (const int type : {1009, 1010, 1011, 1012}) {
        BitString b;
        b.u(12, type).u(12, 3).u(27, 9432000).u(1, 1).u(5, 2).u(4, 0);
        for (const int slot : {9, 10}) {
            // Slot 10 claims a channel that no satellite has.
            b.u(6, slot).u(1, 0).u(5, slot == 9 ? 3 : 20).u(25, 20000000).s(20, 3000).u(7, 5);
            if (type % 2 == 0)
                b.u(7, 35).u(8, 160);
            if (type >= 1011) {
                b.u(2, 1).s(14, 50).s(20, 700).u(7, 6);
                if (type == 1012)
                    b.u(8, 120);
            }
        }
        const auto state = newState();
        EXPECT_TRUE(feed(*state, frame(b.bytes())).empty()) << type;
        const ObsRecord& r = *recordOf(*state, "R09");
        const double rangeM = 20000000 * 0.02 + (type % 2 == 0 ? 35 * 599584.916 : 0.0);
        EXPECT_NEAR(r.P[0], rangeM, 1e-6) << type;
        EXPECT_NEAR(r.L[0], (rangeM + 1.5) * (1602e6 - 4 * 562500.0) / 299792458.0, 1e-5) << type;
        EXPECT_EQ(r.SNR[0], type % 2 == 0 ? 40000 : 0);
        EXPECT_EQ(codes(&r), type >= 1011 ? "1C 2P - - -" : "1C - - - -");
        if (type >= 1011) {
            EXPECT_NEAR(r.P[1], rangeM + 1.0, 1e-6);
            EXPECT_NEAR(r.L[1], (rangeM + 0.35) * (1246e6 - 4 * 437500.0) / 299792458.0, 1e-5);
        }
        EXPECT_EQ(recordOf(*state, "R10")->L[0], 0.0);
        EXPECT_EQ(state->nav.glo_fcn[8], -4 + 8);
        EXPECT_EQ(state->nav.glo_fcn[9], 0);
    }
}

TEST(LegacyObservations, UndoARollOverOfThePhaseWhileTheStateLives) {
    const FixedClock clock(kNow);
    const auto state = newState();
    const auto epoch = [&](std::uint32_t ms, int phase) {
        BitString b;
        b.u(12, 1002).u(12, 3).u(30, ms).u(1, 0).u(5, 1).u(4, 0);
        b.u(6, 7).u(1, 0).u(24, 0).s(20, phase).u(7, 50).u(8, 70).u(8, 180);
        feed(*state, frame(b.bytes()));
        return state->obs.data[0].L[0] - 70 * 299792.458 * 1575420000.0 / 299792458.0;
    };
    const double perStep = 0.0005 * 1575420000.0 / 299792458.0;
    EXPECT_NEAR(epoch(430650000, 420000), 420000 * perStep, 1e-6);
    EXPECT_NEAR(epoch(430651000, -140000), -140000 * perStep + 1500.0, 1e-6);
    EXPECT_NEAR(epoch(430652000, 400000), 400000 * perStep, 1e-6);
    init_rtcm(*state);
    EXPECT_NEAR(epoch(430653000, -140000), -140000 * perStep, 1e-6);
}

TEST(LegacyObservations, OfRecordedStreamsGiveTheStationsSatellites) {
    for (const char* name : {"corsica-legacy.rtcm3", "california-legacy-glo-day-rollover.rtcm3"}) {
        CAPTURE_OR_SKIP(stream, name);
        const auto state = newState();
        int epochs = 0;
        GTime last;
        for (const std::uint8_t byte : stream) {
            if (input_rtcm3(*state, byte) != kEpoch)
                continue;
            EXPECT_GE(state->obs.n, 10) << name;
            // Both systems resolve to one time, also across the Moscow midnight.
            if (epochs++ > 0) {
                EXPECT_NEAR(timediff(state->time, last), 1.0, 1e-6) << name;
            }
            last = state->time;
            for (int i = 0; i < state->obs.n; ++i) {
                const ObsRecord& r = state->obs.data[static_cast<std::size_t>(i)];
                EXPECT_TRUE(r.P[0] > 18e6 && r.P[0] < 45e6) << satno2id(r.sat);
            }
        }
        EXPECT_GE(epochs, 3) << name;
    }
}
