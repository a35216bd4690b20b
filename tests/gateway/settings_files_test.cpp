#include "check.h"
#include "gateway/certificate.h"
#include "gateway/settings/CheckSettings.h"
#include "gnss/Clock.h"
#include "reference/standard/frame.h"
#include "reference/standard/station.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <sstream>

// The files, folders, devices and ports that settings name.

namespace gateway {

namespace {

namespace fs = std::filesystem;

const std::string kOtherStation = "[[station]]\nname = \"B\"\nsource = \"tcp://b:2\"\n";

class GatewayFiles : public testing::Test {
protected:
    GatewayFiles() {
        write("engine", "#!/bin/sh\n", 0700);
        write("empty", "", 0600);
    }
    void write(const std::string& name, const std::string& content, unsigned mode) const {
        fs::permissions(scratch.write(name, content), fs::perms{mode});
    }
    /// What is printed of a file with these sections beside the engine, without the folder.
    std::string checkedFile(const std::string& toml, int status, unsigned mode = 0600) const {
        write("gateway.toml",
              replaced("[gateway]\nengine = \"DIR/engine\"\n" + toml + "\n[web]\nlisten = []\n",
                       "DIR/", scratch.path),
              mode);
        std::ostringstream out;
        EXPECT_EQ(runCheck(scratch.path + "gateway.toml", out), status) << out.str();
        return replaced(out.str(), scratch.path, "DIR/");
    }
    check::Scratch scratch;
};

const std::string kStationOfFile = "state = \"DIR/state\"\n[caster]\nlisten = \"127.0.0.1:0\"\n"
                                   "[[station]]\nname = \"CANB\"\n";

TEST_F(GatewayFiles, ThatSuitAreTold) {
    write("users", "rover1:$2y$10$0MjulOGvWwI7k39L30j6j.3KJa3A4sS1OqFdFc/Sy9mgd2QkFVfEa\n", 0600);
    const auto message = ref::frame(ref::write1005({.station = 1, .xyzM = {1.0, 2.0, 3.0}}));
    write("a.rtcm", "junk" + std::string(message.begin(), message.end()), 0600);
    const Pair good = pair(-1, 100);
    write("cert.pem", good.certificate, 0644);
    write("key.pem", good.key, 0600);
    EXPECT_EQ(checkedFile(replaced(kStationOfFile, ":0\"\n", R"(:0"
listen_tls = "[::1]:0"
certificate = "DIR/cert.pem"
key = "DIR/key.pem"
users = "DIR/users"
)") + R"(source = ["ntrip://user:hunter2@h/M", "file:DIR/a.rtcm?loop"]
access = ["rover1"]
offset = [1, 2.5, -3]
push = ["ntrip-source://:hunter2@h:2102/M", "file:DIR/%Y%m%d.rtcm"]
)",
                          0),
              R"(    rovers connect to 127.0.0.1:0
    over TLS to [::1]:0
    station CANB: ntrip://user@h:2101/M, else file:DIR/a.rtcm?loop
        to mountpoint CANB for rover1, 1 m east, 2.5 m north, -3 m up
        to ntrip-source://h:2102/M
        to file:DIR/%Y%m%d.rtcm
DIR/gateway.toml: no findings
)");
}

TEST_F(GatewayFiles, ThatDoNotSuitAreTold) {
    const Pair late = pair(-20, -10), soon = pair(-20, 10), early = pair(10, 100);
    write("late.pem", late.certificate, 0644);
    write("soon.pem", soon.certificate, 0644);
    write("early.pem", early.certificate, 0644);
    write("late.key", late.key, 0604);
    write("users", "rover1:hunter2\n", 0644);
    write("nmea", "$GPGGA,,,,,,0,,,,,,,,*66\r\n", 0600);
    const auto caster = [](const std::string& keys) {
        return replaced(kStationOfFile, "[caster]\n", "[caster]\n" + keys) +
               "source = \"tcp://a:1\"\n";
    };
    const auto tls = [&](const std::string& certificate, const std::string& key) {
        return caster("listen_tls = \"127.0.0.1:0\"\ncertificate = \"DIR/" + certificate +
                      "\"\nkey = \"DIR/" + key + "\"\n");
    };
    const struct {
        std::string toml;
        std::vector<const char*> said; // and no more findings
        int status;
    } cases[] = {
        {"state = \"DIR/engine\"\n[caster]\nlisten = \"127.0.0.1:0\"\n" + kOtherStation,
         {":3:9: gateway/state: error: DIR/engine cannot be written by this user"},
         1},
        {"state = \"/proc/none/x\"\n[caster]\nlisten = \"127.0.0.1:0\"\n" + kOtherStation,
         {":3:9: gateway/state: error: /proc/none/x cannot be written by this user (/proc: "},
         1},
        {kStationOfFile + "source = \"file:DIR/none\"",
         {":8:10: station CANB/source: error: DIR/none cannot be read\n    No such file"},
         1},
        {kStationOfFile + "source = \"serial:/dev/none\"",
         {":8:10: station CANB/source: warning: /dev/none is not there"},
         0},
        {kStationOfFile + "source = \"tcp://a:1\"\npush = \"file:DIR/engine/%Y\"",
         {":9:8: station CANB/push: error: DIR/engine is no folder that is there"},
         1},
        {kStationOfFile + "source = \"serial:DIR/nmea\"",
         {":8:10: station CANB/source: error: DIR/nmea is no serial port"},
         1},
        {kStationOfFile + "source = \"file:DIR/empty\"\npush = \"file:DIR/empty\"",
         {":8:10: station CANB/source: warning: DIR/empty is empty",
          ":9:8: station CANB/push: warning: DIR/empty grows without end",
          ":9:8: station CANB/push: error: DIR/empty is a recording that a station reads"},
         1},
        {kStationOfFile + "source = \"tcp://a:1\"\npush = \"file:/tmp\"",
         {":9:8: station CANB/push: warning: /tmp grows without end",
          ":9:8: station CANB/push: error: /tmp is a folder"},
         1},
        {kStationOfFile + "source = \"tcp://a:1\"\npush = \"file:DIR/none/x-%Y\"",
         {":9:8: station CANB/push: error: DIR/none is no folder that is there\n"
          "    make it: mkdir -p DIR/none"},
         1},
        {kStationOfFile + "source = \"tcp://a:1\"\npush = \"file:/proc/%Y\"",
         {":9:8: station CANB/push: error: no file can be made in /proc: "},
         1},
        {kStationOfFile + "source = [\"file:DIR/engine\", \"file:DIR/empty\"]\n"
                          "ephemerides = \"file:DIR/nmea\"",
         {":8:10: station CANB/source: error: DIR/engine holds no RTCM 3 message\n",
          ":8:10: station CANB/source: warning: DIR/empty is empty",
          ":9:15: station CANB/ephemerides: error: DIR/nmea holds no RTCM 3 message: it looks "
          "like NMEA\n"},
         1},
        {tls("none", "late.key"),
         {"caster/certificate: error: DIR/none cannot be read",
          "caster/key: warning: DIR/late.key is secret, and everybody can read it (mode 0604)\n"
          "    chmod o-r DIR/late.key"},
         1},
        {tls("empty", "empty"),
         {"caster/certificate: error: DIR/empty holds no certificate",
          "caster/key: error: DIR/empty holds no key"},
         1},
        {tls("soon.pem", "late.key"),
         {"caster/certificate: warning: DIR/soon.pem expires on ", "caster/key: warning: ",
          "caster/key: error: DIR/late.key is not the key of the certificate"},
         1},
        {tls("late.pem", "late.key"),
         {"caster/certificate: warning: DIR/late.pem expired on ", "caster/key: warning: "},
         0},
        {tls("early.pem", "late.key"),
         {"caster/certificate: warning: DIR/early.pem becomes valid only on ",
          "caster/key: warning: ", "is not the key"},
         1},
        {caster("users = \"DIR/users\"\n") + "access = [\"rover1\"]",
         {"caster/users: warning: DIR/users holds hashes of passwords, and everybody",
          "caster/users: warning: DIR/users has no users",
          "station CANB/access: warning: rover1 is no user",
          "DIR/users:1: warning: rover1: what follows the name is no hash"},
         0},
        {caster("users = \"DIR/\"\n"), {"caster/users: error: DIR/ cannot be read"}, 1},
    };
    for (const auto& c : cases) {
        const std::string said = checkedFile(c.toml, c.status);
        std::size_t findings = 0;
        for (const char* const severity : {": error: ", ": warning: "})
            for (std::size_t at = said.find(severity); at != std::string::npos;
                 at = said.find(severity, at + 1))
                ++findings;
        EXPECT_EQ(findings, c.said.size()) << said;
        for (const char* const part : c.said)
            EXPECT_NE(said.find(part), std::string::npos) << part << "\n" << said;
        EXPECT_EQ(said.find("hunter2"), std::string::npos) << said;
    }
    EXPECT_NE(checkedFile(kStationOfFile + "source = \"ntrip://u:p@h/M\"", 0, 0644)
                  .find("DIR/gateway.toml: warning: DIR/gateway.toml holds passwords"),
              std::string::npos);
    std::ostringstream out;
    EXPECT_EQ(runCheck(scratch.path + "none.toml", out), 1);
    EXPECT_NE(out.str().find("cannot be read\n    No such file"), std::string::npos);
}

TEST_F(GatewayFiles, ThatNamePortsOfOthersAreTold) {
    boost::asio::io_context context;
    using boost::asio::ip::tcp;
    const tcp::endpoint anyPort(boost::asio::ip::address_v4::loopback(), 0);
    std::vector<tcp::acceptor> listeners;
    std::vector<std::string> at;
    for (int i = 0; i < 4; ++i) {
        listeners.emplace_back(context, anyPort);
        at.push_back("127.0.0.1:" + std::to_string(listeners.back().local_endpoint().port()));
    }
    listeners.erase(listeners.begin() + 2, listeners.end());
    const std::string &one = at[0], &two = at[1], &free = at[2], &alsoFree = at[3];
    const std::string any = "127.0.0.1:0", alone = "a program listens already on ";
    const auto warning = [](const std::string& place, const std::string& wrong) {
        return "DIR/gateway.toml" + place + ": warning: " + wrong + "\n    ";
    };
    const struct {
        std::string caster, source, push;
        std::vector<std::string> said;
    } cases[] = {
        {one, free, alsoFree, {warning(":5:10: caster/listen", alone + one)}},
        {any, one, free, {warning(":8:10: station CANB/source", alone + one)}},
        {two,
         free,
         one,
         {warning(":5:10: caster/listen", alone + two),
          warning(":9:8: station CANB/push", alone + one)}},
        {any, one, two, {warning("", "programs listen already on " + one + ", " + two)}},
        {"192.0.2.1:0",
         free,
         alsoFree,
         {warning(":5:10: caster/listen",
                  "nobody can listen on 192.0.2.1:0: Cannot assign requested address")}},
        {any, free, alsoFree, {}},
    };
    for (const auto& c : cases) {
        const std::string all =
            checkedFile("state = \"DIR/state\"\n[caster]\nlisten = [\"" + c.caster +
                            "\"]\n[[station]]\nname = \"CANB\"\nsource = \"tcp-listen://" +
                            c.source + "\"\npush = \"tcp-listen://" + c.push + "\"\n",
                        0);
        std::size_t begin = 0; // each in its turn, and no other
        for (const std::string& line : c.said) {
            begin = all.find(line, begin);
            EXPECT_NE(begin, all.npos) << line << "\n" << all;
        }
        const std::string count = std::to_string(c.said.size());
        EXPECT_TRUE(all.ends_with(c.said.empty()       ? ": no findings\n"
                                  : c.said.size() == 1 ? ": 1 warning\n"
                                                       : ": " + count + " warnings\n"))
            << all;
    }
}

TEST_F(GatewayFiles, ThatNameAPortTwiceAreToldOnceThatAnotherHasIt) {
    boost::asio::io_context context;
    using boost::asio::ip::tcp;
    const tcp::acceptor other(context, {boost::asio::ip::address_v4::loopback(), 0});
    const std::string port = std::to_string(other.local_endpoint().port());
    const std::string said = checkedFile("state = \"DIR/state\"\n[caster]\nlisten = [\"[::1]:0\", "
                                         "\"127.0.0.1:" +
                                             port +
                                             "\"]\n[[station]]\n"
                                             "name = \"CANB\"\nsource = \"tcp-listen://0.0.0.0:" +
                                             port + "\"\n",
                                         1);
    EXPECT_NE(said.find(":8:10: station CANB/source: error: 0.0.0.0:" + port +
                        " is taken already by 127.0.0.1:" + port),
              said.npos)
        << said;
    EXPECT_NE(said.find(":5:10: caster/listen: warning: a program listens already on 127.0.0.1:"),
              said.npos)
        << said;
    EXPECT_NE(said.find(": 1 error, 1 warning: "), said.npos) << said;
}

} // namespace

} // namespace gateway
