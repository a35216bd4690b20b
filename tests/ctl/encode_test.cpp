#include "session.h"

#include "reference/standard/legacy.h"

namespace ctl::simulate {

// What the simulator sends.

using ref::Bytes;

TEST(SimulatedFrames, OfLegacyMessagesCarryTheObservations) {
    const ref::GpsTime t{2408, 86380};
    ref::Sky sky(kSite);
    sky.systems = "GR";
    sky.signals = ref::tracking("pilot"); // 2L has no place in the message
    sky.signals['R'] = {"1P", "2P"};
    const std::vector<ref::Cell> cells = sky.observe(t, false);
    for (const char system : {'G', 'R'}) {
        const ref::Msm m = ref::readLegacy(
            ref::writeLegacy(system, 3, ref::epochField(system, t), system == 'G', cells));
        EXPECT_EQ(m.more, system == 'G');
        EXPECT_EQ(m.station, 3);
        EXPECT_EQ(m.epochField,
                  system == 'G' ? 86380000U : (86380000U - 18000U + 10800000U) % 86400000U);
        std::size_t compared = 0;
        for (const ref::Cell& want : cells)
            for (const ref::Cell& got : m.cells) {
                if (got.sat != want.sat || got.signal != want.signal)
                    continue;
                ASSERT_TRUE(want.pseudorangeM && want.phaseRangeM && got.pseudorangeM &&
                            got.phaseRangeM);
                EXPECT_NEAR(*got.pseudorangeM, *want.pseudorangeM, 0.0201) << got.sat;
                EXPECT_NEAR(*got.phaseRangeM, *want.phaseRangeM, 0.000251) << got.sat;
                EXPECT_NEAR(got.cnr, want.cnr, 0.126);
                EXPECT_EQ(got.info, want.info);
                ++compared;
            }
        EXPECT_EQ(compared, m.cells.size());
        EXPECT_GT(compared, 6U);
    }
}

// Lock times against the tables of DF402, DF407 (smallest lock time of an indicator) and the
// elements of a sky that a rover would notice.
TEST(SimulatedSky, CountsLockTimeAsTheStandardDoes) {
    const struct {
        double lockS;
        int df402, df407;
    } cases[] = {{0, 0, 0},          {0.031, 0, 31},     {0.032, 1, 32},  {0.063, 1, 63},
                 {0.064, 2, 64},     {0.127, 2, 95},     {0.128, 3, 96},  {1.024, 6, 192},
                 {524.287, 14, 479}, {524.288, 15, 480}, {70000, 15, 704}};
    for (const auto& c : cases) {
        EXPECT_EQ(ref::lockIndicator(5, c.lockS), c.df402) << c.lockS;
        EXPECT_EQ(ref::lockIndicator(7, c.lockS), c.df407) << c.lockS;
    }
}

TEST(SimulatedSky, RunsOnSmoothlyFromSetToSet) {
    // Every system's change of ephemerides, a week end and the end of a GLONASS day among them.
    const std::pair<char, ref::GpsTime> changes[] = {
        {'G', {2408, 7200}},         {'G', {2409, 0}},         {'J', {2409, 0}},
        {'E', {2408, 600 * 1007.0}}, {'C', {2408, 3600 + 14}}, {'R', {2408, 75600 + 18}},
        {'R', {2409, 1818}}};
    for (const auto& [system, t] : changes) {
        ref::Constellation c;
        for (const std::string& sat : ref::Constellation::satellites(std::string(1, system))) {
            const auto before = c.broadcast(sat, t + -0.001);
            const auto after = c.broadcast(sat, t + 0.001);
            EXPECT_EQ(after.set, before.set + 1) << sat;
            EXPECT_LT(norm(after.position(t) - before.position(t)), 5) << sat << " " << t.sow;
        }
    }
}

TEST(SimulatedSky, IsMadeAnewFromItsSeed) {
    const auto stream = [](std::uint64_t seed) {
        ref::Sky sky(kSite);
        sky.seed = seed;
        sky.noise = true;
        Bytes out;
        for (int epoch = 0; epoch < 100; ++epoch)
            for (const Bytes& f : sky.epochFrames({2408, 604700.0 + 2 * epoch}, 7))
                out.insert(out.end(), f.begin(), f.end());
        return out;
    };
    const Bytes once = stream(5);
    EXPECT_EQ(once, stream(5));
    EXPECT_NE(once, stream(6));
}

TEST(SimulatedSky, HasSlipsDropOutsRisingAndSettingSatellites) {
    ref::Sky sky(kSite);
    std::map<std::string, double> lock;
    std::map<std::string, int> gaps;
    std::set<std::string> risen;
    int slips = 0;
    for (int epoch = 0; epoch < 1200; ++epoch) {
        std::map<std::string, double> now;
        for (const ref::Cell& c : sky.observe({2408, 604000.0 + 3 * epoch}, false)) {
            const std::string key = c.sat + c.signal;
            EXPECT_EQ(c.half, c.lockS < 4) << key;
            if (lock.contains(key) && c.lockS < lock[key])
                ++slips;
            if (epoch > 0 && !lock.contains(key))
                risen.insert(c.sat);
            now[key] = c.lockS;
        }
        lock = now;
    }
    EXPECT_GT(slips, 20);
    EXPECT_GT(risen.size(), 10U);
}

} // namespace ctl::simulate
