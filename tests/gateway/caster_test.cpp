#include "gateway/certificate.h"
#include "gateway/running.h"

#include <stdlib.h>

// What the caster does for those whom it does not serve at once.

namespace running {

namespace {

/// The first line of an answer, or nothing where the connection ends without one.
std::string firstLine(const std::string& answer) {
    return answer.substr(0, answer.find('\r'));
}

} // namespace

TEST(Caster, SaysOfAStationThatHasMovedThatNothingComes) {
    Road road(3);
    auto& [ports, gateway, station, rover] = road;
    EXPECT_NE(answerTo(ports.caster, askOf("")).find(";none\r\n"), std::string::npos);
    const auto place = [](double offM) {
        ref::Vec3 site = kSite;
        site[0] += offM;
        return ref::frame(ref::write1005({.station = 1, .xyzM = site}));
    };
    ASSERT_TRUE(station.send(place(50)));
    ASSERT_TRUE(gateway.tells("alarm: moved")) << gateway.log();
    const std::string table = answerTo(ports.caster, askOf("CANB"));
    EXPECT_EQ(firstLine(table), "SOURCETABLE 200 OK");
    EXPECT_NE(table.find("STR;CANB;"), std::string::npos) << table;
    EXPECT_NE(table.find(" s, the position has moved\r\n"), std::string::npos) << table;
    const std::string version2 = "GET /CANB HTTP/1.1\r\nHost: x\r\nNtrip-Version: Ntrip/2.0\r\n"
                                 "User-Agent: NTRIP test/1\r\n\r\n";
    EXPECT_EQ(firstLine(answerTo(ports.caster, version2)), "HTTP/1.1 404 Not Found");
    EXPECT_EQ(gateway.count("127.0.0.1 is refused: the position has moved"), 1) << gateway.log();
    ASSERT_TRUE(station.send(place(0)));
    EXPECT_TRUE(eventually([port = road.ports.caster] {
        Client again(port);
        again.send(askOf("CANB"));
        return firstLine(again.head()) == "ICY 200 OK";
    })) << gateway.log();
}

TEST(Caster, SaysWhyAPushIsNotTaken) {
    const Ports ports, listens;
    RunningGateway gateway(
        ports, "source = \"caster:\"\npassword = \"letmein\"\n" + std::string(kPosition) +
                   "[[station]]\nname = \"FILE\"\nsource = " + "\"tcp-listen://127.0.0.1:" +
                   std::to_string(listens.station) + "\"\npassword = \"letmein\"\n" + kPosition);
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    // The station takes no pushes, whatever the password; nobody is locked out for that.
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(answerTo(ports.caster, std::string("SOURCE ") + (i % 2 ? "letmein" : "wrong") +
                                             " /FILE\r\n\r\n"),
                  "ERROR - Bad Mountpoint\r\n");
    EXPECT_EQ(gateway.count("FILE: 127.0.0.1 is refused: it pushes a stream, and no source of the "
                            "station is caster:"),
              1)
        << gateway.log();
    EXPECT_EQ(answerTo(ports.caster, "SOURCE wrong /CANB\r\n\r\n"), "ERROR - Bad Password\r\n");

    Client receiver(ports.caster);
    ASSERT_TRUE(receiver.send("POST /CANB HTTP/1.1\r\nHost: x\r\nNtrip-Version: Ntrip/2.0\r\n"
                              "Authorization: Basic Omxl" +
                              std::string("dG1laW4=\r\n") +
                              "Transfer-Encoding: chunked\r\n\r\n2\r\nab\r\nno chunk\r\n"));
    EXPECT_EQ(firstLine(receiver.rest()), "HTTP/1.1 200 OK");
    EXPECT_TRUE(gateway.tells(": no readable chunk in what it sends; waits for another"))
        << gateway.log();
    EXPECT_TRUE(gateway.tells("caster: connected from 127.0.0.1:"));

    // A receiver that connects anew takes the place of its old connection, and that is told.
    const std::string source = "tcp-listen://127.0.0.1:" + std::to_string(listens.station);
    const Client before(listens.station);
    ASSERT_TRUE(gateway.tells(source + ": connected from 127.0.0.1:")) << gateway.log();
    const Client after(listens.station);
    EXPECT_TRUE(gateway.tells(", in place of 127.0.0.1:")) << gateway.log();
    EXPECT_TRUE(before.ended());
}

TEST(Caster, TellsOnceOfAMountpointThatIsNone) {
    const Ports ports;
    RunningGateway gateway(ports, stationSource(ports) + kPosition);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(firstLine(answerTo(ports.caster, askOf("canb"))), "SOURCETABLE 200 OK");
        EXPECT_EQ(firstLine(answerTo(ports.caster, "SOURCE secret /NEW\r\n\r\n")),
                  "ERROR - Bad Mountpoint");
    }
    EXPECT_EQ(gateway.count("127.0.0.1 asks for the mountpoint canb, of which there is none"), 1);
    EXPECT_EQ(gateway.count("127.0.0.1 pushes to the mountpoint NEW, of which there is none"), 1);
    // Somebody tries names by the thousand.
    for (int i = 0; i < 1100; ++i)
        answerTo(ports.caster, askOf("NAME" + std::to_string(i)));
    EXPECT_LE(gateway.count("of which there is none"), 1000);
    EXPECT_EQ(gateway.count("further ones are not told"), 1);
}

TEST(Caster, ExaminesNoMorePasswordsThanItTakesWrongOnes) {
    const Ports ports;
    const UsersFile users(rightUser("bob"));
    RunningGateway gateway(ports, stationSource(ports) + kPosition, users.setting());
    std::vector<std::unique_ptr<Client>> guesses;
    for (int i = 0; i < 60; ++i) {
        guesses.push_back(std::make_unique<Client>(ports.caster));
        ASSERT_TRUE(guesses.back()->connected());
    }
    for (const auto& one : guesses) // bob:wrong
        EXPECT_TRUE(one->send(askOf("CANB", "Authorization: Basic Ym9iOndyb25n\r\n")));
    int answered = 0;
    for (const auto& one : guesses)
        answered += one->rest().find("401 Unauthorized") != std::string::npos ? 1 : 0;
    EXPECT_EQ(answered, 10);
    EXPECT_EQ(gateway.count("wrong user or password"), 10) << gateway.log();
    EXPECT_EQ(gateway.count("is refused: ten wrong passwords in a minute"), 1);
}

TEST(Caster, GoesOnWithARoverThatHasNothingMoreToSay) {
    Road road(3);
    auto& [ports, gateway, station, rover] = road;
    auto script = std::make_unique<Client>(ports.caster);
    ASSERT_TRUE(script->send(askOf("CANB")));
    script->endSending();
    EXPECT_EQ(script->head(), kGranted);
    ref::Sky sky = skyOfStation();
    for (int i = 10; i < 13; ++i) {
        ASSERT_TRUE(station.send(epochOf(sky, kNow + i * 1.0)));
        EXPECT_EQ(wholeEpochs(script->receive(epochs(1))), 1) << gateway.log();
    }
    script.reset(); // which is noticed with the next epoch
    ASSERT_TRUE(station.send(epochOf(sky, kNow + 13.0)));
    EXPECT_TRUE(gateway.tells("has gone")) << gateway.log();
    // Of one that goes at once it is noticed also while nothing comes from the station.
    std::make_unique<Client>(ports.caster, askOf("CANB"), kGranted).reset();
    EXPECT_TRUE(eventually([&] { return road.gateway.count(" gone") == 2; })) << gateway.log();
}

TEST(Caster, GoesOnWithAPeerThatOnlyReads) {
    Peer output;
    output.listen();
    const std::string address = "tcp://127.0.0.1:" + std::to_string(output.port);
    Road road(3, "push = [\"" + address + "\"]\n");
    ASSERT_TRUE(output.accept());
    output.halfClose();
    ref::Sky sky = skyOfStation();
    for (int i = 10; i < 13; ++i) {
        ASSERT_TRUE(road.station.send(epochOf(sky, kNow + i * 1.0)));
        EXPECT_GE(wholeFrames(output.exchange({}, 1, 1)), 1) << road.gateway.log();
    }
    EXPECT_EQ(road.gateway.count("next attempt"), 0) << road.gateway.log();
    output.drop();
    ASSERT_TRUE(road.station.send(epochOf(sky, kNow + 13.0)));
    EXPECT_TRUE(road.gateway.tells("output " + address + ": ")) << road.gateway.log();
    EXPECT_TRUE(road.gateway.tells("; next attempt in ")) << road.gateway.log();
}

TEST(Tls, SaysWhyItDoesNotComeAbout) {
    const struct {
        const char* what;
        int fromDay, toDay;
        bool known; // the authority of the certificate, to the machine
        const char *host, *source, *listener;
    } cases[] = {
        {"expired", -3, -1, true, "localhost", "the certificate is not accepted: it has expired",
         "the other side refuses: certificate expired"},
        {"unknown", -1, 1, false, "localhost", "the certificate is not accepted: it is self-signed",
         "the other side refuses: unknown CA"},
        {"another name", -1, 1, true, "127.0.0.1",
         "the certificate is not accepted: it is not one for this address",
         "the other side refuses: bad certificate"},
        {"no TLS", -1, 1, true, "", "no TLS is spoken on the other side",
         "begins TLS where none is spoken"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const Ports ports, tls;
        const fs::path folder = fs::path(testing::TempDir()) / ("tls_" + std::to_string(getpid()));
        fs::create_directories(folder);
        const Pair made = pair(c.fromDay, c.toDay);
        std::ofstream(folder / "key") << made.key;
        std::ofstream(folder / "certificate") << made.certificate;
        fs::permissions(folder / "key", fs::perms::owner_read | fs::perms::owner_write);
        if (c.known)
            setenv("SSL_CERT_FILE", (folder / "certificate").c_str(), 1);
        const std::string host = *c.host ? c.host : "localhost";
        RunningGateway gateway(ports,
                               "source = \"ntrips://" + host + ":" +
                                   std::to_string(*c.host ? tls.caster : ports.caster) +
                                   "/NONE\"\n" + kPosition,
                               "listen_tls = [\"127.0.0.1:" + std::to_string(tls.caster) +
                                   "\"]\ncertificate = \"" + (folder / "certificate").string() +
                                   "\"\nkey = \"" + (folder / "key").string() + "\"\n");
        unsetenv("SSL_CERT_FILE");
        EXPECT_TRUE(gateway.tells(c.source)) << gateway.log();
        EXPECT_TRUE(gateway.tells(c.listener)) << gateway.log();
        for (int i = 0; i < 3; ++i) // rovers without TLS
            answerTo(tls.caster, askOf("CANB"));
        EXPECT_TRUE(gateway.tells("127.0.0.1 on the TLS port: no TLS is spoken on the other side"))
            << gateway.log();
        EXPECT_EQ(gateway.count("on the TLS port: no TLS is spoken"), 1) << gateway.log();
        fs::remove_all(folder);
    }
}

} // namespace running
