#include "common/ComFreq.h"
#include "common/RinexText.h"
#include "common/check.h"

namespace {

using Names = std::vector<std::string>;

SatelliteRecord satellite(const char* cprn, int channel = kUnknownChannel) {
    SatelliteRecord record;
    record.cprn = cprn;
    record.glonassChannel = channel;
    return record;
}

/// The finding; empty for none.
std::string fill(SatelliteRecord& record, const char* mode, const Names& names) {
    Findings findings;
    const bool good = get_freq(record, mode, names, findings);
    EXPECT_EQ(good, findings.list().empty());
    return findings.list().empty() ? "" : findings.list()[0].text;
}

TEST(SatelliteFrequencies, StandInOrderAndCombineTheHighestTwo) {
    const struct {
        const char *cprn, *mode;
        Names names, sorted;
    } cases[] = {{"G05", "RAW", {"L2", "L1"}, {"L1", "L2"}},
                 {"G05", "xIFx", {"L5", "L2", "L1"}, {"L1", "L2", "L5"}},
                 {"C05", "SF", {"L7", "L6", "L2", "L1"}, {"L1", "L2", "L6", "L7"}}};
    for (const auto& c : cases) {
        SatelliteRecord record = satellite(c.cprn);
        EXPECT_EQ(fill(record, c.mode, c.names), "");
        ASSERT_EQ(record.slots.size(), c.sorted.size());
        for (std::size_t i = 0; i < c.sorted.size(); ++i) {
            const CarrierSlot& slot = record.slots[i];
            EXPECT_EQ(slot.name, c.sorted[i]);
            EXPECT_EQ(slot.hz, getfreq(c.cprn[0], c.sorted[i], 0));
            EXPECT_DOUBLE_EQ(slot.hz * slot.wavelengthM, 299792458.0);
        }
        ASSERT_TRUE(record.combination);
    }
    // GPS L1 and L2 are 154 and 120 times 10.23 MHz.
    SatelliteRecord gps = satellite("G05");
    fill(gps, "IF", {"L2", "L1"});
    const CombinationConstants k = gps.combination.value();
    const double unitM = 299792458.0 / 10.23e6;
    EXPECT_DOUBLE_EQ(k.g, 77.0 / 60.0);
    EXPECT_DOUBLE_EQ(k.g2, 5929.0 / 3600.0);
    EXPECT_DOUBLE_EQ(k.wideLaneM, unitM / 34);
    EXPECT_DOUBLE_EQ(k.narrowLaneM, unitM / 274);
    EXPECT_NEAR(k.ionosphereFree1, 5929.0 / 2329.0, 1e-14);
    EXPECT_NEAR(k.ionosphereFree2, 3600.0 / 2329.0, 1e-14);
}

TEST(SatelliteFrequencies, OfOneCarrierOrAnUnknownChannelDoNotCombine) {
    SatelliteRecord one = satellite("E11");
    EXPECT_EQ(fill(one, "IF", {"L1"}), "");
    EXPECT_TRUE(one.slots.size() == 1 && !one.combination);
    EXPECT_EQ(fill(one, "RAW", {"L1", "L1"}), "");
    EXPECT_FALSE(one.combination); // no difference to divide by

    SatelliteRecord glonass = satellite("R05", -7);
    EXPECT_EQ(fill(glonass, "RAW", {"L2", "L1"}), "");
    EXPECT_EQ(glonass.slots.at(0).hz, 1598062500.0);
    EXPECT_TRUE(glonass.combination);
    glonass.glonassChannel = kUnknownChannel;
    EXPECT_EQ(fill(glonass, "RAW", {"L1", "L2"}), "");
    EXPECT_TRUE(glonass.slots.at(0).hz == 0.0 && glonass.slots.at(1).wavelengthM == 0.0);
    EXPECT_FALSE(glonass.combination);
}

TEST(SatelliteFrequencies, ThatAreUnknownAreFindings) {
    const struct {
        const char *cprn, *mode;
        Names names;
        const char* finding;
    } cases[] = {
        {"G05", "RAW", {}, "cprn = G05,nfreq = 0,frequency used for satellite is not selected!"},
        {"G05", "DF", {"L1"}, "type = DF,unknow observation type"},
        {"E05", "RAW", {"L1", "L2"}, "freq = L2,unknow frequency for GALILEO"},
        {"S20", "RAW", {"L1"}, "freq = L1,unknow frequency"},
        {"R05", "RAW", {"L5"}, "freq = L5,unknow frequency for GLONASS"}};
    for (const auto& c : cases) {
        SatelliteRecord record = satellite(c.cprn);
        EXPECT_EQ(fill(record, c.mode, c.names), c.finding);
    }
}

TEST(SatelliteFrequencies, AreRefreshedInConfiguredOrder) {
    DLY = {};
    DLY.satelliteNames = {"G05"};
    DLY.satellites = {satellite("G05")};
    DLY.satelliteFrequencies[0] = {"L2", "L1"};
    SatelliteRecord& record = DLY.satellites[0];
    fill(record, "RAW", DLY.satelliteFrequencies[0]);
    updateSatfreq(record);
    EXPECT_TRUE(record.slots.at(0).name == "L2" && record.slots[0].hz == 1227600000.0);
    EXPECT_TRUE(record.slots.at(1).name == "L1" && record.combination);
    EXPECT_LT(record.pairs[0].wavelengthM, 0.0); // L2 less L1
}

TEST(RinexLine, HasAZeroInEveryBlankField) {
    const std::string blanks(16, ' ');
    const std::string value = "  23619095.450 6"; // F14.3, I1, I1
    const std::string zero = " 0" + std::string(14, ' ');
    EXPECT_EQ(fillobs(value + blanks + value + "\r\n", 4, 16, 2.11), value + zero + value + zero);
    EXPECT_EQ(fillobs("G05" + blanks + value, 2, 16, 3.02), "G05" + zero + value);
    // The signal strength alone is no value.
    EXPECT_EQ(fillobs(std::string(15, ' ') + "7", 1, 16, 2.11), " 0             7");
    EXPECT_EQ(fillobs(value + value, 1, 16, 2.11), value);
    EXPECT_EQ(fillobs(" ", 0, 16, 3.02), "   ");
    // Deliberate: 3.00 counts as a version without names in front.
    EXPECT_EQ(fillobs("", 1, 16, 3.0), zero);

    const std::string number = " -.123456789012D-05";
    const std::string none = " 0" + std::string(17, ' ');
    EXPECT_EQ(filleph("   " + number, 2.99), "   " + number + none + none + none);
    EXPECT_EQ(filleph("    " + number + std::string(19, ' ') + number, 3.0),
              "    " + number + none + number + none);
    EXPECT_EQ(filleph("", 3.04), "    " + none + none + none + none);
}

} // namespace
