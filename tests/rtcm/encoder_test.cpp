#include "session.h"

#include "reference/msm.h"

namespace {

using ref::Bytes;

/// The frame that a state's encoder built.
ref::Frame encoded(RtcmState& state, int type, int sync = 0) {
    EXPECT_EQ(gen_rtcm3(state, type, 0, sync), 1) << type;
    const Bytes bytes(state.buff.begin(), state.buff.begin() + state.nbyte);
    const auto frames = ref::goodFrames(bytes);
    EXPECT_EQ(frames.size(), 1U);
    EXPECT_EQ(frames.at(0).bytes.size(), bytes.size());
    return frames.at(0);
}

/// Adds a satellite; signal k has the given code, range and phase.
ObsRecord& add(RtcmState& state, const std::string& name,
               const std::vector<std::pair<const char*, double>>& signals, int channel = 0) {
    ObsRecord& record = state.obs.data.at(static_cast<std::size_t>(state.obs.n++));
    record = {};
    record.sat = static_cast<std::uint8_t>(satid2no(name));
    for (std::size_t k = 0; k < signals.size(); ++k) {
        record.code[k] = obs2code(signals[k].first);
        record.P[k] = signals[k].second;
        record.L[k] = (signals[k].second + 3.25) *
                      ref::frequencyHz(name[0], signals[k].first, channel) / ref::kLightSpeed;
        record.SNR[k] = static_cast<std::uint16_t>(40000 + 1000 * k);
    }
    return record;
}

std::unique_ptr<RtcmState> newEpoch() {
    auto state = newState();
    state->staid = 4095;
    state->time = gpst2time(2009, 430650.25);
    return state;
}

} // namespace

TEST(Encode1005, WritesTheWorkedExampleOfTheStandardWithItsOwnIndicators) {
    // RTCM 10403: station 2003 at 1114104.5999, -4850729.7108, 3975521.4643, GPS alone.
    Bytes expected{0x3E, 0xD7, 0xD3, 0x02, 0x02, 0x98, 0x0E, 0xDE, 0xEF, 0x34,
                   0xB4, 0xBD, 0x62, 0xAC, 0x09, 0x41, 0x98, 0x6F, 0x33};
    expected[3] |= 0x01; // GLONASS indicator, bit 31
    expected[9] |= 0x80; // single oscillator, bit 72
    const auto state = newState();
    state->staid = 2003;
    state->sta.pos = {1114104.5999, -4850729.7108, 3975521.4643};
    EXPECT_EQ(encoded(*state, 1005).body, expected);
    EXPECT_EQ(state->nbit, 176);
    EXPECT_EQ(state->nmsg3[5], 1U);
}

TEST(Encode1033, CutsItsTextsTo31Characters) {
    const auto state = newState();
    state->staid = 4095;
    const std::string longText(40, 'a');
    longText.copy(state->sta.antdes.data(), 40);
    std::string("SER").copy(state->sta.antsno.data(), 3);
    std::string("TYPE").copy(state->sta.rectype.data(), 4);
    std::string("VERS1").copy(state->sta.recver.data(), 5);
    std::string("KRV VRS").copy(state->sta.recsno.data(), 7);
    state->sta.antsetup = 200;
    const ref::Text1033 t = ref::read1033(encoded(*state, 1033).body);
    EXPECT_EQ(t.station, 4095);
    EXPECT_EQ(t.antenna, longText.substr(0, 31));
    EXPECT_EQ(t.setup, 200);
    EXPECT_EQ(t.antennaSerial, "SER");
    EXPECT_EQ(t.receiver, "TYPE");
    EXPECT_EQ(t.firmware, "VERS1");
    EXPECT_EQ(t.receiverSerial, "KRV VRS");
}

TEST(EncodeMsm4, CarriesEverySystemsCells) {
    configure({});
    struct Case {
        int type;
        const char* satellite;
        const char* first;
        const char* second;
        std::uint32_t epoch;
    };
    // 2018-07-12 23:37:12.25 UTC is 430650.25 s of the GPS week; BDT is 14 s behind; Moscow is
    // 3 h ahead of UTC, so there it is Friday (5), 02:37:12.25.
    for (const Case& c :
         {Case{1074, "G32", "1C", "2W", 430650250},
          Case{1084, "R03", "1C", "2P", 5U << 27 | 9432250U},
          Case{1094, "E36", "1X", "7X", 430650250}, Case{1114, "J03", "1C", "2X", 430650250},
          Case{1124, "C63", "2I", "7I", 430636250}}) {
        const auto state = newEpoch();
        state->nav.glo_fcn[2] = 5 + 8;
        add(*state, c.satellite, {{c.first, 21234567.891}, {c.second, 21234560.123}}, 5);
        add(*state, "S20", {{"1C", 38000000.0}});
        state->obs.data[0].LLI[1] = 2;
        const ref::Msm m = ref::readMsm(encoded(*state, c.type, 1).body);
        EXPECT_EQ(m.type, c.type);
        EXPECT_EQ(m.station, 4095);
        EXPECT_EQ(m.epochField, c.epoch) << c.type;
        EXPECT_TRUE(m.more);
        ASSERT_EQ(m.cells.size(), 2U) << c.type;
        for (std::size_t k = 0; k < 2; ++k) {
            EXPECT_EQ(m.cells[k].sat, c.satellite);
            EXPECT_EQ(m.cells[k].signal, k == 0 ? c.first : c.second);
            const double rangeM = k == 0 ? 21234567.891 : 21234560.123;
            EXPECT_NEAR(m.cells[k].pseudorangeM.value(), rangeM, 0.0090);
            EXPECT_NEAR(m.cells[k].phaseRangeM.value(), rangeM + 3.25, 0.00029);
            EXPECT_EQ(m.cells[k].lock, 0);
            EXPECT_EQ(m.cells[k].half, k == 1);
            EXPECT_EQ(m.cells[k].cnr, k == 0 ? 40.0 : 41.0);
        }
        state->obs.n = 0;
        EXPECT_TRUE(ref::readMsm(encoded(*state, c.type).body).sats.empty());
        EXPECT_EQ(state->nmsg3[static_cast<std::size_t>(c.type - 1000)], 2U);
    }
    EXPECT_EQ(gen_rtcm3(*newEpoch(), 1073, 0, 0), 0);
    EXPECT_EQ(gen_rtcm3(*newEpoch(), 1013, 0, 0), 0);
}

TEST(EncodeMsm4, MarksWhatItCannotCarry) {
    configure({});
    auto state = newEpoch();
    // No pseudorange, no phase, and too far from the first signal's range.
    ObsRecord& none = add(*state, "G01", {{"1C", 22000000.0}, {"2W", 22000000.0}});
    none.P[1] = 0.0;
    none.L[0] = 0.0;
    add(*state, "G02", {{"1C", 22000000.0}, {"2W", 22000300.0}});
    add(*state, "G03", {{"1C", 76447100.0}});
    add(*state, "R05", {{"1C", 22000000.0}});                     // no channel known
    add(*state, "C20", {{"1P", 22000000.0}, {"5P", 22000000.0}}); // no signals of the message
    const auto cells = ref::readMsm(encoded(*state, 1074).body).cells;
    ASSERT_EQ(cells.size(), 5U);
    EXPECT_TRUE(cells[0].pseudorangeM && !cells[0].phaseRangeM);
    EXPECT_TRUE(!cells[1].pseudorangeM && cells[1].phaseRangeM);
    EXPECT_TRUE(cells[2].pseudorangeM && !cells[3].pseudorangeM && cells[3].phaseRangeM);
    EXPECT_TRUE(!cells[4].pseudorangeM && !cells[4].phaseRangeM);
    const auto glonass = ref::readMsm(encoded(*state, 1084).body).cells;
    ASSERT_EQ(glonass.size(), 1U);
    EXPECT_TRUE(glonass[0].pseudorangeM && !glonass[0].phaseRangeM);
    EXPECT_TRUE(ref::readMsm(encoded(*state, 1124).body).cells.empty());
}

TEST(EncodeMsm4, TakesAPhaseFarFromTheRangeBackByWholeCycles) {
    configure({});
    const auto state = newEpoch();
    const double wavelengthM = ref::kLightSpeed / 1575420000.0;
    ObsRecord& record = add(*state, "G07", {{"1C", 23000000.0}});
    record.L[0] += 12345678.0;
    const auto cell = ref::readMsm(encoded(*state, 1074).body).cells.at(0);
    const double cycles = (cell.phaseRangeM.value() - 23000003.25) / wavelengthM;
    EXPECT_NEAR(cycles, std::round(cycles), 0.002);
    EXPECT_LT(std::abs(cell.phaseRangeM.value() - 23000000.0), 293.0);
}

TEST(EncodeMsm4, GivesTheLastOf64CellsNoValuesAndFurtherOnesNoPlace) {
    configure({});
    const auto state = newEpoch();
    for (int prn = 1; prn <= 17; ++prn)
        add(*state, prn < 10 ? "E0" + std::to_string(prn) : "E" + std::to_string(prn),
            {{"1X", 24e6}, {"5X", 24e6 + 1}, {"7X", 24e6 + 2}, {"6X", 24e6 + 3}});
    state->obs.n = 16;
    const ref::Msm full = ref::readMsm(encoded(*state, 1094).body);
    ASSERT_EQ(full.cells.size(), 64U);
    EXPECT_TRUE(full.cells[62].pseudorangeM && full.cells[62].phaseRangeM);
    EXPECT_TRUE(!full.cells[63].pseudorangeM && !full.cells[63].phaseRangeM);
    EXPECT_EQ(full.cells[63].cnr, 0.0);
    state->obs.n = 17;
    // 17 satellites, 4 signals: 64 bits of cell mask, 64 cells.
    const ref::Frame f = encoded(*state, 1094);
    const std::size_t bits = 169 + 64 + 17 * 18 + 64 * 48;
    EXPECT_EQ(f.body.size(), (bits + 7) / 8);
}

TEST(EncodeMsm4, CountsLockTimeWhileTheStateLives) {
    configure({});
    const auto state = newEpoch();
    const std::vector<std::pair<double, int>> expected{
        {0.0, 0}, {0.031, 0}, {0.032, 1}, {1.0, 5}, {1.1, 6}, {500, 14}, {524.288, 15}, {9000, 15}};
    const GTime start = state->time;
    ObsRecord& record = add(*state, "G07", {{"1C", 23000000.0}});
    for (const auto& [seconds, indicator] : expected) {
        state->time = record.time = timeadd(start, seconds);
        record.LLI[0] = 0;
        EXPECT_EQ(ref::readMsm(encoded(*state, 1074).body).cells.at(0).lock, indicator) << seconds;
    }
    record.LLI[0] = 1;
    EXPECT_EQ(ref::readMsm(encoded(*state, 1074).body).cells.at(0).lock, 0);
}
