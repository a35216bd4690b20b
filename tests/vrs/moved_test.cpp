#include "session.h"

#include "reference/standard/msm.h"
#include "vrs/MovedEpoch.h"

#include <cmath>
#include <random>

namespace {

constexpr double kMsM = 299792.458;

/// The message, of the first GPS satellites, moved by the changes, read by the other reader.
ref::Msm movedBy(const ref::Msm& m, const RangeChanges& changes) {
    const ref::Bytes frame = ref::frame(ref::writeMsm(m));
    ReceivedEpoch epoch;
    EXPECT_TRUE(
        epoch.read({.type = m.msm + 1070, .system = kGps, .staid = 1, .field = 0, .more = false},
                   ::messageOf(std::span<const std::uint8_t>(frame))));
    epoch.takeLastRead();
    ref::Msm out;
    moveEpoch(epoch, changes, [&](MsmMessage& message) {
        std::array<std::uint8_t, kMaxBody> body{};
        BitWriter writer(body);
        layoutMsm(writer, message);
        const std::size_t bytes = (writer.finish() + 7) / 8;
        out = ref::readMsm(
            ref::Bytes(body.begin(), body.begin() + static_cast<std::ptrdiff_t>(bytes)));
    });
    return out;
}

ref::Cell cellOf(int id, const char* signal, double rangeM, double phaseM, double rateMps) {
    ref::Cell c;
    c.id = id;
    c.signal = signal;
    c.pseudorangeM = rangeM;
    c.phaseRangeM = phaseM;
    c.rateMps = rateMps;
    c.lock = 9;
    c.half = id % 2 == 0;
    c.cnr = 30 + id;
    c.info = id % 16;
    return c;
}

} // namespace

TEST(MovedEpoch, MovesEveryValueToHalfAStepWhateverTheRoughOneIs) {
    std::mt19937 random(7);
    const auto within = [&](double most) {
        return std::uniform_real_distribution<double>(-most, most)(random);
    };
    const struct {
        int msm;
        double rangeStepM, phaseStepM;
    } forms[] = {{4, kMsM / 16777216, kMsM / 536870912},
                 {5, kMsM / 16777216, kMsM / 536870912},
                 {6, kMsM / 536870912, kMsM / 2147483648.0},
                 {7, kMsM / 536870912, kMsM / 2147483648.0}};
    for (const auto& form : forms) {
        const bool rates = form.msm % 2 == 1;
        for (int round = 0; round < 200; ++round) {
            ref::Msm m;
            m.msm = form.msm;
            m.system = 'G';
            RangeChanges changes{};
            for (int id = 1; id <= 6; ++id) {
                // Signals up to one step of the rough range apart, phases three; the first one at
                // the edge between two rough values.
                const double at = (70 * 1024 + id + 0.5) * kMsM / 1024 + within(0.01);
                const double apart = within(146.0);
                const double rate = 10.0 * id + 0.5 + within(1e-3);
                m.cells.push_back(cellOf(id, "1C", at, at + within(870.0), rate));
                m.cells.push_back(
                    cellOf(id, "2W", at + apart, at + within(870.0), rate + within(0.6)));
                if (id != 3)
                    changes[static_cast<std::size_t>(id)] =
                        RangeChange{within(5000.0), within(0.7)};
            }
            const ref::Msm out = movedBy(m, changes);
            ASSERT_EQ(out.cells.size(), 10U);
            const ref::Msm in = ref::readMsm(ref::writeMsm(m));
            std::size_t i = 0;
            for (const ref::Cell& before : in.cells) {
                if (before.id == 3)
                    continue;
                const ref::Cell& after = out.cells[i++];
                const RangeChange& change = *changes[static_cast<std::size_t>(before.id)];
                ASSERT_TRUE(after.pseudorangeM && after.phaseRangeM) << form.msm;
                EXPECT_NEAR(*after.pseudorangeM, *before.pseudorangeM + change.metres,
                            form.rangeStepM / 2 + 1e-6);
                EXPECT_NEAR(*after.phaseRangeM, *before.phaseRangeM + change.metres,
                            form.phaseStepM / 2 + 1e-6);
                EXPECT_EQ(after.rateMps.has_value(), rates);
                if (rates) {
                    EXPECT_NEAR(*after.rateMps, *before.rateMps + change.mps, 0.5e-4 + 1e-9);
                }
                EXPECT_TRUE(after.lock == before.lock && after.half == before.half &&
                            after.cnr == before.cnr && after.info == before.info &&
                            after.sat == before.sat && after.signal == before.signal);
            }
        }
    }
}

TEST(MovedEpoch, MarksWhatNoRoughRangeHolds) {
    // Signals nearly two steps of the rough range apart: only one of them can stay after a move.
    ref::Msm m;
    m.msm = 7;
    m.system = 'G';
    const double at = 70 * kMsM;
    m.cells = {cellOf(1, "1C", at, at, 0.0), cellOf(1, "2W", at + 292.0, at, 0.0),
               cellOf(1, "5Q", at - 292.0, at, 0.0)};
    RangeChanges changes{};
    changes[1] = RangeChange{146.0, 0.0};
    const ref::Msm out = movedBy(m, changes);
    ASSERT_EQ(out.cells.size(), 3U);
    int left = 0;
    for (std::size_t i = 0; i < 3; ++i)
        if (out.cells[i].pseudorangeM) {
            EXPECT_NEAR(*out.cells[i].pseudorangeM, *m.cells[i].pseudorangeM + 146.0, 1e-3);
            ++left;
        }
    EXPECT_GE(left, 1);
    EXPECT_TRUE(out.cells[0].phaseRangeM && out.cells[1].phaseRangeM && out.cells[2].phaseRangeM);
}

// GPS satellites 1 to 31 with two L1 and three L2 signals among them: 155 pairs, of which a message
// holds 64.
TEST(MovedEpoch, SplitsAMessageFromBeforeMsmByWhatIsKept) {
    ref::BitString b;
    b.u(12, 1004).u(12, 1).u(30, 1000).u(1, 0).u(5, 31).u(4, 0);
    for (unsigned id = 1; id <= 31; ++id) {
        b.u(6, id).u(1, id % 2).u(24, 5000000).s(20, 0).u(7, 50).u(8, 70).u(8, 160);
        b.u(2, id % 4).s(14, 250).s(20, 0).u(7, 50).u(8, 149);
    }
    const ref::Bytes frame = ref::frame(b.bytes());
    ReceivedEpoch epoch;
    ASSERT_TRUE(epoch.read({.type = 1004, .system = kGps, .staid = 1, .field = 1000, .more = false},
                           ::messageOf(std::span<const std::uint8_t>(frame))));
    epoch.takeLastRead();
    const struct {
        int every, last; // satellites that are kept: each `every`th up to `last`
        std::vector<int> satellites, signals; // of the messages
    } cases[] = {
        {1, 12, {12}, {5}},       // 60 pairs
        {1, 13, {12, 1}, {5, 2}}, // 65
        {4, 31, {7}, {2}},        // 1C with 2X: 14
        {2, 31, {15}, {3}},       // 1C with 2X and 2W: 45
        {1, 31, {12, 12, 7}, {5, 5, 5}},
    };
    for (const auto& c : cases) {
        RangeChanges changes{};
        for (int id = c.every; id <= c.last; id += c.every)
            changes[static_cast<std::size_t>(id)] = RangeChange{1000.0, 0.0};
        std::vector<int> satellites;
        std::vector<int> signals;
        double leastMs = 1e9;
        moveEpoch(epoch, changes, [&](MsmMessage& m) {
            satellites.push_back(static_cast<int>(m.satelliteCount));
            signals.push_back(static_cast<int>(m.signalCount));
            EXPECT_EQ(m.cellCount, 2 * m.satelliteCount);
            for (std::size_t i = 0; i < m.satelliteCount; ++i)
                leastMs = std::min(leastMs, m.satellites[i].roughMs());
        });
        EXPECT_EQ(satellites, c.satellites) << c.every << " " << c.last;
        EXPECT_EQ(signals, c.signals) << c.every << " " << c.last;
        EXPECT_NEAR(leastMs, 70 + (100000.0 + 1000.0) / kMsM, 0.001);
        EXPECT_EQ(countMoved(epoch, changes), static_cast<int>(c.satellites.size()));
    }
}
