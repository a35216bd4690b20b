#include "beside/RinexText.h"
#include "check.h"
#include "gnss/ComFreq.h"

namespace {

using Names = std::vector<std::string>;

/// Names of the slots as filled, with '*' where the carriers combine; or the finding.
std::string filled(SatelliteRecord& record, const char* cprn, const char* mode, const Names& names,
                   int channel = kUnknownChannel) {
    record.cprn = cprn;
    record.glonassChannel = channel;
    Findings findings;
    if (!get_freq(record, mode, names, "vrs.json", findings))
        return printedLine(findings.list().at(0));
    std::string out;
    for (const CarrierSlot& slot : record.slots) {
        out += slot.name;
        EXPECT_NEAR(slot.hz * slot.wavelengthM, slot.hz > 0.0 ? 299792458.0 : 0.0, 1e-6);
    }
    return record.combination ? out + "*" : out;
}

TEST(SatelliteFrequencies, StandInOrderOrAreFindings) {
    const struct {
        const char *cprn, *mode;
        Names names;
        const char* result;
        int channel = kUnknownChannel;
    } cases[] = {
        {"G05", "RAW", {"L2", "L1"}, "L1L2*"},
        {"G05", "xIFx", {"L5", "L2", "L1"}, "L1L2L5*"},
        {"C05", "SF", {"L7", "L6", "L2", "L1"}, "L1L2L6L7*"},
        {"E11", "IF", {"L1"}, "L1"},
        {"E11", "RAW", {"L1", "L1"}, "L1L1"}, // no difference to divide by
        {"R05", "RAW", {"L2", "L1"}, "L1L2*", -7},
        {"R05", "RAW", {"L2", "L1"}, "L2L1"}, // channel unknown
        {"G05", "RAW", {}, "cprn = G05,nfreq = 0,frequency used for satellite is not selected!"},
        {"G05", "DF", {"L1"}, "type = DF,unknow observation type"},
        {"E05", "RAW", {"L1", "L2"}, "freq = L2,unknow frequency for GALILEO"},
        {"S20", "RAW", {"L1"}, "freq = L1,unknow frequency"}};
    for (const auto& c : cases) {
        SatelliteRecord record;
        EXPECT_EQ(filled(record, c.cprn, c.mode, c.names, c.channel), c.result) << c.cprn;
        if (c.cprn[0] == 'R') {
            EXPECT_EQ(record.slots.at(0).hz, c.channel == -7 ? 1598062500.0 : 0.0);
        }
    }
}

TEST(SatelliteFrequencies, CombineAndAreRefreshedInConfiguredOrder) {
    const Names names{"L2", "L1"};
    SatelliteRecord gps;
    filled(gps, "G05", "IF", names);
    // GPS L1 and L2 are 154 and 120 times 10.23 MHz.
    const CombinationConstants k = gps.combination.value();
    const double unitM = 299792458.0 / 10.23e6;
    EXPECT_DOUBLE_EQ(k.g, 77.0 / 60.0);
    EXPECT_DOUBLE_EQ(k.g2, 5929.0 / 3600.0);
    EXPECT_DOUBLE_EQ(k.wideLaneM, unitM / 34);
    EXPECT_DOUBLE_EQ(k.narrowLaneM, unitM / 274);
    EXPECT_NEAR(k.ionosphereFree1, 5929.0 / 2329.0, 1e-14);
    EXPECT_NEAR(k.ionosphereFree2, 3600.0 / 2329.0, 1e-14);
    updateSatfreq(gps, names);
    EXPECT_TRUE(gps.slots.at(0).name == "L2" && gps.slots[0].hz == 1227600000.0);
    EXPECT_TRUE(gps.slots.at(1).name == "L1" && gps.combination);
}

TEST(RinexLine, HasAZeroInEveryBlankField) {
    const std::string value = "  23619095.450 6"; // F14.3, I1, I1
    const std::string zero = " 0" + std::string(14, ' ');
    EXPECT_EQ(fillobs(value + std::string(16, ' ') + value + "\r\n", 4, 16, 2.11),
              value + zero + value + zero);
    EXPECT_EQ(fillobs("G05" + std::string(15, ' ') + "7" + value + value, 2, 16, 3.02),
              "G05 0             7" + value); // the signal strength alone is no value
    EXPECT_EQ(fillobs("", 1, 16, 3.0), zero); // deliberate: 3.00 has no names in front
    const std::string number = " -.123456789012D-05", none = " 0" + std::string(17, ' ');
    EXPECT_EQ(filleph("   " + number, 2.99), "   " + number + none + none + none);
    EXPECT_EQ(filleph("    " + number + std::string(19, ' ') + number, 3.0),
              "    " + number + none + number + none);
}

} // namespace
