#include "base/ComText.h"
#include "check.h"
#include "config/Antatx.h"
#include "config/AntennaNames.h"
#include "config/SvNav.h"
#include "paths.h"

#include <cstring>
#include <iterator>
#include <random>
#include <sstream>

namespace {

const FrequencyTable kNames = {
    {{"L1", "L2"}, {"L1", "L2"}, {"L1", "L5", "L6"}, {"L2"}, {}, {}, {"L1"}}};

/// An ANTEX line: the value in columns 1 to 60, then the label.
std::string line(std::string value, const std::string& label) {
    value.resize(60, ' ');
    return value + label + "\n";
}

const std::string kHeader =
    line("A", "PCV TYPE / REFANT") + line("", "END OF HEADER") + line("", "START OF ANTENNA");

/// A carrier whose offsets are n, 2n and 3n mm, with one row of three variations.
std::string carrier(const std::string& code, int n) {
    return line("   " + code, "START OF FREQUENCY") +
           line(text("%10.2f%10.2f%10.2f", n * 1.0, n * 2.0, n * 3.0), "NORTH / EAST / UP") +
           text("   NOAZI%8.2f%8.2f%8.2f\n", n * 0.1, n * -0.1, 0.0) +
           line("   " + code, "END OF FREQUENCY");
}

std::string entry(const std::string& typeAndSerial, const std::string& carriers, int count,
                  const std::string& more = "") {
    return line(typeAndSerial, "TYPE / SERIAL NO") + line("     0.0", "DAZI") +
           line("     0.0  10.0   5.0", "ZEN1 / ZEN2 / DZEN") +
           line(text("%6d", count), "# OF FREQUENCIES") + more + carriers +
           line("", "END OF ANTENNA");
}

const std::string kType = "TRM59800.00     NONE";
const std::string kReceiver = entry(kType, carrier("G01", 1) + carrier("G02", 2), 2);

/// One lookup, with all that it gave.
struct Lookup {
    AntennaRecord record;
    SatellitePco satellite{};
    SitePco site{};
    Findings findings;
    bool found = false;

    explicit Lookup(const std::string& path, const std::string& kind,
                    const std::string& type = kType, double from = 58311.0, double to = 58312.0,
                    const FrequencyTable& names = kNames) {
        const std::string serial = kind == "SITE" ? "" : kind;
        found = Antatx_m_getAnt(record, kind, names, type, serial, satellite, site, from, to, path,
                                findings);
    }
    std::string said() const {
        return findings.list().empty() ? "" : printedLine(findings.list().back());
    }
};

struct Antex : testing::Test {
    check::Scratch folder;
    std::string path;
    void file(const std::string& content) { path = folder.write("a.atx", content); }
};

TEST_F(Antex, ChoosesTheCalibrationThatIsValidOverTheSession) {
    const std::string block = "BLOCK IIF           G01";
    file(kHeader + entry("BLOCK IIF           G11", carrier("G01", 9), 1) +
         entry(block, carrier("G01", 1), 1,
               line("  2010     1     1     0     0    0.0000000", "VALID FROM") +
                   line("  2014    12    31    23    59   59.9999999", "VALID UNTIL")) +
         entry(block, carrier("G01", 2), 1,
               line("  2015     1     1    12    30   36.0000000", "VALID FROM")));
    const struct {
        double from, to, upM; // MJD: 55197 = 2010-01-01, 57023 = 2015-01-01; 0.52125 = 12:30:36
    } cases[] = {{55197.01001, 55198.0, 0.003}, {55197.00999, 55198.0, 0.0},
                 {57000.0, 57022.98999, 0.003}, {57000.0, 57022.99001, 0.0},
                 {57022.0, 57024.0, 0.0},       {57023.53126, 60000.0, 0.006},
                 {57023.53124, 60000.0, 0.0}};
    for (const auto& c : cases) {
        const Lookup l(path, "G01", "BLOCK IIF   ", c.from, c.to);
        EXPECT_EQ(l.found, c.upM > 0.0) << c.from;
        EXPECT_NEAR(l.satellite[0][2], c.upM, 1e-12) << c.from;
        EXPECT_EQ(l.satellite[0], l.satellite[1]) << "a carrier without a code is as the first";
        EXPECT_TRUE(!l.found || l.record.centres[0].at(1).code.empty());
    }
}

TEST_F(Antex, FallsBackToGpsForAReceiver) {
    file(kHeader + entry(kType, carrier("G01", 1) + carrier("G02", 2) + carrier("R01", 3), 3));
    const Lookup l(path, "SITE");
    EXPECT_TRUE(l.found && l.record.frequencies == 3);
    const int expected[][3] = {{1, 2, 0}, {3, 2, 0}, {1, 2, 1}, {1, 0, 0}};
    for (std::size_t s = 0; s < std::size(expected); ++s)
        for (std::size_t f = 0; f < 3; ++f)
            for (std::size_t k = 0; k < 3; ++k) {
                const double neu = k == 2 ? 3.0 : k == 0 ? 2.0 : 1.0; // deliberate: east first
                EXPECT_NEAR(l.site[s][f][k], expected[s][f] * neu / 1000.0, 1e-12) << s << f;
            }
}

TEST_F(Antex, ReadsTheRowsOfEveryAzimuth) {
    // mm: azimuth / 10 + zenith angle / 500
    const auto row = [](const std::string& head, double azimuth) {
        std::string s = head;
        for (int z = 0; z <= 90; z += 5)
            s += text("%8.2f", azimuth / 10.0 + z / 500.0);
        return s + "\n";
    };
    std::string carriers = line("   G02", "START OF FREQUENCY") +
                           line("      0.00      0.00      0.00", "NORTH / EAST / UP") +
                           row("   NOAZI", -1000.0);
    for (int azimuth = 0; azimuth <= 360; azimuth += 5)
        carriers += row(text("%8.1f", azimuth * 1.0), azimuth);
    file(kHeader +
         entry(kType, carriers + line("", "END OF FREQUENCY"), 1,
               line("     5.0", "DAZI") + line("     0.0  90.0   5.0", "ZEN1 / ZEN2 / DZEN")));
    const Lookup l(path, "SITE");
    ASSERT_EQ(l.record.centres[0].size(), 2U) << l.said();
    const PhaseCentre& centre = l.record.centres[0][1];
    ASSERT_TRUE(centre.rows == 74 && centre.columns == 19 && centre.pcv.size() == 1406);
    const auto at = [&](std::size_t r, std::size_t c) { return centre.pcv[r * 19 + c]; };
    EXPECT_NEAR(at(0, 18), -0.09982, 1e-12);
    EXPECT_NEAR(at(1, 0), 0.0, 1e-12);
    EXPECT_NEAR(at(19, 9), 0.00909, 1e-12); // azimuth 90, zenith angle 45
    EXPECT_NEAR(at(73, 18), 0.03618, 1e-12);
}

TEST_F(Antex, KnowsTheCarriersOfEachSystem) {
    FrequencyTable names;
    names.fill({"L1", "L2", "L5", "L6", "L7", "L8"});
    // Code, system and name; deliberate: E05 is L8, E07 and E08 are nothing.
    std::istringstream carriers(
        "G01GL1 G02GL2 G05GL5 R01RL1 R02RL2 E01EL1 E5aEL5 E5bEL7 E05EL8 E06EL6 B01CL1 B02CL2 "
        "B05CL5 B06CL6 B07CL7 B08CL8 C01CL1 C02CL2 C05CL5 C06CL6 C07CL7 C08CL8 J01JL1 J02JL2 "
        "J05JL5 J06JL6 E07 E08 S01 G06");
    for (std::string word; carriers >> word;) {
        file(kHeader + entry(kType, carrier(word.substr(0, 3), 1), 1));
        const Lookup l(path, "SITE", kType, 58311.0, 58312.0, names);
        std::string got = word.substr(0, 3);
        for (std::size_t s = 0; s < kAntennaSystems; ++s)
            for (std::size_t f = 0; f < l.record.centres[s].size(); ++f)
                if (l.record.centres[s][f].code == word.substr(0, 3))
                    got += kSystems[s] + names[s][f];
        EXPECT_EQ(got, word);
    }
}

TEST_F(Antex, OpensNoFileForAnAntennaWithoutCalibration) {
    path = "nowhere";
    const Lookup none(path, "SITE", "ANTNONE         NONE");
    EXPECT_TRUE(none.found && none.findings.list().empty() && none.site == SitePco{});
    const Lookup other(path, "SITE");
    EXPECT_TRUE(!other.found && other.findings.anyFatal());
    EXPECT_EQ(other.said(), "file = nowhere,can't access satnav file");
}

TEST_F(Antex, SaysWhatIsWrong) {
    const std::string g1 = carrier("G01", 1);
    const std::string offsetLine = g1.substr(g1.find('\n') + 1, 78);
    const auto with = [&](const std::string& label, const std::string& value) {
        return kHeader + entry(kType, g1, 1, line(value, label));
    };
    const auto changed = [](std::string s, const std::string& from, const std::string& to) {
        return s.replace(s.find(from), from.size(), to);
    };
    const std::string one = kHeader + entry(kType, g1, 1);
    const struct {
        std::string content, said;
        int line;
    } cases[] = {
        {changed(one, "A", "R"), "type = R", 1},
        {"", "type =  ,", 0},
        {kHeader + kReceiver.substr(0, kReceiver.find("   G01")), "no definition for antenna", 7},
        {kHeader + entry(kType, g1, 2), "frequency not found", 12},
        {kHeader + entry(kType, g1, 2) + kReceiver, "frequency not found", 12},
        {kHeader + entry(kType, "", 1), "frequency not found", 8},
        {one.substr(0, one.find("   NOAZI")), "pcv lost", 9},
        {changed(one, "    0.00\n", "\n"), "pcv lost", 10},
        {changed(one, "   -0.10", "    none"), "pcv lost", 10},
        {changed(one, "   NOAZI", "   NOAZI    1.00    1.00    1.00\n   NOAZI"), "pcv lost", 11},
        {changed(one, offsetLine, ""), "without NORTH / EAST / UP", 10},
        {changed(one, "2.00      3.00", "2.00      none"), "EAST / UP is malformed", 9},
        {with("VALID FROM", "  2018    13     1     0     0    0.0"), "FROM is malformed", 8},
        {with("VALID FROM", "2147483647     1     1     0     0    0.0"), "FROM is malformed", 8},
        {with("VALID UNTIL", "  2018     1     1"), "VALID UNTIL is malformed", 8},
        {with("DAZI", "     nan"), "DAZI is malformed", 8},
        {with("DAZI", "     1.0"), "dazi = 1,", 9},
        {with("DAZI", "    4.55"), "pcv lost", 12},
        {with("DAZI", "    4.50"), "pcv table is not within 81 rows", 9},
        {with("DAZI", "  -360.0"), "dazi = -360", 9},
        {with("ZEN1 / ZEN2 / DZEN", "0 90 3"), "dzen = 3,pcv table is not within", 9},
        {with("ZEN1 / ZEN2 / DZEN", "5 0 5"), "zen1 = 5,zen2 = 0", 9},
        {with("ZEN1 / ZEN2 / DZEN", "0 90 -5"), "dzen = -5", 9},
        {with("ZEN1 / ZEN2 / DZEN", "0 1e300 5"), "zen2 = 1e+300", 9},
        {with("# OF FREQUENCIES", "99999999999"), "# OF FREQUENCIES is malformed", 8}};
    for (const auto& c : cases) {
        file(c.content);
        const Lookup l(path, "SITE");
        EXPECT_FALSE(l.found) << c.said;
        ASSERT_EQ(l.findings.list().size(), 1U) << c.said;
        EXPECT_TRUE(contains(l.said(), c.said)) << l.said();
        EXPECT_EQ(l.findings.list()[0].line, c.line) << l.said();
    }
    file(one);
    const std::string inFile = ",atxfile = " + path;
    const std::string unknown = inFile + ",no definition for antenna in atxfile";
    EXPECT_EQ(Lookup(path, "G01", kType).said(), "antnam = " + kType + ",antnum = G01" + unknown);
    for (const char* const type : {"", "  "}) // not what every antenna contains
        EXPECT_EQ(Lookup(path, "SITE", type).said(), "antnam = ,antnum = " + unknown);
    // An entry that cannot be read does not stand in front of one that can; one without
    // frequencies has no offsets.
    file(with("VALID UNTIL", "  2018     1     1") + entry(kType, carrier("G01", 7), 1));
    EXPECT_NEAR(Lookup(path, "SITE").site[0][0][0], 0.014, 1e-12);
    file(with("ZEN1 / ZEN2 / DZEN", "5 15 5")); // three columns
    EXPECT_TRUE(Lookup(path, "SITE").found);
    file(kHeader + entry(kType, g1, 0));
    EXPECT_TRUE(Lookup(path, "SITE").found && Lookup(path, "SITE").site == SitePco{});
    file(changed(one, "A", "R"));
    EXPECT_EQ(Lookup(path, "SITE").said(),
              "type = R" + inFile + ",should refer absolute antenna mode in atxfile");
}

TEST_F(Antex, ReadsLongLinesAndCarriageReturns) {
    std::string crlf = kHeader + line(std::string(5000, 'x'), "COMMENT") +
                       entry(kType, carrier("G01", 1), 1, line("no DAZI", "COMMENT"));
    for (std::size_t at = 0; (at = crlf.find('\n', at)) != std::string::npos; at += 2)
        crlf.insert(at, "\r");
    file(crlf);
    const Lookup l(path, "SITE");
    EXPECT_TRUE(l.found && l.findings.list().empty()) << l.said();
    EXPECT_NEAR(l.site[0][0][2], 0.003, 1e-12);
}

TEST_F(Antex, SurvivesEveryTruncationAndRandomBytes) {
    const std::string whole = kHeader + kReceiver;
    const std::size_t complete = whole.rfind("   G02"); // its "END OF FREQUENCY"
    for (std::size_t n = 0; n < whole.size(); n += n % 7 + 1) {
        file(whole.substr(0, n));
        EXPECT_EQ(Lookup(path, "SITE").found, n >= complete + 60 + 16) << n;
    }
    std::mt19937 random(4);
    for (int i = 0; i < 1000; ++i) {
        std::string spoilt = whole;
        for (std::size_t k = 0; k < 1 + random() % 6; ++k)
            spoilt[random() % spoilt.size()] = "09-. \n\x80\0GAEN"[random() % 12];
        file(spoilt);
        const Lookup l(path, "SITE");
        for (const PhaseCentre& c : l.record.centres[0])
            EXPECT_EQ(c.pcv.size(), c.rows * c.columns);
    }
}

struct SvNav : testing::Test {
    check::Scratch folder;
    std::string satnav;
    const std::string headings = "-\n-\n-\n-\n-\n";
    void file(const std::string& part1, const std::string& part2) {
        satnav = folder.write("s.nav", "R05 is no line\n+PART 1\n" + headings + part1 +
                                           "+PART 2\n" + headings + part2);
    }
};

TEST_F(SvNav, TakesTheLineOfTheEpoch) {
    file(
        "R05  711  GLONASS-M             2000-007B  2001 02 03 00 00 00  2009 12 14 12 00 00  "
        "1414.5  -007\n"
        "R05  734  BLOCK~II~X            2009-070C  2009 12 14 12 30 36  0000 00 00 00 00 00  "
        "1400.5     1\n",
        "R05  734   2009 12 14 12 30 36  0000 00 00 00 00 00       1.0000    1.0000    1.0000 SLR\n"
        "R05  711   2001 02 03 00 00 00  2009 12 14 12 00 00       0.1000    0.2000    0.3000\n"
        "R05  734   2009 12 14 12 30 36  0000 00 00 00 00 00     -99.1234 -999.5678    2.2000\n");
    // MJD 55179 = 2009-12-14. deliberate: the year 2000 becomes 100
    const struct {
        double mjd;
        const char *block, *designator;
        int channel;
        double massKg, y;
    } cases[] = {{51943.00001, "GLONASS-M", "10000702", -7, 1414.5, 0.2},
                 {55179.49999, "GLONASS-M", "10000702", -7, 1414.5, 0.2},
                 {55179.52126, "BLOCK II X", "0907003", 1, 1400.5, -999.5678}};
    for (const auto& c : cases) {
        SatelliteInfo info;
        Findings findings;
        EXPECT_TRUE(Antatx_s_rdSvnav("R05", c.mjd, info, satnav, findings) &&
                    findings.list().empty());
        EXPECT_EQ(info.block, c.block);
        EXPECT_EQ(info.designator, c.designator);
        EXPECT_TRUE(info.channel == c.channel && info.massKg == c.massKg) << c.mjd;
        EXPECT_EQ(info.offsetM[1], c.y);
    }
    const std::string path = "file = " + satnav;
    SatelliteInfo info;
    Findings findings;
    for (const double mjd : {51943.0, 55179.5, 55179.51, 55179.52125}) {
        EXPECT_FALSE(Antatx_s_rdSvnav("R05", mjd, info, satnav, findings));
        EXPECT_EQ(printedLine(findings.list().back()),
                  "cprn = R05," + path + ",satellite not found in svnav file");
    }
    std::filesystem::remove(satnav);
    EXPECT_FALSE(Antatx_s_rdSvnav("R05", 55170.0, info, satnav, findings));
    EXPECT_TRUE(findings.anyFatal());
    EXPECT_EQ(printedLine(findings.list().back()), path + ",can't access satnav file");
}

TEST_F(SvNav, NamesTheMalformedLine) {
    const std::string good = "G01  063  BLOCK~IIF             2011-036A  2011 07 16 00 00 00  "
                             "0000 00 00 00 00 00  1633.0     0\n";
    for (const auto& [from, to] : {std::pair{"2011 07", "2011 17"},
                                   {"1633.0", "   nan"},
                                   {"     0\n", "\n"},
                                   {"G01  ", "G01\n"}}) {
        std::string bad = good;
        file(bad.replace(bad.find(from), std::strlen(from), to) + good, "");
        SatelliteInfo info;
        Findings findings;
        EXPECT_TRUE(Antatx_s_rdSvnav("G01", 58311.0, info, satnav, findings)) << to;
        ASSERT_EQ(findings.list().size(), 1U) << to;
        EXPECT_TRUE(contains(printedLine(findings.list()[0]), "line = 8,value = G01")) << to;
    }
    std::string unlaunched = good; // nothing but its designator is missing
    file(unlaunched.replace(unlaunched.find("036A"), 4, "036 "), "");
    SatelliteInfo info;
    Findings findings;
    EXPECT_TRUE(Antatx_s_rdSvnav("G01", 58311.0, info, satnav, findings) &&
                findings.list().empty());
    EXPECT_TRUE(info.massKg == 1633.0 && info.designator.empty());
}

TEST(AntennaName, IsTheMainNameInFrontOfTheMatch) {
    const check::Scratch folder;
    Findings findings;
    std::string name = "kept";
    std::string antnam = folder.path + "none";
    EXPECT_FALSE(Antatx_s_antnam("STR2", "ANT", name, antnam, findings));
    EXPECT_EQ(printedLine(findings.list().back()),
              "file = " + antnam + ",can't access satnav file");
    EXPECT_TRUE(findings.anyFatal());
    antnam = folder.write("names", "*    FIRST ALIAS\r\nMAIN TYPE 1\r\nALIASFIRST\r\n"
                                   "     FIRST\r\nMAIN TYPE 2\r\n\r\nX\r\n     SECOND");
    const struct {
        const char *wanted, *name;
    } cases[] = {{"FIRST", "TYPE 1"},
                 {"SECOND  ", "TYPE 2"},
                 {"TYPE 2", "TYPE 2"},
                 {"   ", ""},
                 {"MAIN", ""}};
    for (const auto& c : cases) {
        name.clear();
        EXPECT_EQ(Antatx_s_antnam("STR2", c.wanted, name, antnam, findings), c.name[0] != '\0');
        EXPECT_EQ(name, c.name) << c.wanted;
    }
    EXPECT_EQ(printedLine(findings.list().back()), "anttyp = MAIN,sitname = STR2,antenna unknown");
}

TEST(FormatWidths, AreAskedForOfEveryConversion) {
    const std::string line = "***ERROR(checkdata): please make clear the length of the format ";
    for (const std::string format : {"%3s%s", "%4s%d", "%4d%lf", "%2d%c", "%*d"}) {
        Findings findings;
        EXPECT_FALSE(Antatx_s_checkdata(format + "%x", findings));
        EXPECT_EQ(printedLine(findings.list().at(0)), line + format.back() + "!");
    }
    for (const char* const format : {"%3s%*2c%4d%*c%10lf%%", "", "%", "%5"}) {
        Findings findings;
        EXPECT_TRUE(Antatx_s_checkdata(format, findings) && findings.list().empty()) << format;
    }
}

TEST(ExampleOfPostMode, HasWhatItsDayAsksFor) {
    const std::string folder = std::string(kSourceFolder) + "/examples/post/";
    const std::string antennas = folder + "antennas.atx", antnam = folder + "antennas.nam",
                      satnav = folder + "satellites.nav";
    for (const std::string name : {"G01", "G10", "G32", "R01", "R05", "R24", "E01", "E11", "C01",
                                   "C06", "C11", "C20", "J01"}) {
        SatelliteInfo info;
        Findings findings;
        EXPECT_TRUE(Antatx_s_rdSvnav(name, 58311.0, info, satnav, findings)) << name;
        EXPECT_EQ(info.channel, name == "R24" ? 2 : name[0] == 'R' ? 1 : 0);
        const Lookup l(antennas, name, info.block);
        EXPECT_TRUE(l.found && l.satellite[0][2] > 0.7) << name << l.said();
        EXPECT_NEAR(l.satellite[0][2], info.offsetM[2], 2.0) << name;
    }
    for (const std::string antenna : {"TRM59800.00", "LEIAR25.R4"}) {
        std::string type;
        Findings findings;
        EXPECT_TRUE(Antatx_s_antnam("STR2", antenna, type, antnam, findings));
        const Lookup l(antennas, "SITE", type);
        EXPECT_TRUE(l.found) << l.said();
        EXPECT_EQ(l.record.centres[2].empty(), antenna[0] == 'T');
        EXPECT_EQ(l.record.centres[0][0].rows, antenna[0] == 'T' ? 74U : 1U);
    }
}

} // namespace
