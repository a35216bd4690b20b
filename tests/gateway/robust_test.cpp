#include "gateway/net/Lookup.h"
#include "gateway/running.h"
#include "gateway/station/Child.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>

// What the gateway does when something around it fails.

namespace running {

namespace {

bool endsSoon(int process) {
    return eventually([&] { return kill(process, 0) != 0; });
}

/// The next epoch of one sky.
class Epochs {
public:
    Bytes next(int count = 1) {
        Bytes out;
        for (; count > 0; --count)
            append(out, epochOf(sky_, kNow + 100.0 + count_++ * 1.0));
        return out;
    }

private:
    ref::Sky sky_ = skyOfStation();
    int count_ = 0;
};

} // namespace

TEST(Gateway, StartsAnEngineAgainThatHangs) {
    Road road(2);
    RunningGateway& gateway = road.gateway;
    const int engine = engineOf(gateway);
    ASSERT_GT(engine, 0);
    kill(engine, SIGSTOP);
    Epochs sky;
    ASSERT_TRUE(road.station.send(sky.next(10)));
    ASSERT_TRUE(gateway.tells("hangs: it owes 10 epochs; started again in 2 s")) << gateway.log();
    EXPECT_TRUE(endsSoon(engine));
    ASSERT_TRUE(eventually([&] { return engineOf(gateway) != engine; }));
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    ASSERT_TRUE(road.station.send(sky.next()));
    EXPECT_EQ(wholeEpochs(road.rover.receive(epochs(1))), 1);
    // One that does not obey is killed in time.
    kill(engineOf(gateway), SIGSTOP);
    const auto begin = monotonicNow();
    EXPECT_EQ(gateway.end(SIGTERM), 0);
    EXPECT_LT(monotonicNow() - begin, std::chrono::seconds(4));
}

TEST(GatewayChild, DoesNotDisturbNamesThatAreLookedUp) {
    boost::asio::io_context context;
    constexpr int asked = 50;
    int answered = 0;
    for (int i = 0; i < asked; ++i)
        boost::asio::co_spawn(context, gateway::lookUp({"localhost", 1}),
                              [&](const std::exception_ptr& e, const auto& found) {
                                  answered += !e && !found.empty() ? 1 : 0;
                              });
    const gateway::Child child(context.get_executor(), "/bin/true", {},
                               [](auto, const std::string&) {});
    context.run_for(std::chrono::seconds(10));
    EXPECT_EQ(answered, asked);
}

TEST(Gateway, LeavesNoEngineBehindWhenItIsKilled) {
    const Ports ports;
    RunningGateway gateway(ports, stationSource(ports) + kPosition);
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    const int engine = engineOf(gateway);
    ASSERT_GT(engine, 0);
    EXPECT_EQ(gateway.end(SIGKILL), -SIGKILL);
    EXPECT_TRUE(endsSoon(engine));
}

TEST(Gateway, GoesOnWithoutDescriptors) {
#ifdef __has_feature // of Clang
#if __has_feature(undefined_behavior_sanitizer)
    GTEST_SKIP() << "the sanitizer opens descriptors of its own to look at objects";
#endif
#endif
    Road road(1);
    auto& [ports, gateway, station, rover] = road;
    gateway.allowDescriptors(3);
    Epochs sky;
    {
        std::vector<std::unique_ptr<Client>> many;
        for (int i = 0; i < 5; ++i)
            many.push_back(std::make_unique<Client>(ports.caster));
        ASSERT_TRUE(gateway.tells("takes nobody on 127.0.0.1:" + std::to_string(ports.caster) +
                                  ": Too many open files"))
            << gateway.log();
        ASSERT_TRUE(station.send(sky.next()));
        EXPECT_EQ(wholeEpochs(rover.receive(epochs(1))), 1);
    }
    Client later(ports.caster, askOf("CANB"), kGranted);
    ASSERT_TRUE(station.send(sky.next()));
    EXPECT_EQ(wholeEpochs(later.receive(epochs(1))), 1) << gateway.log();
}

TEST(Gateway, GoesOnWhereAnOutputTakesNothing) {
    const std::string pipe = testing::TempDir() + "pipe_" + std::to_string(getpid());
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const Road road(3, "push = [\"file:/dev/full\", \"file:" + pipe + "\"]\n");
    EXPECT_TRUE(road.gateway.tells("/dev/full: No space left on device; next attempt in"))
        << road.gateway.log();
    EXPECT_TRUE(road.gateway.tells(pipe + " is a pipe, not a file; next attempt in"));
    fs::remove(pipe);
}

TEST(Gateway, FollowsAStationThatMayMove) {
    const Ports ports;
    RunningGateway gateway(ports, stationSource(ports) + "position = \"follow\"\n");
    const Client station(ports.station);
    const auto place = [](const ref::Vec3& xyzM) {
        return ref::frame(ref::write1005({.station = 1, .xyzM = xyzM}));
    };
    Bytes stream = place(kSite);
    append(stream, streamOf(2));
    ASSERT_TRUE(station.send(stream));
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    const int before = engineOf(gateway);
    ref::Vec3 moved = kSite;
    moved[0] += 20;
    ASSERT_TRUE(station.send(place(moved)));
    ASSERT_TRUE(gateway.tells("moved by 20.00 m to -4467054.3577")) << gateway.log();
    ASSERT_TRUE(eventually([&] {
        const int now = engineOf(gateway);
        return now != before && now != 0;
    }));
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    Client rover(ports.caster, askOf("CANB"), kGranted);
    Epochs sky;
    ASSERT_TRUE(station.send(sky.next()));
    EXPECT_EQ(wholeEpochs(rover.receive(epochs(1))), 1);
}

TEST(Gateway, ServesAnEngineThatSomebodyElseKeeps) {
    const Ports ports, of;
    int engine = 0;
    const auto connect = [&](const RunningGateway& kept) { // one that a gateway has set up
        std::string deployment = readFile(kept.folder / "state/CANB/engine.json");
        const std::size_t n = deployment.find("127.0.0.1 ");
        for (std::size_t at = n; at != deployment.npos; at = deployment.find("127.0.0.1 ", at + 1))
            deployment.replace(at, deployment.find('"', at) - at,
                               "127.0.0.1 " + std::to_string(of.station));
        const fs::path file = kept.folder / "external.json";
        std::ofstream(file) << deployment;
        engine = fork();
        if (engine == 0) {
            const int none = open("/dev/null", O_WRONLY);
            dup2(none, STDOUT_FILENO);
            become(kServiceProgram, {"-mode", "vrs", file.string()});
        }
    };
    const Ports other;
    const RunningGateway kept(other, stationSource(other) + kPosition, "", "", "kept");
    ASSERT_TRUE(kept.engineConnected()) << kept.log();
    RunningGateway gateway(
        ports, stationSource(ports), "",
        "engine = \"external\"\naddress = \"127.0.0.1:" + std::to_string(of.station) + "\"\n");
    Client rover(ports.caster, askOf("CANB"), kGranted);
    const Client station(ports.station);
    Epochs sky;
    for (int i = 1; i <= 3; ++i) {
        connect(kept);
        const std::string told = "engine: 127.0.0.1:";
        ASSERT_TRUE(eventually([&] { return gateway.count(told) == i; })) << gateway.log();
        if (i == 1) { // one that has no ephemerides yet owes nothing
            ASSERT_TRUE(station.send(sky.next(12)));
            std::this_thread::sleep_for(std::chrono::milliseconds(2500));
            EXPECT_EQ(gateway.count("hangs"), 0) << gateway.log();
            ASSERT_TRUE(station.send(streamOf(0)));
        }
        ASSERT_TRUE(station.send(sky.next(2)));
        EXPECT_EQ(wholeEpochs(rover.receive(epochs(2))), 2) << gateway.log();
        kill(engine, SIGKILL);
        waitpid(engine, nullptr, 0);
        ASSERT_TRUE(gateway.tells("has ended the connection; another one may come in"))
            << gateway.log();
    }
    // A station in front of it takes over its port; then it goes again.
    std::string settings = readFile(gateway.folder / "gateway.toml");
    const std::string one = settings;
    settings.insert(settings.find("[[station]]"),
                    "[[station]]\nname = \"FRST\"\nsource = \"caster:\"\npassword = \"x\"\n" +
                        std::string(kPosition));
    for (const std::string& text : {settings, one}) {
        std::ofstream(gateway.folder / "gateway.toml") << text;
        const int before = gateway.count("CANB: is stopped");
        gateway.signal(SIGHUP);
        ASSERT_TRUE(eventually([&] { return gateway.count("CANB: is stopped") == before + 1; }))
            << gateway.log();
    }
    const int before = gateway.count("CANB: engine: 127.0.0.1:");
    connect(kept);
    EXPECT_TRUE(eventually([&] { return gateway.count("CANB: engine: 127.0.0.1:") == before + 1; }))
        << gateway.log();
    kill(engine, SIGKILL);
    waitpid(engine, nullptr, 0);
}

TEST(Gateway, OpensAPortWhenItBecomesFreeAndTakesTheOtherSettings) {
    const Ports ports, other;
    int taken = 0;
    const int holder = boundSocket(taken);
    ASSERT_EQ(listen(holder, 1), 0);
    RunningGateway gateway(ports, stationSource(ports) + kPosition);
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    std::string settings = readFile(gateway.folder / "gateway.toml");
    const std::string before = "127.0.0.1:" + std::to_string(ports.caster) + "\"]";
    const std::string after = "127.0.0.1:" + std::to_string(taken) + "\"]";
    settings.replace(settings.find(before), before.size(), after);
    std::ofstream(gateway.folder / "gateway.toml") << settings << "mountpoint = \"NEXT\"\n";
    gateway.signal(SIGHUP);
    ASSERT_TRUE(gateway.tells("Address already in use; tried again every second")) << gateway.log();
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    close(holder);
    ASSERT_TRUE(gateway.tells("listens on 127.0.0.1:" + std::to_string(taken))) << gateway.log();
    Client rover(taken, askOf("NEXT"), kGranted);
}

TEST(Gateway, LivesBesideARecordingWithoutEpochsThatIsRepeated) {
    const Ports ports;
    const fs::path file = fs::path(testing::TempDir()) / ("eph_" + std::to_string(getpid()));
    const Bytes ephemerides = streamOf(0);
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(ephemerides.data()),
               static_cast<std::streamsize>(ephemerides.size()));
    RunningGateway gateway(ports, stationSource(ports) + kPosition +
                                      "ephemerides = \"file:" + file.string() + "?loop\"\n");
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    Client rover(ports.caster, askOf("CANB"), kGranted);
    const Client station(ports.station);
    Epochs sky;
    ASSERT_TRUE(station.send(sky.next(2))); // whose ephemerides come from the recording
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    ASSERT_TRUE(station.send(sky.next(3)));
    EXPECT_GE(wholeEpochs(rover.receive(epochs(3))), 3) << gateway.log();
    EXPECT_EQ(gateway.end(SIGTERM), 0);
    fs::remove(file);
}

TEST(Gateway, KeepsItsPasswordsToItself) {
    const Ports ports, gone;
    const std::string peer = "127.0.0.1:" + std::to_string(gone.station);
    const UsersFile users(rightUser("bob"));
    RunningGateway gateway(ports,
                           "source = [\"caster:\", \"ntrip://bob:MARKER@" + peer +
                               "/X?version=1\"]\npassword = \"MARKER\"\nephemerides = "
                               "\"ntrip://bob:MARKER@" +
                               peer + "/E\"\npush = [\"ntrip-source://:MARKER@" + peer + "/Y\"]\n" +
                               kPosition,
                           users.setting());
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    for (const char* const request :
         {"SOURCE MARKERX /CANB\r\n\r\n", "GET /CANB HTTP/1.0\r\nUser-Agent: NTRIP t\r\n"
                                          "Authorization: Basic Ym9iOk1BUktFUg==\r\n\r\n"}) {
        Client wrong(ports.caster);
        ASSERT_TRUE(wrong.send(std::string(request)));
        wrong.rest();
    }
    Client receiver(ports.caster);
    ASSERT_TRUE(receiver.send(std::string("SOURCE MARKER /CANB\r\n\r\n")));
    receiver.head();
    ASSERT_TRUE(receiver.send(streamOf(2)));
    ASSERT_TRUE(gateway.tells("pushes its stream")) << gateway.log();
    ASSERT_TRUE(gateway.tells("/Y: Connection refused")) << gateway.log();
    ASSERT_TRUE(gateway.tells("/E: Connection refused")) << gateway.log();
    EXPECT_EQ(gateway.log().find("MARKER"), std::string::npos) << gateway.log();
    for (const int process : {gateway.process(), engineOf(gateway)})
        for (const char* const file : {"cmdline", "comm", "environ"})
            EXPECT_EQ(readFile("/proc/" + std::to_string(process) + "/" + file).find("MARKER"),
                      std::string::npos)
                << file;
    int files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(gateway.folder / "state")) {
        const fs::perms rights = entry.status().permissions();
        EXPECT_EQ(rights & (fs::perms::group_all | fs::perms::others_all), fs::perms::none)
            << entry.path();
        if (!entry.is_regular_file())
            continue;
        ++files;
        EXPECT_EQ(readFile(entry.path()).find("MARKER"), std::string::npos) << entry.path();
    }
    EXPECT_GE(files, 3);
}

} // namespace running
