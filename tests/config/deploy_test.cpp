#include "check.h"
#include "config/Deploy.h"
#include "process.h"

#include <cstring>
#include <map>

namespace {

const char* const kTableKeys[] = {
    "object",  "stacoo",   "satnav", "antnam",    "antpcv",    "gptgrd",    "leapsc",   "ocload",
    "jpleph",  "ut1t96",   "ut1t03", "ut1t10",    "vrnfln",    "polut1",    "corrp1c1", "database",
    "corrDCB", "gptgrd_w", "subnet", "baselines", "rtconfigs", "corrStaDCB"};

/// A complete deployment; '@' stands for its directory.
const std::map<std::string, std::string> kFiles{
    {"vrs.json",
     R"({"path": {"broad": "/b", "obs": "/o", "output": "/out"}, "files": "@tables.json",
"common": {"time": "2024 2 29 23 0 0 7200", "interval": "30", "threads": "2", "tracelevel": "3",
"freqused": "GPS:L1C_G2_L5 MYGLS2:G1_G2 GAL:E1_E5a_E5b_E5_E6 CMS:B3_B1_B2_B2b QZS:B1c_B2a_LEX"}, "reqs": ["VRS1", "VRS45678"],
"vrs": {"input-connector": "127.0.0.1 5001", "output-connector": "127.0.0.2 65535", "input-protocol": "tcp"}})"},
    {"object", "+Satellite used\n C06 BDS e f\n R01 GLO a b -4 2 3000 4000 5000 6000 7000 8000 9 "
               "10 11 12 13 14 15 16 17 18 "
               "19 20 21 22 23\n* comment\n G05 IIF c d\n-Satellite used\n+Station used\n"
               " abcd FIX t1 t2 1 2 3 4 5 6 7 8 9 10 11 12 13 14 90 ant 21 22 23\n-Station used\n"},
    {"stacoo", "abcd_POS -4649396.65 2556027.44 -3528061.29\nabcd_SIG 1 2 3" +
                   std::string(54, '-') +
                   "7 8 9\n"
                   "abcd_ENU 0.1 0.2 1.5" +
                   std::string(38, ' ') + "TRM59800.00     SCIS       ASH701945E_M\n"},
    {"leapsc", "+leap sec\n57754 37\n99999 37\n-leap sec\n"}};

struct DeploymentFiles : check::Scratch {
    mutable Deployment out;
    /// An empty `from` stands for the whole file.
    DeploymentFiles(const std::string& file, const std::string& from, const std::string& to) {
        auto files = kFiles;
        for (const char* key : kTableKeys)
            files["tables.json"] += text(",\n\"%s\": \"@%s\"", key, key);
        files["tables.json"].replace(0, 1, "{\"files\": {").append("}}");
        files[file] = from.empty() ? to : replaced(files[file], from, to);
        for (const auto& [name, content] : files)
            write(name, replaced(replaced(content, "@", path), "\n", "\r\n"));
    }
    Findings read() const { return readDeployment(out, path + "vrs.json"); }
    void expectFatal(const std::string& printed) const {
        const std::string json = path + "vrs.json";
        const char* const argv[] = {"Kestrune", "-mode", "vrs", json.c_str()};
        check::expectFatal([&] { m_readJsonFile(out, 4, argv); }, replaced(printed, "@", path));
    }
};

/// Lines of an object file for that many satellites.
std::string many(char letter, int count) {
    std::string lines;
    for (int i = 1; i <= count; ++i)
        lines += text(" %c%02d a b c\n", letter, i);
    return lines;
}

TEST(Deployment, FillsTheRecord) {
    using Names = std::vector<std::string>;
    const DeploymentFiles d("vrs.json", "@", "@");
    EXPECT_TRUE(d.read().list().empty());
    const Deployment& out = d.out;
    EXPECT_EQ(out.broadPath + out.obsPath + out.outputPath + out.inputProtocol, "/b/o/outtcp");
    EXPECT_TRUE(out.tables.vrnfln == d.path + "vrnfln" && out.tables.antpcv == d.path + "antpcv");
    EXPECT_TRUE(out.startMjd == 60369 && out.startSod == 82800 && out.sessionS == 7200);
    EXPECT_TRUE(out.endMjd == 60370 && out.endSod == 3600) << "over midnight";
    EXPECT_TRUE(out.intervalS == 30 && out.threads == 2 && out.traceLevel == 3 && !out.clock);
    const FrequencyTable slots{{{"L1", "L2", "L5"},
                                {"L1", "L2"},
                                {"L1", "L5", "L7", "L8"},
                                {"L6", "L2", "L8", "L7"},
                                {},
                                {},
                                {"L1", "L5", "L6"},
                                {}}};
    EXPECT_TRUE(out.frequencies == slots);
    EXPECT_TRUE(out.input.host == "127.0.0.1" && out.input.port == 5001);
    EXPECT_TRUE(out.output.host == "127.0.0.2" && out.output.port == 65535);
    EXPECT_TRUE(out.requests.at(0).name == "VRS1" && out.requests[0].requestWord == -1);
    EXPECT_TRUE(out.requests.at(1).name == "VRS4567" && out.requests[1].requestWord == -2);
    EXPECT_TRUE(out.satelliteNames == (Names{"C06", "R01", "G05"}) && out.satelliteIndex[5] == 2);
    const SatelliteRecord& r01 = out.satellites.at(1);
    for (std::size_t i = 1; i < 23; ++i) // mm to m for the six after the first two
        EXPECT_DOUBLE_EQ(r01.numbers[i], static_cast<double>(i + 1)) << i;
    EXPECT_NEAR(r01.slots.at(0).wavelengthM, 299792458.0 / 1599.75e6, 1e-12);
    const SatelliteRecord& g05 = out.satellites[2]; // deliberate: the pair with the last slot
    EXPECT_TRUE(g05.numbers == (std::array<double, 23>{}) && g05.pairs[0].name == "L1_L5");
    EXPECT_NEAR(g05.pairs[0].wavelengthM, 0.7514160413063639, 1e-12);
    const StationRecord& s = out.stations.at(0);
    EXPECT_TRUE(out.stationNames == (Names{"ABCD"}) && s.name == "abcd" && s.text == "ant");
    EXPECT_TRUE(s.numbers[13] == 14 && s.numbers[14] == kPi / 2 && s.coordinateMode == "FIX");
    EXPECT_TRUE(s.texts[1] == "t2" && s.moreNumbers[2] == 23 && s.moreNumbers[3] == 0);
    EXPECT_EQ(s.xyz, (Vector3{-4649396.65, 2556027.44, -3528061.29}));
    EXPECT_TRUE(s.sigma == (Vector3{1, 2, 3}) && s.more == (Vector3{7, 8, 9}) && s.enu[2] == 1.5);
    EXPECT_EQ(s.antenna + s.antennaWithRadome,
              "TRM59800.00     SCISabcd_ENU 0.1 0.2NONE");              // deliberate
    for (const std::string radome : {"ASH701945E_MX", "AOAD/M_NONE"}) { // 13 characters, a radome
        const DeploymentFiles other("stacoo", "ASH701945E_M", radome);
        EXPECT_TRUE(other.read().list().empty());
        EXPECT_EQ(other.out.stations.at(0).antennaWithRadome, radome);
    }
}

TEST(Deployment, AcceptsWithANoteOrWithout) {
    const std::string stations = "-Satellite used\n+Station used\n abcd";
    const struct {
        const char *file, *from;
        std::string to, holds;
    } cases[] = {
        // Deliberate: the blank before the comment is a 0 of the value.
        {"vrs.json", "30\"", "30 # x\"", "GRC 0 3 -4 300 127.0.0.1"},
        {"vrs.json", "127.0.0.1", "name", "GRC 0 3 -4 30 name"},
        {"vrs.json", "30\"", "30!x\", \"clock\": \"2024-02-29 12:34:56\"",
         "GRC 0 3 -4 30 127.0.0.1 clock"},
        {"object", "C06", "G05\n C06",
         "GCR 0 3 -8 30 127.0.0.1 cprn = G05,exist the same satellite"},
        {"object", "", " J01\n C06\n E01\n" + stations, "ECJ 2 3 -8 30 127.0.0.1"},
        {"object", "", " J01\n C06\n" + stations, "JC 6 2 -8 30 127.0.0.1"},
        {"object", " G05", "*", "RC 1 2 -4 30 127.0.0.1"},
        {"object", "", stations, " 0 0 0 30 127.0.0.1 nrpn = 0,no selected satellite!"},
        {"object", "* comment", "*" + std::string(5000, 'x'), "GRC 0 3 -4 30 127.0.0.1"},
        {"object", "", many('G', 99) + many('C', 21) + many('R', 40) + stations,
         "GCR 0 160 -8 30 127.0.0.1"},
        {"object", "b -4", "b 6", "GRC 0 3 6 30 127.0.0.1"},
        {"object", "b -4", "b 7", "GRC 0 3 -8 30 127.0.0.1"},
        {"object", "b -4", "b 0.5", "GRC 0 3 -8 30 127.0.0.1"},
        {"object", "b -4", "b x", "GRC 0 3 -8 30 127.0.0.1"},
        {"stacoo", "2556027.44", "0",
         "GRC 0 3 -4 30 127.0.0.1 staname = abcd,file = @stacoo,no coordinate information for "
         "station in site file"}};
    for (const auto& c : cases) {
        const DeploymentFiles d(c.file, c.from, c.to);
        const Findings findings = d.read();
        std::string got =
            text("%s %d %zu ", d.out.systems.c_str(), d.out.primarySystem,
                 d.out.satellites.size()) +
            text("%d %g ", d.out.satellites.empty() ? 0 : d.out.satellites[1].glonassChannel,
                 d.out.intervalS) +
            d.out.input.host + (d.out.clock == GTime{1709210096, 0.0} ? " clock" : "");
        for (const Finding& finding : findings.list())
            got += " " + printedLine(finding);
        EXPECT_TRUE(got == replaced(c.holds, "@", d.path) && !findings.anyFatal()) << got;
    }
}

// Seconds since 1970 by `date -u -d TIME +%s`.
TEST(Deployment, SetsTheClockToAnyInstantOfTheCalendar) {
    const std::pair<const char*, std::int64_t> cases[] = {
        {"2016-12-31 23:59:59", 1483228799}, {"2019-04-06 23:59:42", 1554595182},
        {"2038-01-19 03:14:07", 2147483647}, {"2038-01-19 03:14:08", 2147483648},
        {"2099-12-31 23:59:59", 4102444799}, {"2100-01-01 00:00:00", 0}};
    for (const auto& [clock, seconds] : cases) {
        const DeploymentFiles d("vrs.json", "30\"", text("30\", \"clock\": \"%s\"", clock));
        EXPECT_EQ(d.read().anyFatal(), seconds == 0) << clock;
        EXPECT_TRUE(d.out.clock.value_or(GTime{}) == (GTime{seconds, 0})) << clock;
    }
}

TEST(Deployment, EndsTheProcessWithTheLineOfItsFault) {
    const auto bad = [](const std::string& key, const std::string& value, const std::string& why) {
        return "file = @vrs.json,key = " + key + ",value = " + value + "," + why + "\n";
    };
    const std::string v = "vrs.json", tables = "tables.json",
                      object = "file = @object,line = ", string = "value is not a string",
                      port = "port is not in 1..65535",
                      noSite = "station = abcd,read coordinate error!\n",
                      other = "\"other\":", site = "staname = abcd,file = @stacoo,",
                      noJson = ",key = ,value = ,not a JSON document\n",
                      clock = "2024-02-30 00:00:00";
    const struct {
        std::string file, from, to, printed;
    } cases[] = {
        {v, "\"common\"", "\"c\"", bad("common/time", "", "key is missing")},
        {v, "\"VRS45678\"", "5", bad("reqs/1", "5", string)},
        {v, "\"/o\"", "[1]", bad("path/obs", "[1]", string)},
        {v, "[\"VRS1\", \"VRS45678\"]", "[]",
         bad("reqs", "[]", "expected a list of at least one request name")},
        {v, "\"files\"", "\"f\"",
         bad("files", "", "expected the path of the tables file as a string")},
        {v, "\"@tables.json\"", "5",
         bad("files", "5", "expected the path of the tables file as a string")},
        {v, " 0 0 7200", " 0 0#7200",
         bad("common/time", "2024 2 29 23 0 0", "expected \"%d%d%d%d%d%lf%lf\"")},
        {v, "\"30\"", "\"x\"", bad("common/interval", "x", "expected \"%lf\"")},
        {v, "\"2\"", "\"\"", bad("common/threads", "", "expected \"%d\"")},
        {v, "127.0.0.1 5001", "h", bad("vrs/input-connector", "h", "expected \"%s %d\"")},
        {v, "127.0.0.1 5001", "h 0", bad("vrs/input-connector", "h 0", port)},
        {v, "65535", "65536", bad("vrs/output-connector", "127.0.0.2 65536", port)},
        {v, "127.0.0.1 5001", "h -1000000", bad("vrs/input-connector", "h -1000000", port)},
        {v, "30\"", "1\", \"clock\": \"" + clock + "\"",
         bad("common/clock", clock, "expected \"YYYY-MM-DD hh:mm:ss\", UTC")},
        {v, "@tables.json", "/no", "****ERROR(Deploy): file = /no,can't access json file\n"},
        {v, "", "{\"path\": x}", "Error before: [x}]\nfile = @vrs.json" + noJson},
        {tables, "", "", "Error before: []\nfile = @tables.json" + noJson},
        {v, "2 29", "13 29", "iyear = 2024,imonth = 13,iday = 29,incorrect argument\n"},
        {v, "CMS:", "GLO:", "freq = GLO:B3_B1_B2_B2b: unknown GNSS system\n"},
        {v, "GPS:L1C", "GPS:B1x", "freq = B1x,unknow frequency for GPS\n"},
        {tables, "@object", "/no", "file = /no,can't open file to read\n"},
        {tables, "@object", "", "file = ,can't open file to read\n"},
        {"object", "", "", "nrpn = 0,no selected satellite!\nno records for stations\n"},
        {"object", " abcd", "*abcd", "nsit = 0,no stations is selected\n"},
        {"object", " C06", " X06", "system = X,do not support system\n"},
        {"object", " C06", " C006",
         object + "2,value = C006,satellite name is longer than 3 characters\n"},
        {"object", " abcd", " abcde",
         object + "8,value = abcde,station name is longer than 4 characters\n"},
        {"object", " BDS", std::string(1024, ' '),
         object + "2,value =  C06            ,line is longer than 1024 bytes\n"},
        {"object", "", many('G', 99) + many('C', 22),
         object + "121,value = C22,more than 120 satellites beside GLONASS\n"},
        {"object", "", many('R', 41), object + "41,value = R41,more than 40 GLONASS satellites\n"},
        {tables, "@stacoo", "/no", "file = /no,can't access site file\n"},
        {"stacoo", "abcd_SIG", "*", site + "site file format error\n" + noSite},
        {"stacoo", "", "", site + "station is not exist in the site file\n" + noSite},
        {tables, "@leapsc", "/no", "***ERROR(readCommFil):file_table not exist leapsc item \n"}};
    for (const auto& c : cases)
        DeploymentFiles(c.file, c.from, c.to).expectFatal(c.printed);
    for (const char* key :
         {"path/broad", "path/obs", "path/output", "common/time", "common/interval",
          "common/freqused", "common/threads", "common/tracelevel", "vrs/input-connector",
          "vrs/output-connector", "vrs/input-protocol"})
        DeploymentFiles(v, text("\"%s\":", std::strchr(key, '/') + 1), other)
            .expectFatal(bad(key, "", "key is missing"));
    for (const std::string key : kTableKeys)
        DeploymentFiles(tables, '"' + key + "\":", other)
            .expectFatal(replaced(bad("files/" + key, "", "key is missing"), v, tables));
}

TEST(Deployment, ReadsOptionalKeysAndRefusesOtherValues) {
    const char* const v = "vrs.json";
    const DeploymentFiles plain(v, "@", "@");
    plain.read();
    EXPECT_FALSE(plain.out.answering.complete || plain.out.answering.plain ||
                 plain.out.answering.offsetM || plain.out.guard);
    EXPECT_TRUE(plain.out.statePath.empty() && plain.out.statusPath.empty());
    EXPECT_EQ(plain.out.watchdogS, 0.0);

    const DeploymentFiles all(
        v, "\"vrs\": {",
        R"("vrs": {"answer": "complete", "output": "rtcm3", "offset": "3000 -4000 0", "guard": "2.5 warn",)");
    EXPECT_TRUE(all.read().list().empty());
    EXPECT_TRUE(all.out.answering.complete && all.out.answering.plain);
    EXPECT_EQ(all.out.answering.offsetM, (Vector3{3000.0, -4000.0, 0.0}));
    EXPECT_TRUE(all.out.guard->mostM == 2.5 && all.out.guard->warnOnly);
    const DeploymentFiles kept(v, "\"common\": {",
                               R"("common": {"status": "/run/s", "watchdog": "30",)");
    EXPECT_TRUE(kept.read().list().empty() && kept.out.statusPath == "/run/s" &&
                kept.out.watchdogS == 30.0);

    const struct {
        const char *section, *key, *value, *expected;
    } refused[] = {
        {"vrs", "answer", "full", R"("specified" or "complete")"},
        {"vrs", "output", "RTCM3", R"("reply" or "rtcm3")"},
        {"vrs", "offset", "3000 4000", R"("EAST NORTH UP" in metres, together at most 5000)"},
        {"vrs", "offset", "3000 4001 0", R"("EAST NORTH UP" in metres, together at most 5000)"},
        {"vrs", "guard", "0", R"("METRES" or "METRES warn")"},
        {"vrs", "guard", "5 m", R"("METRES" or "METRES warn")"},
        {"common", "watchdog", "0.5", "seconds from 1 to 86400"},
        {"path", "state", "", "the path of a folder"}};
    for (const auto& r : refused)
        DeploymentFiles(v, text("\"%s\": {", r.section),
                        text("\"%s\": {\"%s\": \"%s\",", r.section, r.key, r.value))
            .expectFatal(text("file = @vrs.json,key = %s/%s,value = %s,expected %s\n", r.section,
                              r.key, r.value, r.expected));
}

TEST(Deployment, ReportsEveryFaultOfAReading) {
    const DeploymentFiles d("vrs.json", "30\", \"threads\": \"2", "x\", \"threads\": \"y");
    d.write("stacoo", "");
    const Findings findings = d.read();
    ASSERT_EQ(findings.list().size(), 5U);
    EXPECT_TRUE(findings.list()[0].key == "common/interval" && findings.list()[4].line == 9);
}

TEST(CommandLine, FindsItsSwitchesAsPartsOfArguments) {
    const DeploymentFiles d("vrs.json", "@", "@");
    const std::string json = d.path + "vrs.json";
    const char* const argv[] = {"-debug", "x-rawsav-vrssavx", "-mode", "-pthread", json.c_str()};
    m_readJsonFile(d.out, 5, argv);
    EXPECT_TRUE(d.out.rawSave && d.out.vrsSave && !d.out.post && !d.out.pthread && !d.out.debug);
    check::expectFatal([&] { m_readJsonFile(d.out, 4, argv); },
                       "Welcome to Kestrune!\n"
                       "Example: Kestrune -mode vrs vrs.json -rawsav/vrssav(*)\nExample: where (*) "
                       "denotes optional parameter.\n");
}

} // namespace
