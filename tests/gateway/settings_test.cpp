#include "gateway/settings/CheckSettings.h"

#include <gtest/gtest.h>
#include <sstream>

// The gateway's settings: the file, the command line.

namespace gateway {

namespace {

TEST(GatewaySettings, HoldWhatTheFileSays) {
    const ReadSettings read = parseSettings(R"(
[gateway]
state = "/srv/state"
engine = "external"
address = "127.0.0.1:2200"

[caster]
listen = ["[::]:2101", "127.0.0.1:2103"]
listen_tls = "0.0.0.0:2102"
certificate = "cert.pem"
key = "key.pem"
users = "users"
operator = "Survey of the Capital"
country = "AUS"
max_clients = 11
max_per_user = 12
max_per_address = 13

[[station]]
name = "CANB"
source = ["caster:", "tcp://a:1"]
ephemerides = "tcp://b:2"
position = [-4460996.1, 2682557, -3674443.8]
offset = [1, -2.5, 0]
answer = "specified"
clock = "2026-03-01 00:00:00"
mountpoint = "VRS_CANB"
identifier = "Canberra"
access = ["rover1", "rover2"]
push = "tcp-listen://0.0.0.0:7000"
guard = 2
rate = 0.5
password = "secret"

[[station]]
name = "TIDB"
source = "tcp://c:3"
position = "follow"
access = "anyone"

[[station]]
name = "STR1"
source = "tcp://d:4"
)",
                                            "f");
    for (const auto& remark : read.remarks)
        ADD_FAILURE() << remark.key << ": " << remark.text;
    Settings meant;
    meant.state = "/srv/state";
    meant.externalEngine = {"127.0.0.1", 2200};
    meant.caster = {{{"::", 2101}, {"127.0.0.1", 2103}},
                    {{"0.0.0.0", 2102}},
                    "cert.pem",
                    "key.pem",
                    "users",
                    "Survey of the Capital",
                    "AUS",
                    11,
                    12,
                    13};
    StationSettings canb;
    canb.name = "CANB";
    canb.sources = {parseAddress("caster:", Use::source), parseAddress("tcp://a:1", Use::source)};
    canb.ephemerides = parseAddress("tcp://b:2", Use::source);
    canb.positionM = {-4460996.1, 2682557.0, -3674443.8};
    canb.offsetM = {1.0, -2.5, 0.0};
    canb.answer = StationSettings::Answer::specified;
    canb.clock = "2026-03-01 00:00:00";
    canb.mountpoint = "VRS_CANB";
    canb.identifier = "Canberra";
    canb.access = {Access::Who::listed, {"rover1", "rover2"}};
    canb.push = {parseAddress("tcp-listen://0.0.0.0:7000", Use::output)};
    canb.guardM = 2.0;
    canb.mostEpochs = 0.5;
    canb.password = Secret("secret");
    StationSettings tidb;
    tidb.name = tidb.mountpoint = tidb.identifier = "TIDB";
    tidb.sources = {parseAddress("tcp://c:3", Use::source)};
    tidb.followPosition = true;
    StationSettings str1 = tidb;
    str1.name = str1.mountpoint = str1.identifier = "STR1";
    str1.sources = {parseAddress("tcp://d:4", Use::source)};
    str1.followPosition = false;
    str1.access.who = Access::Who::users; // there are users
    meant.stations = {canb, tidb, str1};
    EXPECT_EQ(read.settings, meant);
}

/// What `check` prints of a text.
std::string checked(const std::string& toml) {
    std::ostringstream out;
    printSettings(parseSettings(toml, "f"), "f", out);
    return out.str();
}

const std::string kGood = R"([[station]]
name = "CANB"
source = "tcp://a:1"
[caster]
listen = ["[::]:2101"]
)";
const std::string kAnother = R"([[station]]
name = "B"
source = "tcp://b:2"
)"; // lines 6 to 8

TEST(GatewaySettings, TellAFaultWhereItStands) {
    const struct {
        std::string toml; // from line 6 on
        const char* said; // and nothing else
    } cases[] = {
        {"lisen_tls = \"[::]:1\"", "f:6:13: caster/lisen_tls: error: key is not known\n"
                                   "    is listen_tls meant?"},
        {"country = \"au\"", "f:6:11: caster/country: error: \"au\" is no code"},
        {"operator = \"a\\u001bb\"",
         R"(f:6:12: caster/operator: error: "a\x1Bb" holds a control character)"},
        {"operator = \"\"", "f:6:12: caster/operator: error: is empty"},
        {"max_clients = 10001", "f:6:15: caster/max_clients: error: 10001 is out of range\n"
                                "    write a whole number from 1 to 10000"},
        {"max_per_user = 1.5", "f:6:16: caster/max_per_user: error: 1.5 is no whole number"},
        {"max_per_user = -1", "f:6:16: caster/max_per_user: error: -1 is out of range"},
        {"listen_tls = [\"[::]:1\"]\nkey = \"k\"",
         "f:6:14: caster/listen_tls: error: TLS needs a certificate"},
        {"certificate = \"c\"", "f:6:15: caster/certificate: warning: nothing uses c"},
        {"listen_tls = [\"[::]:1\", \"127.0.0.1:1\"]\nkey = \"k\"\ncertificate = \"c\"",
         "f:6:14: caster/listen_tls: error: 127.0.0.1:1 is taken already by [::]:1"},
        {"[gateway]\nengine = \"external\"",
         "f:7:10: gateway/engine: error: the address is missing"},
        {"[gateway]\naddress = \"127.0.0.1:1\"", "f:7:11: gateway/address: error: engines that"},
        {"[gateway]\nengine = \"external\"\naddress = \"127.0.0.1:65535\"\n" + kAnother,
         "f:8:11: gateway/address: error: 2 stations have no ports from 65535 on"},
        {"[gateway]\nengine = \"external\"\naddress = \"127.0.0.1:2100\"\n" + kAnother,
         "f:8:11: gateway/address: error: 127.0.0.1:2101 is taken already by [::]:2101"},
        {"[web]\nlisten = \"192.0.2.1:80\"",
         "f:7:10: web/listen: error: other machines would see the page"},
        {"[alarms]\ndelay = nan", "f:7:9: alarms/delay: error: nan is out of range"},
        {"[web]\nlisten = \"127.0.0.1\"", "f:7:10: web/listen: error: the port of 127.0.0.1 is "
                                          "missing\n    write [::]:8080 for any address"},
        {"[alarms]\nwebhook = [\"http://a/\", \"http://a:65536/\"]",
         "f:7:25: alarms/webhook: error: is no address of a web server"},
        {"[stations]", "f:6:1: stations: error: section is not known\n    is station meant?"},
        {"[[station]]\nname = \"B\"", "f:6:1: station B: error: source is missing"},
        {"[[station]]\nsource = \"tcp://b:2\"", "f:6:1: station 2: error: name is missing"},
        {"[[station]]\nname = \"a/b\"\nsource = \"tcp://b:2\"",
         "f:7:8: station 2/name: error: \"a/b\" is no name that a mountpoint and a file can have"},
        {"[[station]]\nname = \"CANB\"\nsource = \"tcp://b:2\"",
         "f:7:8: station CANB/name: error: another station has the name CANB"},
        {kAnother + "mountpoint = \"CANB\"",
         "f:9:14: station B/mountpoint: error: another station has the mountpoint CANB"},
        {kAnother + "push = [\"tcp://c:1\",\n  \"ntrip://c/M\"]",
         "f:10:3: station B/push: error: ntrip is no scheme of an output\n"
         "    write ntrip-source://"},
        {kAnother + "push = [\"tcp://c:1\", \"tcp://c:1\"]",
         "f:9:22: station B/push: error: tcp://c:1 stands here already"},
        {kAnother + "push = \"tcp-listen://[::1]:2101\"",
         "f:9:8: station B/push: error: [::1]:2101 is taken already by [::]:2101"},
        {kAnother + "push = \"file:/srv/all\"", "f:9:8: station B/push: warning: /srv/all grows"},
        {kAnother + "position = [-4460.996, 2682.557, -3674.444]",
         "f:9:12: station B/position: error: [-4460.996, 2682.557, -3674.444] lies not near the "
         "Earth's surface\n"
         "    are they kilometres?"},
        {kAnother + "position = [1, 2]",
         "f:9:12: station B/position: error: [1, 2] is no list of three"},
        {kAnother + "position = \"fallow\"",
         "f:9:12: station B/position: error: \"fallow\" is none of its "
         "words\n    is follow meant?"},
        {kAnother + "offset = [3000, 4000, 100]",
         "f:9:10: station B/offset: error: [3000, 4000, 100] is longer than 5000 m"},
        {kAnother + "offset = [0, nan, 0]",
         "f:9:10: station B/offset: error: [0, nan, 0] is no list of three"},
        {kAnother + "clock = \"2026-02-29 00:00:00\"",
         "f:9:9: station B/clock: error: \"2026-02-29 00:00:00\" is no time of the calendar"},
        {kAnother + "rate = 0", "f:9:8: station B/rate: error: 0 is out of range"},
        {kAnother + "guard = nan", "f:9:9: station B/guard: error: nan is out of range"},
        {kAnother + "access = \"user\"",
         "f:9:10: station B/access: error: \"user\" is none of its words\n"
         "    is users meant?"},
        {kAnother + "access = [\"rover1\"]", "f:9:10: station B/access: error: there are no users"},
        {kAnother + "password = \"x\"", "f:9:12: station B/password: warning: nothing uses it"},
        {"[[station]]\nname = \"B\"\nsource = \"caster:\"",
         "f:8:10: station B/source: error: the password of the receiver that pushes is missing"},
        {kAnother + "ephemerides = \"caster:\"", "f:9:15: station B/ephemerides: error: a station"},
        {"[[station]]\nname = \"B\"\nsource = \"ntrip://localhost/B\"",
         "f:8:10: station B/source: error: the station gets its own stream through our caster: "
         "B from B\n    write the address of its receiver"},
        {"[[station]]\nname = \"B\"\nsource = \"ntrip://[::1]:2101/M\"\n"
         "[[station]]\nname = \"C\"\nmountpoint = \"M\"\n"
         "source = \"ntrip://127.0.0.2:2101/B\"",
         "f:8:10: station B/source: error: the station gets its own stream through our caster: "
         "B from C from B"},
        {"[[station]]\nname = \"B\"\nsource = \"ntrip://[::1]:2101/M\"\n"
         "[[station]]\nname = \"C\"\nmountpoint = \"M\"\n"
         "source = [\"tcp://a:2\", \"ntrip://127.0.0.2:2101/B\"]",
         "f:8:10: station B/source: warning: where no other source delivers, the station gets its "
         "own stream through our caster: B from C from B"},
        {"[[station]]\nname = \"B\"\nsource = \"caster:\"\npassword = \"x\"\n"
         "push = \"ntrip-source://:x@localhost/B\"",
         "f:8:10: station B/source: error: the station gets its own stream"},
        // what is missing, and may be in the line that cannot be read, is not told
        {"[[station]]\nname = \"B\"\nsource = ntrip://u:hunter2@h/M",
         "f:8:11: error: a text is not in quotation marks\n    write it as KEY = \"TEXT\""},
        {"country = AUS", "f:6:11: error: AUS is not in quotation marks\n    write it as"},
        {"operator = \"a\"\noperator = \"b\"", "f:7:12: error: a key or section stands a second"},
    };
    EXPECT_EQ(checked(kGood).find("f:"), checked(kGood).find("f: no findings"));
    for (const auto& c : cases) {
        const ReadSettings read = parseSettings(kGood + c.toml, "f");
        const std::string said = checked(kGood + c.toml);
        EXPECT_EQ(read.remarks.size(), 1U) << c.toml << "\n" << said;
        EXPECT_TRUE(said.starts_with(c.said)) << c.toml << "\n" << said;
        EXPECT_EQ(read.usable(), said.find(": error: ") == std::string::npos) << said;
    }
    EXPECT_NE(checked("").find("f: error: no station"), std::string::npos);
    // one that has the stream of another one, a caster elsewhere, and one behind a proxy
    EXPECT_NE(checked(kGood + "[[station]]\nname = \"B\"\nsource = [\"ntrip://localhost/CANB\", "
                              "\"ntrip://localhost:2102/B\", \"ntrips://localhost/B\", "
                              "\"ntrip://localhost/B?proxy=h:1\", \"ntrip://192.0.2.1/B\"]")
                  .find("f: no findings"),
              std::string::npos);
    EXPECT_NE(checked("[station]\nname = \"A\"").find("write [[station]]"), std::string::npos);
    EXPECT_NE(checked(kAnother).find("f:1:1: station B: warning: nobody gets"), std::string::npos);
}

TEST(GatewaySettings, AreReadOnAfterFaultsWithoutRepeatingThem) {
    const std::string said = checked("[[station]]\nname = 'A\nsource = true1hunter\n"
                                     "password = 12hunter\nofset = [1, 2, 3]\n"
                                     "rate = \"fast\"\npassword = hunter");
    for (const char* const part : {"f:2:", "f:3:", "f:4:", "f:5:9: station 1/ofset: error: ",
                                   "f:6:8: station 1/rate: error: ", "f:7:", ": it cannot work\n"})
        EXPECT_NE(said.find(part), std::string::npos) << part << "\n" << said;
    EXPECT_EQ(said.find("hunter"), std::string::npos) << said;
    EXPECT_EQ(said.find("missing"), std::string::npos) << said;
    const std::string numbers = checked(kGood + kAnother +
                                        "password = 7654321\npush = [7654321]\n"
                                        "pasword = 7654321\n[alarms]\nwebhook = 7654321");
    EXPECT_NE(numbers.find("f: 4 errors: it cannot work"), std::string::npos) << numbers;
    EXPECT_EQ(numbers.find("7654321"), std::string::npos) << numbers;
    // A section that cannot be read would leave its keys to the one before.
    const std::string section = checked(kGood + "[station]]\nname = \"B\"\nrate = \"fast\"");
    EXPECT_EQ(section.substr(0, 4), "f:6:") << section;
    EXPECT_NE(section.find("\nf: 1 error: it"), std::string::npos) << section;
}

TEST(GatewayCommandLine, IsSettingsWithoutAFile) {
    const std::vector<std::string> stations{"CANB=ntrip://u:p@h/M?gga=1,2,3", "B=caster:", "C",
                                            "D=", "a b=tcp://h:1"};
    const std::vector<std::string> listen{"127.0.0.1:0", "localhost:1"};
    ReadSettings read = settingsOfCommandLine(stations, listen);
    ASSERT_EQ(read.settings.stations.size(), 2U);
    EXPECT_EQ(read.settings.stations[0].sources[0],
              parseAddress("ntrip://u:p@h/M?gga=1,2,3", Use::source));
    EXPECT_EQ(read.settings.stations[0].mountpoint, "CANB");
    EXPECT_EQ(read.settings.caster.listen, (std::vector<HostPort>{{"127.0.0.1", 0}}));
    std::ostringstream out;
    printSettings(read, "command line", out);
    for (const char* const part :
         {"--listen: error: to listen takes an address, no name such as localhost",
          "--station: error: begins with no name",
          "--station D: error: the address of station D is missing\n    write NAME=ADDRESS",
          "station B/source: error: the password of the receiver"})
        EXPECT_NE(out.str().find(part), std::string::npos) << part << "\n" << out.str();
    read = settingsOfCommandLine(std::span(stations).first(1), {});
    EXPECT_EQ(read.settings.caster.listen, (std::vector<HostPort>{{"::", 2101}}));
}

} // namespace

} // namespace gateway
