#include "base/bits.h"
#include "check.h"
#include "gnss/ComFreq.h"
#include "reference/standard/frame.h"

#include <algorithm>
#include <random>
#include <tuple>

namespace {

TEST(SatelliteNumber, FollowsTheBlocks) {
    const struct {
        unsigned system;
        int first, last, number;
    } cases[] = {{kGps, 1, 32, 1},      {kGlonass, 1, 27, 33}, {kGalileo, 1, 36, 60},
                 {kQzss, 193, 202, 96}, {kBds, 1, 63, 106},    {kSbas, 120, 158, 169}};
    const std::pair<const char*, int> names[] = {
        {"J02", 97}, {"S27", 176}, {"I05", 0},        {"L05", 0}, {"32", 32},
        {"33", 0},   {"120", 169}, {"203", 0},        {"G33", 0}, {"X01", 0},
        {"G", 0},    {"", 0},      {"S2147483647", 0}};
    for (const auto& c : cases) {
        EXPECT_TRUE(satno(c.system, c.first - 1) == 0 && satno(c.system, c.last + 1) == 0);
        for (int prn = c.first, sat = c.number, back = 0; prn <= c.last; ++prn, ++sat) {
            EXPECT_TRUE(satno(c.system, prn) == sat && satid2no(satno2id(sat)) == sat) << sat;
            EXPECT_TRUE(satsys(sat, &back) == c.system && back == prn) << sat;
        }
    }
    for (const auto& [id, sat] : names)
        EXPECT_EQ(satid2no(id), sat) << id;
    EXPECT_TRUE(satno2id(169) == "120" && satno2id(114) == "C09" && satno2id(208).empty());
}

TEST(ObservationCode, HasANumberASlotAndACarrier) {
    const struct {
        unsigned system;
        const char* obs;
        int code, fcn, slot;
        double mhz;
    } cases[] = {{kGps, "1C", 1, 0, 0, 1575.42},       {kGps, "2W", 20, 0, 1, 1227.6},
                 {kGlonass, "1C", 1, 7, 0, 0},         {kGps, "7I", 27, 0, -1, 0},
                 {kGlonass, "2P", 19, 6, 1, 1248.625}, {kGlonass, "3I", 44, 9, 2, 1202.025},
                 {kGalileo, "8X", 39, 0, 4, 1191.795}, {kGalileo, "7X", 29, 0, 1, 1207.14},
                 {kIrnss, "9X", 55, 0, 1, 2492.028},   {kQzss, "6L", 36, 0, 3, 1278.75},
                 {kQzss, "5Z", 59, 0, 2, 1176.45},     {kSbas, "5I", 24, 0, 1, 1176.45},
                 {kBds, "2I", 40, 0, 0, 1561.098},     {kBds, "1D", 56, 0, 0, 1575.42},
                 {kBds, "6Q", 43, 0, 3, 1268.52},      {kBds, "7I", 27, 0, 1, 1207.14}};
    for (const auto& c : cases) {
        EXPECT_TRUE(obs2code(c.obs) == c.code && code2obs(c.code) == c.obs) << c.obs;
        EXPECT_EQ(code2idx(c.system, c.code), c.slot) << c.system << c.obs;
        EXPECT_EQ(code2freq(c.system, c.code, c.fcn), c.mhz * 1e6) << c.system << c.obs;
    }
    // Deliberate: numbers above 59 print as empty.
    EXPECT_TRUE(obs2code("6E") == 60 && obs2code("4X") == 68 && code2obs(60).empty());
}

TEST(CodePriority, FollowsTheLettersUnlessAnOptionDecides) {
    // Tracking letters by system and band digits, the best (14) first; the others have no priority.
    const std::tuple<unsigned, std::string_view, std::string_view> table[] = {
        {kGps, "1", "CPYWMNSL"},  {kGps, "2", "PYWCMNDLSX"}, {kGps, "5", "IQX"},
        {kGps, "34678", ""},      {kGlonass, "14", "CPABX"}, {kGlonass, "26", "PCABX"},
        {kGlonass, "3", "IQX"},   {kGlonass, "578", ""},     {kGalileo, "1", "CABXZ"},
        {kGalileo, "578", "IQX"}, {kGalileo, "6", "ABCXZ"},  {kGalileo, "234", ""},
        {kQzss, "1", "CLSXZ"},    {kQzss, "2", "LSX"},       {kQzss, "5", "IQXDPZ"},
        {kQzss, "6", "LSXEZ"},    {kQzss, "3478", ""},       {kSbas, "1", "C"},
        {kSbas, "5", "IQX"},      {kSbas, "234678", ""},     {kBds, "12", "IQXDPAN"},
        {kBds, "7", "IQXDPZ"},    {kBds, "58", "DPX"},       {kBds, "6", "IQXA"},
        {kBds, "34", ""},         {kIrnss, "59", "ABCX"},    {kIrnss, "1234678", ""},
        {kLeo, "123456789", ""}};
    for (int code = 1; code <= kLastPrintedCode; ++code)
        for (const auto& [system, digits, letters] : table) {
            const std::string_view obs = code2obs(code);
            if (digits.find(obs[0]) == std::string_view::npos)
                continue;
            const std::size_t place = letters.find(obs[1]);
            EXPECT_EQ(getcodepri(system, code, ""),
                      place == std::string_view::npos ? 0 : 14 - static_cast<int>(place))
                << system << obs;
        }
    setcodepri(kQzss | kIrnss, 3, "ABC");
    const struct {
        unsigned system;
        const char *obs, *options;
        int priority;
    } cases[] = {{kGps, "1C", "-GL1P", 0},  {kQzss, "6B", "", 13},
                 {kGps, "1C", "-RL1P", 14}, {kBds, "7I", "-CL7I", 15},
                 {kGps, "1P", "-GL1P", 15}, {kGps, "1C", "-X -GL2W -GL1C -GL1P", 15},
                 {kGps, "2P", "-GL1P", 14}};
    for (const auto& c : cases)
        EXPECT_EQ(getcodepri(c.system, obs2code(c.obs), c.options), c.priority) << c.obs;
    setcodepri(kQzss, 3, "LSXEZ");
}

// Carriers of the interface documents, MHz.
TEST(CarrierFrequency, IsThatOfTheSystem) {
    const std::pair<const char*, double> cases[] = {
        {"GL1", 1575.42},  {"GL2", 1227.6},   {"GL5", 1176.45}, {"JL2", 1227.6},  {"JL6", 1278.75},
        {"EL1", 1575.42},  {"EL5", 1176.45},  {"EL6", 1278.75}, {"EL7", 1207.14}, {"EL8", 1191.795},
        {"CL1", 1575.42},  {"CL2", 1561.098}, {"CL5", 1176.45}, {"CL6", 1268.52}, {"CL7", 1207.14},
        {"CL8", 1191.795}, {"RL2", 1248.625}, {"GxL2W", 1227.6}};
    for (const auto& [name, mhz] : cases)
        EXPECT_DOUBLE_EQ(getfreq(name[0], name + 1, 6), mhz * 1e6) << name;
    check::expectFatal([] { getfreq('E', "L2", 0); }, "freq = L2,unknow frequency for GALILEO\n");
}

TEST(BitField, IsReadAndWrittenAtEveryPlaceAndWidthAsBitByBit) {
    std::mt19937 random;
    for (int at = 0; at < 110 * 32; ++at) {
        const int pos = at / 32, len = at % 32 + 1, end = pos + len;
        const auto start = static_cast<std::size_t>(pos);
        ref::Bytes buff(18); // bits behind the thirteenth byte read as 0
        std::generate_n(buff.begin(), 13, [&] { return static_cast<std::uint8_t>(random()); });
        ref::BitSource in(buff), old(buff);
        const auto value = static_cast<std::int64_t>((in.u(pos), in.u(len)));
        buff.resize(13);
        ASSERT_EQ(getbitu(buff, start, len), value) << pos << ' ' << len;
        ASSERT_EQ(getbits(buff, start, len), value - (value >> (len - 1) << len)) << pos;
        const auto v = static_cast<std::int32_t>(random());
        // The sign of a value that is too wide is kept; the other bits are those of setbitu.
        setbits(buff, start, len, v);
        ref::BitString to; // a field that does not fit is not written
        for (int i = 0; i < 13 * 8; ++i) {
            const int was = static_cast<int>(old.u(1));
            to.u(1, end < 105 && i >= pos && i < end ? v >> (i > pos ? end - 1 - i : 31) & 1 : was);
        }
        ASSERT_EQ(buff, to.bytes()) << pos << ' ' << len;
    }
}

// The worked message 1005 of RTCM 10403.x; 0xCDE703 is the check value of this polynomial with
// initial value 0 (3GPP TS 36.212, gCRC24A).
TEST(CheckWord, IsTheRemainderOfTheDivision) {
    ref::Bytes bytes{0xD3, 0x00, 0x13, 0x3E, 0xD7, 0xD3, 0x02, 0x02, 0x98, 0x0E, 0xDE,
                     0xEF, 0x34, 0xB4, 0xBD, 0x62, 0xAC, 0x09, 0x41, 0x98, 0x6F, 0x33};
    EXPECT_EQ(crc24q(bytes), 0x360B98U);
    EXPECT_EQ(crc24q(ref::Bytes{'1', '2', '3', '4', '5', '6', '7', '8', '9'}), 0xCDE703U);
    std::mt19937 random(24);
    std::generate_n(std::back_inserter(bytes), 80, [&] { return std::uint8_t(random()); });
    for (; !bytes.empty(); bytes.pop_back()) {
        EXPECT_EQ(crc24q(bytes), ref::crc24q(bytes)) << bytes.size();
        EXPECT_EQ(crc24qByTables(bytes), ref::crc24q(bytes)) << bytes.size();
    }
}

} // namespace
