#include "base/ComText.h"
#include "check.h"
#include "config/Deploy.h"
#include "config/PostMode.h"
#include "process.h"

#include <map>

namespace {

namespace fs = std::filesystem;

/// The files of the example, altered in one place; '@' stands for their directory.
struct Post : check::Scratch {
    mutable Deployment out;
    /// An empty `from` stands for the whole file.
    explicit Post(const std::string& file = "vrs.json", const std::string& from = "vrs",
                  const std::string& to = "vrs") {
        const fs::path source = fs::path(kSourceFolder) / "examples";
        for (const fs::path example :
             {"vrs.json", "tables.json", "session.obj", "site.crd", "names.tab", "antennas.atx",
              "antennas.nam", "satellites.nav"}) {
            std::string content = readFile(source / "post" / example);
            content = replaced(content, "examples/post/", "@");
            if (example == file) {
                EXPECT_TRUE(contains(content, from)) << from;
                content = from.empty() ? to : replaced(content, from, to);
            }
            content = replaced(content, "@obs", (source / "post/obs").string());
            content = replaced(content, "examples/canberra", (source / "canberra").string());
            write(example, replaced(content, "@", path));
        }
        out.post = true;
    }
    Findings read() const { return readDeployment(out, path + "vrs.json"); }
    void expectFatal(const std::string& printed) const {
        const std::string json = path + "vrs.json";
        const char* const argv[] = {"Kestrune", "-mode", "vrs", json.c_str(), "-post"};
        check::expectFatal([&] { m_readJsonFile(out, 5, argv); }, replaced(printed, "@", path));
    }
};

const SatelliteRecord& satelliteOf(const Post& p, const std::string& name) {
    return p.out.satellites.at(
        static_cast<std::size_t>(pointer_string(p.out.satelliteNames, name)));
}

std::string lines(int count) {
    std::string out;
    while (count-- > 0)
        out += "a b\n";
    return out;
}

TEST(PostMode, ResolvesSatellitesAntennasAndFiles) {
    const Post p;
    const Findings findings = p.read();
    const auto satellite = [&](const char* name) -> const SatelliteRecord& {
        return satelliteOf(p, name);
    };
    EXPECT_TRUE(findings.list().empty()) << printedLine(findings.list()[0]);

    // The second vehicle of that name flies on the day; its own channel comes before the file's.
    EXPECT_EQ(satellite("G10").vehicle->info.block, "BLOCK IIF");
    EXPECT_EQ(satellite("G10").vehicle->info.designator, "1506201");
    EXPECT_EQ(satellite("R24").glonassChannel, 2);
    EXPECT_EQ(satellite("R05").glonassChannel, 1);
    EXPECT_EQ(satellite("G10").vehicle->info.massKg, 1633.0);
    EXPECT_EQ(satellite("G10").vehicle->info.offsetM, (Vector3{0.394, 0.0, 1.623}));
    EXPECT_EQ(satellite("R01").vehicle->info.offsetM,
              (Vector3{-0.545, 0.0, 2.33})); // not the reflector's
    EXPECT_NEAR(satellite("R24").slots.at(0).wavelengthM, 299792458.0 / 1603.125e6, 1e-12);
    EXPECT_NEAR(satellite("G10").vehicle->pco[2][2], 1.5882, 1e-9); // L5 of its second entry

    const StationRecord& str2 = p.out.stations.at(0);
    // Calibrated for G01 G02 R01 R02 alone: Galileo takes GPS, and L5 there the first carrier.
    EXPECT_NEAR(distance(str2.pco[0][0], Vector3{0.00037, 0.00104, 0.08895}), 0, 1e-12);
    EXPECT_EQ(str2.pco[2][0], str2.pco[0][0]);
    EXPECT_EQ(str2.pco[2][1], str2.pco[0][1]);
    EXPECT_EQ(str2.pco[2][2], str2.pco[0][0]);
    EXPECT_EQ(str2.text, "str21930.18d");
    EXPECT_EQ(fs::path(str2.obsFile).filename(), "str21930.18o");
    EXPECT_EQ(str2.logFile, "/str22018193.log");
    EXPECT_NEAR(str2.blh[0] * 180 / kPi, -35.316, 1e-3);
    EXPECT_NEAR(str2.blh[1] * 180 / kPi, 149.010, 1e-3);
    EXPECT_NEAR(str2.fromLocal[0], -std::sin(str2.blh[1]), 1e-12);
    EXPECT_NEAR(p.out.stations.at(1).pco[0][0][2], 0.16038, 1e-9);
    EXPECT_EQ(p.out.stations.at(2).pco, SitePco{}); // known not to be calibrated
    EXPECT_EQ(p.out.stationNames, (std::vector<std::string>{"STR2", "TID1", "MOBS"}));
}

TEST(PostMode, TakesTheChannelOfTheObjectFileFirst) {
    const struct {
        const char *file, *from, *to, *satellite;
        int channel;
    } cases[] = {{"session.obj", "-       -     1", "-       -    -7", "R05", -7},
                 {"session.obj", "-       -     1", "-       -     7", "R05", 1},
                 {"satellites.nav", "1415.0     2", "1415.0     9", "R24", kUnknownChannel},
                 {"satellites.nav", "1633.0     0", "1633.0     3", "G01", kUnknownChannel}};
    for (const auto& c : cases) {
        const Post p(c.file, c.from, c.to);
        EXPECT_FALSE(p.read().anyFatal());
        EXPECT_EQ(satelliteOf(p, c.satellite).glonassChannel, c.channel) << c.to;
    }
}

TEST(PostMode, AsksForTheWholeSession) {
    // The session begins at 18:30 and lasts twelve hours; MJD 58311 is 12 July 2018.
    std::string obsFile;
    const auto session = [&](const std::string& file, const std::string& from,
                             const std::string& to) {
        const Post p(file, from, to);
        p.write("vrs.json", replaced(readFile(p.path + "vrs.json"), "2018 7 12 0 0 0.0 86400.0",
                                     "2018 7 12 18 30 0.0 43200.0"));
        const Findings findings = p.read();
        obsFile = p.out.stations.empty() ? "" : p.out.stations[0].obsFile;
        return findings.anyFatal() ? printedLine(findings.list().back()) : "";
    };
    const std::string from =
        "  2011     7    16     0     0    0.0000000                 VALID FROM";
    const auto until = [&](const std::string& time) {
        return from + "\n  2018     7    " + time + "    0.0000000                 VALID UNTIL";
    };
    EXPECT_EQ(session("antennas.atx", from, until("13     7     0")), "");
    EXPECT_NE(session("antennas.atx", from, until("13     6     0")), ""); // ends at 6:30
    EXPECT_EQ(session("antennas.atx", from,
                      replaced(from, "2011     7    16     0", "2018     7    12    18")),
              "");
    EXPECT_NE(session("antennas.atx", from,
                      replaced(from, "2011     7    16     0", "2018     7    12    19")),
              "");
    const std::string vehicle = "2011-07-16 00:00:00";
    EXPECT_EQ(session("satellites.nav", vehicle, "2018-07-12 18:29:59"), "");
    EXPECT_TRUE(contains(session("satellites.nav", vehicle, "2018-07-12 18:30:01"), "not found"));
    EXPECT_EQ(session("names.tab", ".-YY-o", ".-HH-o"), "");
    EXPECT_EQ(fs::path(obsFile).filename(), "str21930.18o"); // of 18 hours
}

TEST(PostMode, NamesStationsInUpperCase) {
    Post p("session.obj", "STR2", "str2");
    p.write("site.crd", replaced(readFile(p.path + "site.crd"), "STR2", "str2"));
    p.out.logPath = "logs";
    EXPECT_FALSE(p.read().anyFatal());
    EXPECT_EQ(p.out.stations.at(0).name, "STR2");
    EXPECT_EQ(p.out.stations[0].logFile, "logs/str22018193.log");
    EXPECT_NE(p.out.stations[0].xyz[0], 0.0);
}

TEST(PostMode, DropsAFixedStationWithoutCoordinates) {
    const std::string dropped = "station = STR2,fix mode for no coordinate station,will continue";
    for (const char* const nowhere : {"nan", "0.0"}) {
        const Post p("site.crd", "2683011.9038", nowhere);
        const Findings findings = p.read();
        EXPECT_FALSE(findings.anyFatal());
        ASSERT_EQ(findings.list().size(), 2U) << nowhere; // the first is of the file
        EXPECT_EQ(printedLine(findings.list()[1]), dropped);
        EXPECT_EQ(p.out.stationNames, (std::vector<std::string>{"TID1", "MOBS"}));
    }
    const Post p("site.crd", "2683011.9038", "0.0");
    p.out = {};
    p.write("session.obj", replaced(readFile(p.path + "session.obj"), "STR2  F", "STR2  K"));
    p.out.post = true; // not a fixed one
    EXPECT_FALSE(p.read().anyFatal());
    EXPECT_EQ(p.out.stations.at(0).name, "STR2");
    EXPECT_EQ(p.out.stations[0].blh, Vector3{});
    p.out = {}; // in real time it is not asked
    EXPECT_FALSE(p.read().anyFatal());
    EXPECT_EQ(p.out.stationNames.size(), 3U);
}

TEST(PostMode, EndsTheProcessWithTheLineOfItsFault) {
    const std::string atx = "antennas.atx", nam = "antennas.nam", nav = "satellites.nav",
                      names = "names.tab", tables = "tables.json", json = "vrs.json",
                      atxfile = ",atxfile = @antennas.atx,",
                      g01 =
                          "ant = BLOCK IIF,cprn = G01,satellite antenna is not found in atx file\n",
                      str2 = "ant = TRM59800.00     NONE,sitename = STR2,station antenna is not "
                             "found in atx file\n",
                      iif = "antnam = BLOCK IIF,antnum = G01" + atxfile,
                      trm = "antnam = TRM59800.00     NONE,antnum = " + atxfile,
                      noFile = "file = none,can't access satnav file\n";
    const struct {
        std::string file, from, to, printed;
    } cases[] = {
        {tables, "@satellites.nav", "none", noFile},
        {tables, "@antennas.atx", "none", noFile}, // deliberate: the same text for all three
        {tables, "@antennas.nam", "none", noFile},
        {tables, "@names.tab", "none", "file = none,can't access vrnfln file\n"},
        {nav, "G01", "G09",
         "cprn = G01,file = @satellites.nav,satellite not found in svnav file\n"},
        {nav, "G01  063  BLOCK~IIF             2011-036A  2011-",
         "G01  063  BLOCK~IIF             "
         "2011-036A  2019-",
         "cprn = G01,file = @satellites.nav,satellite not found in svnav file\n"},
        {json, " QZS:L1_L2_L5", "",
         "cprn = J01,nfreq = 0,frequency used for satellite is not selected!\n"},
        {json, "GLS:L1_L2", "GLS:L1_L5", "freq = L5,unknow frequency for GLONASS\n"},
        {atx, "BLOCK IIF  ", "BLOCK IIR  ", iif + "no definition for antenna in atxfile\n" + g01},
        {atx, "BLOCK IIF           G01", "BLOCK IIF           G02",
         iif + "no definition for antenna in atxfile\n" + g01},
        {atx, "  2011     7    16", "  2018     7    12",
         iif + "no definition for antenna in atxfile\n" + g01},
        {atx, "A                                                           PCV TYPE",
         "R                                                           PCV TYPE",
         "type = R" + atxfile + "should refer absolute antenna mode in atxfile\n" + g01},
        {atx, "TRM59800.00     NONE  ", "TRM59800.00     DOME  ",
         trm + "no definition for antenna in atxfile\n" + str2},
        {atx, "90.0   5.0                                        ZEN1 / ZEN2 / DZEN\n     4",
         "90.0   5.0                                        ZEN1 / ZEN2 / DZEN\n     5",
         trm + "frequency not found\n" + str2},
        {atx, "   360.0 ", "                                    COMMENT\n   360.0 ",
         trm + "pcv lost\n" + str2},
        {atx, "     5.0                                                    DAZI",
         "     1.0                                                    DAZI",
         trm +
             "dazi = 1,zen1 = 0,zen2 = 90,dzen = 5,pcv table is not within 81 rows and 30 "
             "columns\n" +
             str2},
        {nam, "TRM59800.00     NONE", "TRM59800.00     DOME",
         "anttyp = TRM59800.00     NONE,sitname = STR2,antenna unknown\n"},
        {names, "rnxo", "rnx", "keyword = rnxo,keyword not defined in varno_file_name\n"},
        {names, "log ", "lag ", "keyword = log,keyword not defined in varno_file_name\n"},
        {names, "-DDD-", "-DOY-", "word = DOY,keyword = rnxo,word is not defined in keyword\n"},
        {names, "", lines(101), "nfile = 101,too many files defined in varno_file_name\n"},
        {json, "@obs", "nowhere",
         "file = nowhere/str21930.18o,can't find obs file\n"
         "file = nowhere/tid11930.18o,can't find obs file\n"
         "file = nowhere/mobs1930.18o,can't find obs file\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.printed);
        const Post p(c.file, c.from, c.to);
        if (contains(c.printed, "can't find obs file")) { // said, and the process goes on
            std::string said;
            const Findings findings = p.read();
            for (const Finding& f : findings.list())
                said += printedLine(f) + "\n";
            EXPECT_EQ(said, c.printed);
        } else {
            p.expectFatal(c.printed);
        }
    }
}

TEST(PostMode, ReadsBaselinesWhereTheModeAsks) {
    const Post p(std::string("tables.json"), "\"baselines\": \"none",
                 "\"baselines\": \"@baselines");
    p.write("baselines", "* names\n AAAA BBBB CCCC 1 2\nDDDD EEEE FFFF\n G H I\n AA BB CC\r\n");
    const struct {
        int mode;
        bool post, read;
    } cases[] = {
        {0, true, false}, {2, false, true}, {3, true, true}, {4, false, false}, {4, true, true}};
    for (const auto& c : cases) {
        p.out = {};
        p.out.post = c.post;
        p.out.modeNumber = c.mode;
        EXPECT_FALSE(p.read().anyFatal());
        EXPECT_EQ(p.out.baselineNames,
                  c.read ? (std::vector<std::string>{"AAAA-BBBB-CCCC", "AA-BB-CC"})
                         : std::vector<std::string>{})
            << c.mode;
    }
    fs::remove(p.path + "baselines");
    EXPECT_EQ(printedLine(p.read().list().back()), // deliberate: names another file
              "file = " + p.path + "baselines,can't access satnav file");
}

TEST(PostMode, CountsUsesOfRawProcessing) {
    const Post p;
    p.out.processMode = "RAW";
    p.read();
    EXPECT_EQ(p.out.useNumbers, (std::array<int, kSystemCount>{3, 2, 4, 3, 0, 0, 3, 0}));
    p.out = {};
    p.read();
    EXPECT_EQ(p.out.useNumbers, (std::array<int, kSystemCount>{1, 1, 1, 1, 1, 1, 1, 1}));
}

} // namespace
