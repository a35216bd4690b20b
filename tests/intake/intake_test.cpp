#include "configured.h"

#include "gnss/Leaps.h"
#include "reference/standard/msm.h"

#include <cmath>

namespace {

using ref::Bytes;

/// What the callback got.
struct Reply {
    std::uint32_t status;
    Bytes frame;
};

class Intake : public testing::Test, protected Configured {
protected:
    void SetUp() override {
        service.intake.onrtcm = [this](std::uint32_t status, const std::uint8_t* frame,
                                       std::int32_t length) {
            replies.push_back({status, Bytes(frame, frame + length)});
        };
    }
    /// Reads the frames in one block; what was printed.
    std::string read(const std::vector<Bytes>& frames) {
        Bytes block;
        for (const Bytes& f : frames)
            block.insert(block.end(), f.begin(), f.end());
        testing::internal::CaptureStdout();
        Configured::read(block);
        return testing::internal::GetCapturedStdout();
    }
    const SlotObs& stored(const std::string& name, std::size_t k) {
        return record.stationEpochs[0].obs.at(
            static_cast<std::size_t>(pointer_string(record.satelliteNames, name)), k);
    }
    static Bytes epoch(int type, const std::vector<std::pair<const char*, double>>& signals,
                       bool more = false, int id = 3,
                       std::optional<std::uint32_t> field = std::nullopt) {
        ref::Msm m;
        m.system = std::string("GRESJCI").at(static_cast<std::size_t>((type - 1070) / 10));
        m.msm = type % 10;
        m.epochField = field.value_or(m.system == 'R' ? 5U << 27 | 9432000U : 430650000U);
        m.more = more;
        for (const auto& [signal, rangeM] : signals) {
            ref::Cell c;
            c.system = m.system;
            c.id = id;
            c.signal = signal;
            c.pseudorangeM = c.phaseRangeM = rangeM;
            c.rateMps = 100.0;
            c.cnr = 44.0;
            m.cells.push_back(c);
        }
        return ref::frame(ref::writeMsm(m));
    }

    const FixedClock clock{kNow};
    std::vector<Reply> replies;
};

const Bytes kStatedPlace = ref::frame(ref::write1005({.station = 0, .xyzM = kSite}));

} // namespace

TEST_F(Intake, LetsTheLaterSlotOverwriteTheEarlierOfOneCarrier) {
    read({epoch(1077, {{"1C", 21e6}, {"2W", 21e6 + 10}, {"2X", 21e6 + 20}, {"5Q", 21e6 + 30}})});
    EXPECT_EQ(stored("G03", 0).phaseType, obs2code("1C"));
    EXPECT_EQ(stored("G03", 1).phaseType, obs2code("2X")); // the fifth slot came after 2W
    EXPECT_EQ(stored("G03", 1).rangeType, obs2code("2X"));
    EXPECT_NEAR(stored("G03", 1).range, 21e6 + 20, 0.01);
    EXPECT_NEAR(stored("G03", 1).phase, (21e6 + 20) / 299792458.0 * 1227600000.0, 0.01);
    EXPECT_EQ(stored("G03", 1).cn0, 44.0);
    EXPECT_NEAR(stored("G03", 1).doppler, 100.0 / 299792458.0 * 1227600000.0, 0.1); // sign reversed
    EXPECT_NEAR(stored("G03", 2).range, 21e6 + 30, 0.01);
    EXPECT_EQ(record.currentMjd, 58311); // 2018-07-12
    EXPECT_NEAR(record.currentSod, 430650 - 4 * 86400, 1e-6);
}

TEST_F(Intake, DropsWhatIsNotConfigured) {
    configure(service, {"G03"}, "GPS:L1_L5");
    read({epoch(1074, {{"1C", 21e6}, {"2W", 21e6 + 10}}, true), epoch(1094, {{"1X", 23e6}})});
    EXPECT_NE(stored("G03", 0).range, 0.0);
    EXPECT_EQ(stored("G03", 1).range, 0.0);
    EXPECT_EQ(record.stationEpochs[0].obs.written().size(), 1U);
}

TEST_F(Intake, ReportsEachMessageWithItsWholeFrameAndStartsAfresh) {
    ref::Sky sky(kSite);
    const Bytes eph = sky.ephemerisFrames(kNow).at(0);
    const Bytes obs = epoch(1074, {{"1C", 21e6}});
    const std::string printed = read({kStatedPlace, eph, obs});
    EXPECT_TRUE(contains(printed, "***WARN(StreamObs): Not support antenna!\n"
                                  "***INFO(StreamObs): Got ephemeris data, 106-C01!\n"
                                  "***INFO(StreamObs): C01 eph is got!\n"
                                  "***INFO(StreamObs): Got observation data\n"))
        << printed;
    ASSERT_EQ(replies.size(), 3U);
    EXPECT_EQ(replies[0].status, 5U);
    EXPECT_EQ(replies[0].frame, kStatedPlace);
    EXPECT_EQ(replies[1].status, 2U);
    EXPECT_EQ(replies[1].frame, eph);
    EXPECT_EQ(replies[2].status, 1U);
    EXPECT_EQ(replies[2].frame, obs);
}

TEST_F(Intake, WipesThePartOfAnEpochThatAStationMessageFollows) {
    read({epoch(1074, {{"1C", 21e6}}, true), kStatedPlace, epoch(1094, {{"1X", 23e6}})});
    EXPECT_EQ(stored("G03", 0).range, 0.0);
    EXPECT_NE(stored("E03", 0).range, 0.0);
}

TEST_F(Intake, ForgetsFrameAndEpochOfALostConnection) {
    const Bytes obs = epoch(1074, {{"1C", 21e6}}, true);
    read({obs, Bytes(kStatedPlace.begin(), kStatedPlace.begin() + 9)});
    StreamObs_m_restart(service.intake);
    read({epoch(1094, {{"1X", 23e6}})});
    ASSERT_EQ(replies.size(), 1U);
    EXPECT_EQ(stored("G03", 0).range, 0.0);
    EXPECT_NE(stored("E03", 0).range, 0.0);
}

TEST_F(Intake, KeepsTheSystemsOfAnEpochTogetherAfterTheNextLeapSecond) {
    // Since the start of 2018, as the file says, GPS time is 19 s ahead of UTC, not 18 s.
    const std::string path = leapSecondFile() + "_next";
    std::ofstream(path) << "+leap sec\n 57754 37\n 58119 38\n 62502 38\n-leap sec\n";
    StreamObs_m_initial(service.intake, path);
    ref::Msm glonass;
    glonass.system = 'R';
    glonass.epochField = 9431000U; // ms of the Moscow day; a second less than in `epoch`
    ref::Cell cell;
    cell.system = 'R';
    cell.id = 7;
    cell.signal = "1C";
    cell.pseudorangeM = 21e6;
    glonass.cells = {cell};
    read({epoch(1074, {{"1C", 21e6}}, true), ref::frame(ref::writeMsm(glonass))});
    EXPECT_NE(stored("R07", 0).range, 0.0);
    EXPECT_NE(stored("G03", 0).range, 0.0);
    EXPECT_NEAR(record.currentSod, 430650 - 4 * 86400, 1e-6);
    std::remove(path.c_str());
    extendLeaps({});
}

TEST_F(Intake, TellsOfARefusedMessageAndAnswersWhatTheOthersBrought) {
    const Bytes first = epoch(1074, {{"1C", 21e6}}, true);
    const Bytes refused = epoch(1127, {{"2I", 25e6}}, false, 3, 700000000);
    const Bytes inTheMiddle = epoch(1097, {{"1X", 25e6}}, true, 3, 699999999);
    for (const bool byBytes : {false, true}) {
        replies.clear();
        record.stationEpochs[0].obs.clear();
        std::vector<Bytes> blocks{first, inTheMiddle, refused};
        std::string printed;
        if (!byBytes)
            printed = read(blocks);
        for (const Bytes& block : byBytes ? blocks : std::vector<Bytes>{})
            for (const std::uint8_t byte : block)
                printed += read({Bytes{byte}});
        EXPECT_TRUE(
            printed.ends_with("***WARN(StreamObs): message 1097 refused, epoch time 699999999!\n"
                              "***WARN(StreamObs): message 1127 refused, epoch time 700000000!\n"
                              "***INFO(StreamObs): Got observation data\n"))
            << printed;
        ASSERT_EQ(replies.size(), 1U);
        EXPECT_EQ(replies[0].status, 1U);
        EXPECT_EQ(replies[0].frame, refused);
        EXPECT_NE(stored("G03", 0).range, 0.0);
        EXPECT_EQ(record.stationEpochs[0].obs.written().size(), 1U);
        EXPECT_NEAR(record.currentSod, 430650 - 4 * 86400, 1e-6);
    }
}

TEST_F(Intake, TellsOfAnEpochThatARefusedMessageLeavesWithoutAnswer) {
    const Bytes first = epoch(1074, {{"1C", 21e6}}, true);
    const auto last = [](std::uint32_t ms) { return epoch(1097, {{"1X", 25e6}}, false, 3, ms); };
    std::string printed = read({first, cut(last(430651000), 7)});
    EXPECT_TRUE(
        printed.ends_with("***WARN(StreamObs): message 1097 refused, epoch time 430651000!\n"
                          "***WARN(StreamObs): epoch before it is not answered!\n"))
        << printed;
    printed = read({first, cut(last(430650000), 6)});
    EXPECT_TRUE(printed.ends_with("***WARN(StreamObs): message 1097 refused, too short!\n"))
        << printed;
    EXPECT_TRUE(replies.empty());
}

TEST_F(Intake, TakesFromSbasAndNavicTheEndOfAnEpochAlone) {
    // The time of day for the time of week: on Thursday it names the next Sunday.
    const auto sbas = [](bool more) {
        return epoch(1104, {{"1C", 38e6}}, more, 3, 430650000 - 4 * 86400000);
    };
    const auto navic = [](bool more) { return epoch(1134, {{"5A", 38e6}}, more, 3, 1); };
    const auto glonass = [](bool more) { return epoch(1084, {{"1C", 20e6}}, more); };
    const auto gps = [](bool more) { return epoch(1074, {{"1C", 21e6}}, more); };
    for (const auto& frames : {std::vector{sbas(true), navic(true), glonass(true), gps(false)},
                               std::vector{glonass(true), sbas(true), gps(true), navic(false)},
                               std::vector{glonass(true), gps(true), navic(true), sbas(false)}}) {
        replies.clear();
        record.stationEpochs[0].obs.clear();
        read(frames);
        EXPECT_EQ(replies.size(), 1U);
        EXPECT_NE(stored("G03", 0).range, 0.0);
        EXPECT_NE(stored("R03", 0).range, 0.0);
        EXPECT_EQ(record.currentMjd, 58311); // 2018-07-12
        EXPECT_NEAR(record.currentSod, 430650 - 4 * 86400, 1e-6);
    }
    read({sbas(false)}); // nothing else is in it
    EXPECT_EQ(record.currentMjd, 58311 + 3);
    EXPECT_NEAR(record.currentSod, 430650 - 4 * 86400, 1e-6);
}

TEST_F(Intake, StoresBdsEphemeridesInBdtAndReplacesWhole) {
    ref::Sky sky(kSite);
    std::vector<Bytes> frames = sky.ephemerisFrames(kNow);
    read(frames);
    EXPECT_EQ(replies.size(), frames.size());
    for (const Bytes& f : frames) {
        const ref::Frame message = ref::goodFrames(f).at(0);
        if (message.type == 1020)
            continue;
        const ref::Kepler k = ref::readKepler(message.body);
        const std::string name = ref::satName(k.system, k.id);
        if (name > "C58" && name < "D")
            continue; // not configured
        const int slot = map_gpseph_find(store.kepler, name);
        ASSERT_GE(slot, 0) << name;
        const GPSEPH& r = store.kepler[static_cast<std::size_t>(slot)];
        EXPECT_EQ(r.toe, k.toe) << name; // BDS: not 14 s later
        EXPECT_NEAR(std::fmod(k.toc, 86400.0), r.tocSod, 1e-9) << name;
        EXPECT_EQ(r.tocMjd, 44244 + 7 * 2009 + static_cast<int>(k.toc / 86400.0)) << name;
        EXPECT_EQ(r.week, 2009) << name;
        EXPECT_NEAR(r.sqrtA, k.sqrtA, 1e-9);
        EXPECT_EQ(r.tgd2, k.tgd[1]);
    }
    ref::Kepler next = ref::readKepler(ref::goodFrames(frames[0]).at(0).body);
    next.cuc = next.af2 = 0.0;
    next.iode += 1;
    const auto first =
        static_cast<std::size_t>(map_gpseph_find(store.kepler, ref::satName(next.system, next.id)));
    read({ref::frame(ref::writeKepler(next))});
    EXPECT_EQ(store.kepler[first].cuc, 0.0);
    EXPECT_EQ(store.kepler[first].M0, next.m0);
}

TEST_F(Intake, StoresGlonassEphemeridesInKilometres) {
    ref::Glonass g;
    g.slot = 7;
    g.channel = 5;
    g.tb = 10; // 02:30 Moscow time: 23:30 UTC
    g.tkHour = 2;
    g.tkMinute = 17;
    g.tkHalf = 1;
    g.pos = {12345.5, -2345.25, 22222.125};
    g.vel = {1.5, -2.5, 0.25};
    g.acc = {std::ldexp(3, -30), 0, 0};
    g.taun = std::ldexp(-7, -30);
    g.gamn = std::ldexp(5, -40);
    g.en = 3;
    read({ref::frame(ref::writeGlonass(g))});
    const int slot = map_glseph_find(store.glonass, "R07");
    const GLSEPH& r = store.glonass.at(static_cast<std::size_t>(slot));
    EXPECT_EQ(r.mjd, 58311);
    EXPECT_EQ(r.sod, 84600.0 + 18.0);
    EXPECT_NEAR(r.posKm[1], -2345.25, 1e-9);
    EXPECT_NEAR(r.velKmps[1], -2.5, 1e-12);
    EXPECT_NEAR(r.accKmps2[0], std::ldexp(3, -30), 1e-20);
    EXPECT_EQ(r.clockBias, std::ldexp(7, -30));
    EXPECT_EQ(r.gamma, std::ldexp(5, -40));
    EXPECT_EQ(r.ageDays, 3.0);
    EXPECT_EQ(r.channel, 5.0);
    EXPECT_NEAR(r.frameTime, 4 * 86400 + 23 * 3600 + 17 * 60 + 30, 1e-6);
    EXPECT_EQ(r.aode, 10); // quarter hours of the Moscow day
    // The channel now serves the observations, also after the decoder started afresh.
    read({epoch(1084, {{"1C", 21e6}}, false, 7)});
    EXPECT_NEAR(stored("R07", 0).phase, 21e6 / 299792458.0 * (1602e6 + 5 * 562500.0), 0.01);
    EXPECT_EQ(record.stationEpochs[0].glonassChannels[6], 13);
    EXPECT_NEAR(freqbytp(record.satellites[static_cast<std::size_t>(record.satelliteNamed("R07"))],
                         "L2", record.streamedChannels()),
                1246e6 + 5 * 437500.0, 1e-3);
}
