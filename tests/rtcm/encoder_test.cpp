#include "reference/standard/legacy.h"
#include "rtcm/rtcm3e.h"
#include "session.h"

#include <cmath>
#include <map>
#include <tuple>

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

/// Adds a satellite; signal k has the given code and range, a phase of 3.25 m more, and a rate of
/// 345.6789 m/s and k mm/s more.
ObsRecord& add(RtcmState& state, const std::string& name,
               const std::vector<std::pair<const char*, double>>& signals, int channel = 0) {
    ObsRecord& record = state.obs.data.at(static_cast<std::size_t>(state.obs.n++));
    record = {};
    record.sat = static_cast<std::uint8_t>(satid2no(name));
    for (std::size_t k = 0; k < signals.size(); ++k) {
        record.code[k] = obs2code(signals[k].first);
        record.P[k] = signals[k].second;
        const double perM = ref::frequencyHz(name[0], signals[k].first, channel) / ref::kLightSpeed;
        record.L[k] = (signals[k].second + 3.25) * perM;
        record.D[k] = static_cast<float>(-(345.6789 + 0.001 * static_cast<double>(k)) * perM);
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

TEST(EncodeMsm, CarriesEverySystemsCellsInEveryForm) {
    struct Case {
        int type; // of MSM4
        const char* satellite;
        int id; // of the message
        const char* first;
        const char* second;
        std::uint32_t epoch;
    };
    // 2018-07-12 23:37:12.25 UTC is 430650.25 s of the GPS week; BDT is 14 s behind; Moscow is
    // 3 h ahead of UTC, so there it is Friday (5), 02:37:12.25.
    const Case cases[] = {
        {1074, "G32", 32, "1C", "2W", 430650250}, {1084, "R03", 3, "1C", "2P", 5U << 27 | 9432250U},
        {1094, "E36", 36, "1X", "7X", 430650250}, {1104, "S27", 8, "1C", "5Q", 430650250},
        {1114, "J03", 3, "1C", "2X", 430650250},  {1124, "C63", 63, "2I", "7I", 430636250}};
    // Half a step of MSM4 and 5, MSM6 and 7: m of range, m of phase, dB-Hz.
    const double halves[][3] = {{0.00894, 0.00028, 0.5}, {0.00028, 0.00007, 0.0313}};
    for (const Case& c : cases)
        for (int form = 0; form < 4; ++form) {
            SCOPED_TRACE(c.type + form);
            const auto state = newEpoch();
            state->nav.glo_fcn[2] = 5 + 8;
            ObsRecord& record =
                add(*state, c.satellite, {{c.first, 21234567.891}, {c.second, 21234560.123}}, 5);
            record.LLI[1] = 2;
            record.SNR[1] = 41030;
            add(*state, c.type == 1104 ? "G20" : "S20", {{"1C", 38000000.0}});
            const ref::Msm m = ref::readMsm(encoded(*state, c.type + form, 1).body);
            EXPECT_EQ(m.type, c.type + form);
            EXPECT_EQ(m.station, 4095);
            EXPECT_EQ(m.epochField, c.epoch);
            EXPECT_TRUE(m.more && m.exact);
            ASSERT_EQ(m.cells.size(), 2U);
            for (std::size_t k = 0; k < 2; ++k) {
                const auto& [rangeHalf, phaseHalf, cnrHalf] = halves[form / 2];
                const ref::Cell& cell = m.cells[k];
                EXPECT_EQ(cell.id, c.id);
                EXPECT_EQ(cell.signal, k == 0 ? c.first : c.second);
                const double rangeM = k == 0 ? 21234567.891 : 21234560.123;
                EXPECT_NEAR(cell.pseudorangeM.value(), rangeM, rangeHalf);
                EXPECT_NEAR(cell.phaseRangeM.value(), rangeM + 3.25, phaseHalf);
                EXPECT_EQ(cell.lock, 0);
                EXPECT_EQ(cell.half, k == 1);
                EXPECT_NEAR(cell.cnr, k == 0 ? 40.0 : 41.03, cnrHalf);
                EXPECT_EQ(cell.rateMps.has_value(), form % 2 == 1);
                const double rateMps = k == 0 ? 345.6789 : 345.6799;
                EXPECT_NEAR(cell.rateMps.value_or(rateMps), rateMps, 0.00008);
                EXPECT_EQ(cell.info, form % 2 == 1 && c.type == 1084 ? 12 : 0);
            }
            state->obs.n = 0;
            EXPECT_TRUE(ref::readMsm(encoded(*state, c.type + form).body).sats.empty());
            EXPECT_EQ(state->nmsg3[static_cast<std::size_t>(c.type + form - 1000)], 2U);
        }
}

TEST(EncodeMsm4, MarksWhatItCannotCarry) {
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

TEST(Encoders, SendWhatTheirFieldsHoldAndNothingFurther) {
    const double roughM = 75 * ref::kLightSpeed / 1000; // no fine range is left of it
    const double perM = 1575.42e6 / ref::kLightSpeed, per2M = 1227.6e6 / ref::kLightSpeed;
    for (const double sign : {1.0, -1.0}) {
        const struct {
            int type;
            double range2M, phase1M, phase2M; // beyond the range of the first signal
            bool hasRange2, keeps1, keeps2;   // phases are sent as they are
        } cases[] = {{1074, 292.69, 1170.99, 5.0, true, true, true},
                     {1074, 292.71, 1171.01, 5.0, false, false, true},
                     {1004, 163.81, 262.143, 262.143, true, true, true}, // 8191 times 0.02 m
                     {1004, 163.83, 262.145, 262.145, false, false, false}};
        for (const auto& c : cases) {
            SCOPED_TRACE(sign * c.range2M);
            const auto state = newEpoch();
            ObsRecord& record =
                add(*state, "G07", {{"1C", roughM}, {"2W", roughM + sign * c.range2M}});
            record.L[0] = (roughM + sign * c.phase1M) * perM;
            record.L[1] = (roughM + sign * c.phase2M) * per2M;
            const Bytes body = encoded(*state, c.type).body;
            const auto cells = (c.type == 1004 ? ref::readLegacy(body) : ref::readMsm(body)).cells;
            ASSERT_EQ(cells.size(), 2U);
            EXPECT_EQ(cells[1].pseudorangeM.has_value(), c.hasRange2);
            const double sentM = cells[0].pseudorangeM.value();
            const double off1 = cells[0].phaseRangeM.value_or(0.0) - sentM - sign * c.phase1M;
            const double off2 = cells[1].phaseRangeM.value_or(0.0) - sentM - sign * c.phase2M;
            EXPECT_EQ(std::abs(off1) < 0.02, c.keeps1) << off1;
            EXPECT_EQ(std::abs(off2) < 0.02, c.keeps2) << off2;
            EXPECT_NEAR(off1 * perM, std::round(off1 * perM), 0.1); // whole cycles
        }
    }
    // DF397 and DF398 hold up to 255 ms less a step of 2^-10 ms; 255 is none, with a fraction of 0.
    const double stepM = ref::kLightSpeed / 1000 / 1024;
    for (const auto& [steps, ms, fraction] :
         {std::tuple{261119, 254, 1023}, {261120, 255, 0}, {261121, 255, 0}, {262145, 255, 0}}) {
        const auto state = newEpoch();
        add(*state, "G07", {{"1C", steps * stepM + 1.0}});
        const Bytes body = encoded(*state, 1074).body;
        ref::BitSource in(body);
        for (int bits = 169 + 1; bits > 0; --bits) // head, masks
            in.u(1);
        EXPECT_EQ(in.u(8), static_cast<std::uint64_t>(ms)) << steps;
        EXPECT_EQ(in.u(10), static_cast<std::uint64_t>(fraction)) << steps;
    }
}

TEST(Encoders, SendTrackingModesWithoutANameOfTheirOwnUnderTheNextOne) {
    const struct {
        const char *code, *msm, *legacy; // empty: not sent
    } cases[] = {{"1Y", "1P", "1P"}, {"1M", "1P", ""},   {"1N", "1P", ""},   {"1W", "1W", "1P"},
                 {"1C", "1C", "1C"}, {"2D", "2P", "2D"}, {"2Y", "2P", "2P"}, {"2M", "2P", ""},
                 {"2N", "2P", ""},   {"2C", "2C", "2X"}, {"2S", "2S", "2X"}, {"2L", "2L", "2X"}};
    for (const auto& c : cases) {
        const auto state = newEpoch();
        const std::size_t band = c.code[0] == '2' ? 1 : 0;
        add(*state, "G07", {{"1C", 22e6}, {"2W", 22e6}}).code[band] = obs2code(c.code);
        const auto signal = [&](const std::vector<ref::Cell>& cells) {
            return cells.size() == 2 && cells[band].pseudorangeM ? cells[band].signal : "";
        };
        EXPECT_EQ(signal(ref::readMsm(encoded(*state, 1074).body).cells), c.msm) << c.code;
        EXPECT_EQ(signal(ref::readLegacy(encoded(*state, 1004).body).cells), c.legacy) << c.code;
    }
}

TEST(EncodeMsm4, TakesAPhaseFarFromTheRangeBackByWholeCycles) {
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

TEST(EncodeMsm, MarksRatesThatItCannotCarry) {
    const auto state = newEpoch();
    const double perM = 1575.42e6 / ref::kLightSpeed;
    const struct {
        const char* satellite;
        float firstHz, secondHz;
        bool first, second;
    } cases[] = {{"E01", 0.25F, -0.25F, true, true},       // a rough rate of 0 is a rate
                 {"E02", -1000.0F, -1012.0F, true, false}, // 2 m/s from the rough rate
                 {"E03", 0.0F, -1000.0F, false, true},
                 {"E04", static_cast<float>(-8191.2 * perM), 0.0F, true, false},
                 {"E05", static_cast<float>(-8191.8 * perM), 0.0F, false, false}};
    for (const auto& c : cases)
        add(*state, c.satellite, {{"1C", 24e6}, {"5Q", 24e6}}).D = {c.firstHz, c.secondHz};
    const auto cells = ref::readMsm(encoded(*state, 1095).body).cells;
    ASSERT_EQ(cells.size(), 2 * std::size(cases));
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(cells[2 * i].rateMps.has_value(), cases[i].first) << cases[i].satellite;
        EXPECT_EQ(cells[2 * i + 1].rateMps.has_value(), cases[i].second) << cases[i].satellite;
    }
    // A GLONASS satellite without a channel, and behind it one without a signal of the message.
    add(*state, "R06", {{"1C", 22e6}}).P[0] = 0.0;
    add(*state, "R05", {{"1C", 22e6}}).code[0] = obs2code("3X");
    state->nav.glo_fcn[4] = 8;
    EXPECT_EQ(ref::readMsm(encoded(*state, 1085).body).cells.at(0).info, 15);
}

TEST(Encoders, CountLockTimeWhileTheStateLives) {
    const auto state = newEpoch();
    const struct {
        double seconds;
        int df402, df407, df013;
    } cases[] = {{0.0, 0, 0, 0},          {0.031, 0, 31, 0},    {0.032, 1, 32, 0},
                 {1.0, 5, 190, 1},        {1.1, 6, 194, 1},     {30, 10, 346, 27},
                 {100, 12, 400, 55},      {200, 13, 432, 76},   {500, 14, 477, 104},
                 {524.288, 15, 480, 106}, {800, 15, 496, 121},  {9000, 15, 610, 127},
                 {-5, 0, 0, 0},           {70000, 15, 704, 127}};
    const GTime start = state->time;
    ObsRecord& record = add(*state, "G07", {{"1C", 23000000.0}});
    const auto lock = [&](int type) {
        const Bytes body = encoded(*state, type).body;
        return (type < 1070 ? ref::readLegacy(body) : ref::readMsm(body)).cells.at(0).lock;
    };
    for (const auto& c : cases) {
        state->time = record.time = timeadd(start, c.seconds);
        EXPECT_EQ(lock(1074), c.df402) << c.seconds;
        EXPECT_EQ(lock(1076), c.df407) << c.seconds;
        EXPECT_EQ(lock(1002), c.df013) << c.seconds;
    }
    for (const int type : {1075, 1077, 1001}) {
        EXPECT_NE(lock(type), 0);
        record.LLI[0] = 1;
        EXPECT_EQ(lock(type), 0);
        record.LLI[0] = 0;
        state->time = record.time = timeadd(record.time, 2.0);
    }
}

TEST(EncodeLegacy, CarriesTheL1AndL2ThatItsIndicatorsName) {
    const auto state = newEpoch();
    state->nav.glo_fcn[2] = 5 + 8;
    state->nav.glo_fcn[13] = -7 + 8;
    add(*state, "G05", {{"5Q", 20000000.0}, {"1C", 20512345.678}, {"2W", 20512349.321}});
    add(*state, "R03", {{"1C", 19512345.678}, {"2C", 19512341.5}}, 5);
    add(*state, "G31", {{"1W", 25500111.222}, {"2L", 25500115.3}, {"2W", 25500116.4}});
    add(*state, "S27", {{"1C", 39123456.789}, {"5I", 39123450.0}}); // PRN 127
    add(*state, "R14", {{"1P", 24600001.234}, {"2P", 24600009.8}}, -7);
    add(*state, "G09", {{"2W", 22e6}});              // no L1
    add(*state, "G10", {{"1C", 0.0}, {"2W", 22e6}}); // nor its range
    add(*state, "G11", {{"1C", 76.8e6}});            // beyond 256 ms
    add(*state, "G12", {{"1X", 22e6}});              // L1C is not L1 C/A
    add(*state, "R07", {{"1C", 22e6}});              // no channel known
    add(*state, "S40", {{"1C", 38e6}});              // PRN 140 has no number
    struct Want {
        std::string sat, signal;
        double rangeM, cnr;
    };
    const std::map<bool, std::vector<Want>> wanted{
        {false,
         {{"G05", "1C", 20512345.678, 41},
          {"G05", "2W", 20512349.321, 42},
          {"G31", "1P", 25500111.222, 40},
          {"G31", "2X", 25500115.3, 41},
          {"S08", "1C", 39123456.789, 40},
          {"S08", "2X", 0, 0}}}, // the reader's name of 127
        {true,
         {{"R03", "1C", 19512345.678, 40},
          {"R03", "2C", 19512341.5, 41},
          {"R14", "1P", 24600001.234, 40},
          {"R14", "2P", 24600009.8, 41}}}};
    for (const int type : {1001, 1002, 1003, 1004, 1009, 1010, 1011, 1012}) {
        SCOPED_TRACE(type);
        const bool glonass = type >= 1009;
        const int kind = (type - 1001) % 4;
        std::vector<Want> want = wanted.at(glonass);
        if (kind < 2)
            std::erase_if(want, [](const Want& w) { return w.signal[0] == '2'; });
        const ref::Msm m = ref::readLegacy(encoded(*state, type, 1).body);
        EXPECT_EQ(m.station, 4095);
        EXPECT_EQ(m.epochField, glonass ? 9432250U : 430650250U);
        EXPECT_TRUE(m.more);
        ASSERT_EQ(m.cells.size(), want.size());
        for (std::size_t i = 0; i < want.size(); ++i) {
            const ref::Cell& c = m.cells[i];
            const Want& w = want[i];
            SCOPED_TRACE(w.sat + w.signal);
            EXPECT_EQ(c.sat, w.sat);
            EXPECT_EQ(c.signal, w.signal);
            EXPECT_EQ(c.info, !glonass ? 0 : w.sat == "R03" ? 12 : 0);
            ASSERT_EQ(c.pseudorangeM.has_value(), w.rangeM > 0.0);
            ASSERT_EQ(c.phaseRangeM.has_value(), w.rangeM > 0.0);
            if (w.rangeM == 0.0)
                continue;
            EXPECT_EQ(c.cnr, kind % 2 ? w.cnr : 0.0);
            // without the ambiguity known modulo one or two ms
            const double unitM = ref::kLightSpeed * (glonass ? 0.002 : 0.001);
            const double whole = kind % 2 ? 0.0 : std::round((w.rangeM - *c.pseudorangeM) / unitM);
            EXPECT_NEAR(*c.pseudorangeM + whole * unitM, w.rangeM, 0.0101);
            EXPECT_NEAR(*c.phaseRangeM + whole * unitM, w.rangeM + 3.25, 0.00026);
        }
    }
}

TEST(EncodeLegacy, WritesA1012TypedBitByBitAndRollsPhasesOverBy1500Cycles) {
    const auto state = newEpoch();
    state->nav.glo_fcn[23] = -4 + 8;
    const double rangeM = 0.002 * ref::kLightSpeed * 37 + 0.02 * 1234567;
    ObsRecord& record = add(*state, "R24", {{"1P", rangeM}, {"2C", rangeM - 0.02 * 777}}, -4);
    const double perM1 = (1602e6 - 4 * 562500.0) / ref::kLightSpeed;
    const double perM2 = (1246e6 - 4 * 437500.0) / ref::kLightSpeed;
    record.L[0] = (rangeM - 0.0005 * 54321) * perM1;
    record.L[1] = (rangeM + 0.0005 * 432100) * perM2;
    record.SNR[0] = 47250;
    record.SNR[1] = 33500;
    // clang-format off
    const auto typed = [](int phase1, int phase2) {
        return ref::BitString().u(12, 1012).u(12, 4095).u(27, 9432250).u(1, 0).u(5, 1).u(1, 0).u(3, 0)
            .u(6, 24).u(1, 1).u(5, 3).u(25, 1234567).s(20, phase1).u(7, 0).u(7, 37).u(8, 189)
            .u(2, 0).s(14, -777).s(20, phase2).u(7, 0).u(8, 134).bytes();
    };
    // clang-format on
    EXPECT_EQ(encoded(*state, 1012).body, typed(-54321, 432100));
    record.L[0] += 4500 - 100; // past the field: back to the nearest multiple
    record.L[1] -= 150000;
    const auto steps = [](double cycles, double perM) {
        return static_cast<int>(std::lround(cycles / perM / 0.0005));
    };
    EXPECT_EQ(encoded(*state, 1012).body,
              typed(-54321 - steps(100, perM1), 432100 - steps(1500, perM2)));
    record.L[0] = record.L[1] = 0.0;
    EXPECT_EQ(encoded(*state, 1012).body, typed(-524288, -524288));
}

TEST(EncodeLegacy, TakesTheFirst31Satellites) {
    const auto state = newEpoch();
    for (int prn = 32; prn > 0; --prn)
        add(*state, ref::satName('G', prn), {{"1C", 22e6 + prn}});
    const auto sats = ref::readLegacy(encoded(*state, 1004).body).sats;
    ASSERT_EQ(sats.size(), 31U);
    EXPECT_EQ(sats.back(), 2);
}
