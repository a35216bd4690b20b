#include "ctl/status/StatusFile.h"
#include "gateway/running.h"
#include "manager_socket.h"

#include "gnss/Clock.h"

#include <sys/ptrace.h>

// One promise of the gateway a test.

namespace running {

namespace {

ref::Expectation plainAnswer() {
    ref::Expectation e;
    e.answer = ref::Answer::complete;
    e.output = ref::Output::rtcm3;
    e.siteM = kSite;
    e.near = kNow;
    // those of the packaged list, which is the gateway's
    std::ifstream list(fs::path(kSourceFolder) / "packaging/kubernetes/station/config/session.obj");
    for (std::string line; std::getline(list, line);)
        if (line.size() > 4 && line[0] == ' ' && line[4] == ' ')
            e.satellites.insert(line.substr(1, 3));
    e.satellites.insert({"C59", "C60", "C61", "C62"}); // of the complete answer
    return e;
}

void expectRight(const Bytes& stream, const Bytes& received, int epochs) {
    const ref::Verdict v = ref::judge(stream, received, plainAnswer());
    for (const std::string& fault : v.faults)
        ADD_FAILURE() << fault;
    EXPECT_EQ(v.wrong, 0);
    EXPECT_EQ(v.replies, epochs);
    for (const char system : {'G', 'R', 'E', 'C'}) {
        EXPECT_EQ(v.tally.at(system).kept, v.tally.at(system).answerable) << system;
        EXPECT_GT(v.tally.at(system).kept, 100) << system;
    }
}

} // namespace

TEST(Gateway, BringsEveryEpochOfAStationToARover) {
    const Ports ports;
    RunningGateway gateway(ports, stationSource(ports) + kPosition);
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    Client rover(ports.caster, askOf("CANB"), kGranted);
    const Bytes stream = streamOf(30);
    const Client station(ports.station);
    ASSERT_TRUE(station.send(stream));
    expectRight(stream, rover.receive(epochs(30)), 30);

    // A rover that comes now gets place, names and ephemerides at once, and then what comes.
    Client late(ports.caster, askOf("CANB"), kGranted);
    const Bytes more = streamOf(3, kNow + 30.0);
    ASSERT_TRUE(station.send(more));
    std::map<int, int> types;
    for (const ref::Frame& f : ref::goodFrames(late.receive(epochs(3))))
        ++types[f.type];
    EXPECT_GE(types[1005] + types[1006], 1);
    EXPECT_GE(types[1019], 8);
    EXPECT_EQ(types[1077], 3);
    EXPECT_EQ(gateway.end(SIGTERM), 0);
}

TEST(Gateway, TakesItsPlaceFromTheStreamAndStopsWhenItMoves) {
    const Ports ports;
    RunningGateway gateway(ports, stationSource(ports));
    const Client station(ports.station);
    const auto place = [](const ref::Vec3& xyzM) {
        return ref::frame(ref::write1005({.station = 1, .xyzM = xyzM}));
    };
    Bytes stream = place(kSite);
    append(stream, streamOf(3));
    ASSERT_TRUE(station.send(stream));
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    Client rover(ports.caster, askOf("CANB"), kGranted);
    ASSERT_TRUE(station.send(streamOf(5, kNow + 3.0)));
    EXPECT_GE(wholeEpochs(rover.receive(epochOfTime(kNow + 7.0))), 5);

    ref::Vec3 moved = kSite;
    moved[0] += 50;
    ASSERT_TRUE(station.send(place(moved)));
    ASSERT_TRUE(gateway.tells("alarm: moved: the stream states the position")) << gateway.log();
    ASSERT_TRUE(station.send(streamOf(5, kNow + 8.0)));
    ASSERT_TRUE(station.send(place(kSite)));
    ASSERT_TRUE(station.send(streamOf(2, kNow + 13.0)));
    EXPECT_EQ(wholeEpochs(rover.receive(epochOfTime(kNow + 14.0))), 2)
        << "none of the five that came moved";
    EXPECT_EQ(gateway.count("50.00 m from -4467074.3577"), 1) << "told once";

    // Who reads the settings again takes the new place; from there it moves anew.
    ASSERT_TRUE(station.send(place(moved)));
    gateway.signal(SIGHUP);
    ASSERT_TRUE(gateway.tells("alarm ends: moved")) << gateway.log();
    const Client again(ports.station);
    ASSERT_TRUE(again.send(place(moved)));
    ASSERT_TRUE(gateway.tells("CANB: the stream states the position -4467024.3577"))
        << gateway.log();
    EXPECT_EQ(gateway.count("Address already in use"), 0) << gateway.log();
    ASSERT_TRUE(again.send(place(kSite)));
    EXPECT_TRUE(eventually([&] { return gateway.count("alarm: moved") == 2; })) << gateway.log();
}

TEST(Gateway, StartsAnEngineAgainThatDies) {
    Road road(3);
    const RunningGateway& gateway = road.gateway;
    const std::string status = gateway.status();
    const pid_t engine = engineOf(gateway);
    ASSERT_GT(engine, 0);
    kill(engine, SIGKILL);
    ASSERT_TRUE(gateway.tells("started again in")) << gateway.log();
    ASSERT_TRUE(eventually([&] { return gateway.status() != status; }));
    ASSERT_TRUE(gateway.engineConnected());
    // It gets the ephemerides that came before: no satellite waits for new ones.
    ref::Sky sky = skyOfStation();
    ASSERT_TRUE(road.station.send(epochOf(sky, kNow + 10.0)));
    EXPECT_EQ(wholeEpochs(road.rover.receive(epochs(1))), 1);
}

TEST(Gateway, IsQuietAboutEphemeridesThatAreYetToCome) {
    const Ports ports;
    RunningGateway gateway(ports, stationSource(ports) + kPosition);
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    const Client station(ports.station);
    ref::Sky sky = skyOfStation();
    std::uint64_t missing = 0;
    for (int i = 0; i < 100 && missing == 0; ++i) {
        ASSERT_TRUE(station.send(epochOf(sky, kNow + i * 1.0)));
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        missing = ctl::status::StatusFile("status.json", gateway.status())
                      .count("systems/G/left_out_count/no ephemeris");
    }
    EXPECT_GT(missing, 4U) << gateway.status();
    EXPECT_EQ(gateway.count("doesn't have"), 0) << gateway.log();
}

TEST(Gateway, AsksForThePasswordThatMkpasswdHashed) {
    const Ports ports;
    const UsersFile users(rightUser("bob"));
    RunningGateway gateway(ports, stationSource(ports) + kPosition, users.setting());
    const auto statusOf = [&](const std::string& headers) {
        Client rover(ports.caster);
        rover.send(askOf("CANB", headers));
        const std::string head = rover.head();
        return head.substr(0, head.find('\r'));
    };
    EXPECT_EQ(statusOf(""), "HTTP/1.0 401 Unauthorized");
    EXPECT_EQ(statusOf("Authorization: Basic Ym9iOndyb25n\r\n"), "HTTP/1.0 401 Unauthorized");
    EXPECT_EQ(statusOf("Authorization: Basic Ym9iOnJpZ2h0\r\n"), "ICY 200 OK"); // bob:right
    EXPECT_EQ(gateway.log().find("right"), std::string::npos);
}

TEST(Gateway, SendsTheRoverAwayWhoseUserIsTakenOutOfTheFile) {
    const Ports ports;
    const UsersFile users(rightUser("bob") + rightUser("ann"));
    RunningGateway gateway(ports, stationSource(ports) + kPosition, users.setting());
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    Client bob(ports.caster, askOf("CANB", "Authorization: Basic Ym9iOnJpZ2h0\r\n"), kGranted);
    Client ann(ports.caster, askOf("CANB", "Authorization: Basic YW5uOnJpZ2h0\r\n"), kGranted);
    users.write(rightUser("ann"));
    gateway.signal(SIGHUP);
    EXPECT_EQ(bob.rest(), "");
    EXPECT_TRUE(gateway.tells("(bob) is sent away: its user is gone")) << gateway.log();
    const Client station(ports.station);
    ASSERT_TRUE(station.send(streamOf(3)));
    EXPECT_EQ(wholeEpochs(ann.receive(epochs(3))), 3);
}

TEST(Gateway, CutsOffTheRoverThatStopsReadingAndNobodyElse) {
    const Ports ports;
    RunningGateway gateway(ports, stationSource(ports) + kPosition);
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    Client deaf(ports.caster, askOf("CANB"), kGranted);
    Client rover(ports.caster, askOf("CANB"), kGranted);
    const Client station(ports.station);
    ASSERT_TRUE(station.send(streamOf(1)));
    EXPECT_EQ(wholeEpochs(rover.receive(epochs(1))), 1);
    ref::Sky sky = skyOfStation();
    int missing = 0;
    // More than the kernel takes for a rover: some 2 kB an epoch.
    for (int i = 1; i < 1000 && gateway.log().find("is cut off: ") == std::string::npos; ++i) {
        ASSERT_TRUE(station.send(epochOf(sky, kNow + i * 1.0)));
        missing += wholeEpochs(rover.receive(epochs(1))) == 1 ? 0 : 1;
    }
    EXPECT_EQ(missing, 0);
    EXPECT_TRUE(gateway.tells("is cut off: ")) << gateway.log();
}

TEST(Gateway, TakesAStreamThatAReceiverPushes) {
    const Ports ports;
    RunningGateway gateway(ports, "source = \"caster:\"\npassword = \"letmein\"\n" +
                                      std::string(kPosition));
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    Client rover(ports.caster, askOf("CANB"), kGranted);
    Client wrong(ports.caster), receiver(ports.caster), second(ports.caster);
    ASSERT_TRUE(wrong.send(std::string("SOURCE nonsense /CANB\r\nSource-Agent: NTRIP x\r\n\r\n")));
    EXPECT_EQ(wrong.rest(), "ERROR - Bad Password\r\n");
    const std::string source = "SOURCE letmein /CANB\r\nSource-Agent: NTRIP x\r\n\r\n";
    ASSERT_TRUE(receiver.send(source));
    EXPECT_EQ(receiver.head().substr(0, 10), "ICY 200 OK");
    const Bytes stream = streamOf(5);
    ASSERT_TRUE(receiver.send(stream));
    expectRight(stream, rover.receive(epochs(5)), 5);
    ASSERT_TRUE(second.send(source));
    EXPECT_EQ(second.rest(), "ERROR - Mount Point Taken or Invalid\r\n");
    // The station changes: whoever pushed to the one before comes anew.
    std::ofstream(gateway.folder / "gateway.toml", std::ios::app) << "offset = [0, 200, 0]\n";
    gateway.signal(SIGHUP);
    EXPECT_TRUE(receiver.ended());
    EXPECT_TRUE(rover.ended());
    ASSERT_TRUE(gateway.tells("pushes its stream")) << gateway.log();
    const int connected = gateway.count("pushes its stream");
    Client again(ports.caster, source, "ICY 200 OK\r\n\r\n"),
        next(ports.caster, askOf("CANB"), kGranted);
    EXPECT_EQ(gateway.count("pushes its stream"), connected + 1);
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    ASSERT_TRUE(again.send(stream));
    EXPECT_EQ(wholeEpochs(next.receive(epochs(5))), 5) << gateway.log();
}

TEST(Gateway, SpeaksHttpWithClientsOfOthers) {
    const Ports ports;
    RunningGateway gateway(ports, stationSource(ports) + kPosition);
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    if (std::system("command -v curl >/dev/null") != 0)
        GTEST_SKIP() << "curl is not installed";
    const std::string url = "http://127.0.0.1:" + std::to_string(ports.caster);
    const Client station(ports.station);
    Client rover(ports.caster, askOf("CANB"), kGranted);
    ASSERT_TRUE(station.send(streamOf(3)));
    EXPECT_EQ(wholeEpochs(rover.receive(epochs(3))), 3);
    const std::string table = runInShell("/usr/bin/env", "curl -s " + url + "/").output;
    EXPECT_NE(table.find("STR;CANB;CANB;RTCM 3.3;"), std::string::npos) << table;
    EXPECT_TRUE(table.ends_with("ENDSOURCETABLE\r\n")) << table;
    const fs::path file = gateway.folder / "got";
    const auto got = [&] {
        const std::string bytes = readFile(file);
        return wholeEpochs(Bytes(bytes.begin(), bytes.end()));
    };
    std::thread more([&] {
        EXPECT_TRUE(gateway.tells("curl"));
        EXPECT_TRUE(station.send(streamOf(4, kNow + 3.0)));
        EXPECT_TRUE(eventually([&] { return got() >= 4; }));
        gateway.signal(SIGTERM); // and with it the stream ends
    });
    runInShell("/usr/bin/env",
               "curl -sN -H 'Ntrip-Version: Ntrip/2.0' " + url + "/CANB -o " + file.string());
    more.join();
    EXPECT_EQ(got(), 4);
}

TEST(Gateway, OutlivesClientsThatGoEarly) {
    const Ports ports;
    RunningGateway gateway(ports, stationSource(ports) + kPosition);
    const std::string longHead = "GET /CANB HTTP/1.0\r\n" + std::string(9000, 'X') + "\r\n\r\n";
    for (const std::string& begun : {std::string(), std::string("x"), std::string("GET /CANB HT"),
                                     std::string("\x16\x03\x01\x02", 4), longHead}) {
        const Client client(ports.caster);
        ASSERT_TRUE(client.connected()) << gateway.log();
        client.send(begun);
    }
    Client client(ports.caster);
    ASSERT_TRUE(client.send(longHead));
    EXPECT_EQ(client.head().substr(0, 24), "HTTP/1.0 400 Bad Request");
    EXPECT_EQ(gateway.end(SIGTERM), 0) << gateway.log();
}

TEST(Gateway, ListensOnWhenItsStationComesAnew) {
    const Ports ports;
    RunningGateway gateway(ports, stationSource(ports) + kPosition);
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    Client rover(ports.caster, askOf("CANB"), kGranted);
    for (int i = 0; i < 3; ++i) {
        const Client station(ports.station);
        ASSERT_TRUE(station.send(streamOf(2, kNow + 2.0 * i)));
        EXPECT_EQ(wholeEpochs(rover.receive(epochs(2))), 2) << i;
    }
}

TEST(Gateway, GoesOnWithTheSecondSourceWhereTheFirstIsGone) {
    const Ports ports, gone;
    RunningGateway gateway(ports, "source = [\"tcp://127.0.0.1:" + std::to_string(gone.station) +
                                      "\", \"tcp-listen://127.0.0.1:" +
                                      std::to_string(ports.station) + "\"]\n" + kPosition);
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    Client rover(ports.caster, askOf("CANB"), kGranted);
    ASSERT_TRUE(gateway.tells("Connection refused; next attempt in")) << gateway.log();
    const Client station(ports.station);
    ASSERT_TRUE(station.send(streamOf(3)));
    ASSERT_TRUE(gateway.tells("comes from tcp-listen://")) << gateway.log();
    // Its ephemerides came before it was chosen.
    ref::Sky sky = skyOfStation();
    ASSERT_TRUE(station.send(epochOf(sky, kNow + 3.0)));
    const Bytes received = rover.receive(epochs(1));
    EXPECT_GE(wholeEpochs(received), 1); // more, where the change came amid the first three
    const auto frames = ref::goodFrames(received);
    EXPECT_GE(std::ranges::count(frames, 1077, &ref::Frame::type), 1) << "no satellite, no message";
}

TEST(Gateway, TellsItsManagerThatItListensAndThatItsLoopLives) {
    ManagerSocket manager("@kestrune-gateway");
    const Ports ports;
    const std::chrono::seconds limit(4); // the least that a watchdog must allow
    const std::string name = manager.variable().substr(manager.variable().find('=') + 1);
    setenv("NOTIFY_SOCKET", name.c_str(), 1);
    setenv("WATCHDOG_USEC", std::to_string(limit.count() * 1'000'000).c_str(), 1);
    RunningGateway gateway(ports, stationSource(ports) + kPosition);
    unsetenv("NOTIFY_SOCKET");
    unsetenv("WATCHDOG_USEC");
    manager.until("READY=1\n");
    const int rover = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in caster = loopback("127.0.0.1", ports.caster);
    EXPECT_EQ(connect(rover, reinterpret_cast<const sockaddr*>(&caster), sizeof caster), 0);
    manager.until("STATUS=0 of 1 stations deliver, 1 clients\n");
    close(rover);
    ASSERT_TRUE(gateway.engineConnected()); // and its engine's news are none of the gateway's

    // The thread of the loop alone stands still: no other one tells that it lives.
    int status = 0;
    ASSERT_EQ(ptrace(PTRACE_SEIZE, gateway.process(), 0, 0), 0);
    ASSERT_EQ(ptrace(PTRACE_INTERRUPT, gateway.process(), 0, 0), 0);
    ASSERT_EQ(waitpid(gateway.process(), &status, __WALL), gateway.process());
    manager.drain();
    EXPECT_FALSE(manager.hears(limit / 2));
    ptrace(PTRACE_DETACH, gateway.process(), 0, 0);
    manager.expectLives(1);
    const auto began = monotonicNow();
    gateway.signal(SIGHUP);
    manager.expectLives(4);
    EXPECT_LT(monotonicNow() - began, 4 * limit / 2);
    EXPECT_EQ(manager.readies, 1);
    EXPECT_EQ(gateway.end(SIGTERM), 0);
}

TEST(Gateway, ServesARoverWhomTheSimulatorJudges) {
    if (std::system("command -v curl >/dev/null") != 0)
        GTEST_SKIP() << "curl is not installed";
    const struct {
        const char *what, *options, *rover, *verdict;
    } cases[] = {
        {"as it is", "", "", "everything was right\n"},
        {"another place is expected", "--offset 0,301,0", "", "WRONG\n"},
        {"the rover goes within an epoch, and comes again", "", "| stdbuf -o0 head -c 30000",
         "gap\n"},
    };
    for (const auto& c : cases) {
        const Ports ports;
        const RunningGateway gateway(
            ports, "source = \"tcp://127.0.0.1:" + std::to_string(ports.station) + "\"\n");
        const std::string url = "http://127.0.0.1:" + std::to_string(ports.caster) + "/CANB";
        ASSERT_TRUE(gateway.tells("listens on"));
        const Ran ran = runInShell(
            "/usr/bin/env", "timeout 60 " + shellWords(kCtlProgram) + "simulate --port " +
                                std::to_string(ports.station) +
                                " --start '2018-07-12T23:37:11' --speed max --duration 30 "
                                "--answer complete " +
                                c.options + " --rover 'curl -sfN " + url + " " + c.rover + "'");
        EXPECT_TRUE(ran.output.ends_with(c.verdict)) << c.what << ran.output << gateway.log();
        EXPECT_EQ(ran.status, ran.output.ends_with("right\n") ? 0 : 1) << c.what;
    }
}

} // namespace running
