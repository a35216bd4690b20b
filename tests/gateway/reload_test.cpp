#include "gateway/running.h"

// Settings that are read again while stations deliver.

namespace running {

namespace {

/// The file of a gateway, to be changed while it runs.
class Settings {
public:
    explicit Settings(const RunningGateway& gateway)
        : gateway_(gateway), path_(gateway.folder / "gateway.toml") {}
    /// Has them read again with other text in place of one that stands there.
    void replace(const std::string& old, const std::string& by) const {
        std::string all = readFile(path_);
        const std::size_t at = all.find(old);
        ASSERT_NE(at, all.npos) << old;
        std::ofstream(path_) << all.replace(at, old.size(), by);
        gateway_.signal(SIGHUP);
    }

private:
    const RunningGateway& gateway_;
    fs::path path_;
};

} // namespace

TEST(Reload, DisturbsNeitherStreamNorRoverWhereItDoesNotConcernThem) {
    const auto free = freePorts<5>();
    const Ports ports({free[0], free[1]});
    const int keptPort = free[2], oldPort = free[3], newPort = free[4];
    const auto output = [](int port) {
        return "\"tcp-listen://127.0.0.1:" + std::to_string(port) + "\"";
    };
    const UsersFile users(rightUser("bob") + rightUser("ann"));
    const std::string kept = output(keptPort), old = output(oldPort);
    RunningGateway gateway(ports,
                           stationSource(ports) + kPosition + "access = \"anyone\"\npush = [" +
                               kept + ", " + old + "]\n",
                           "operator = \"A\"\n" + users.setting());
    const Settings settings(gateway);
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    const pid_t engine = engineOf(gateway);
    const Client station(ports.station);
    const auto asks = [](const std::string& credentials) {
        return askOf("CANB", "Authorization: Basic " + credentials + "\r\n");
    };
    ref::Sky sky = skyOfStation();
    int sent = 0;
    const auto next = [&] { return epochOf(sky, kNow + 1.0 * sent++); };

    // The settings ask for passwords: who came without one, or in vain, is sent away.
    Client stranger(ports.caster, askOf("CANB"), kGranted);
    settings.replace("access = \"anyone\"", "access = \"users\"");
    EXPECT_EQ(stranger.rest(), "");
    EXPECT_TRUE(gateway.tells("is sent away: the station asks for a password now"));
    Client bob(ports.caster, asks("Ym9iOnJpZ2h0"), kGranted);
    Client ann(ports.caster, asks("YW5uOnJpZ2h0"), kGranted);
    Client keptPeer(keptPort), oldPeer(oldPort);
    ASSERT_TRUE(eventually([&] { return gateway.count("(ann) gets the stream") == 1; }));
    ASSERT_TRUE(station.send(streamOf(0)));
    const auto everyEpochComes = [&](const std::string& when) {
        ASSERT_TRUE(station.send(next()));
        EXPECT_EQ(wholeEpochs(bob.receive(epochs(1))), 1) << when << "\n" << gateway.log();
        EXPECT_EQ(wholeEpochs(keptPeer.receive(epochs(1))), 1) << when << "\n" << gateway.log();
    };
    everyEpochComes("at first");
    EXPECT_EQ(wholeEpochs(oldPeer.receive(epochs(1))), 1);

    settings.replace("access = \"users\"", "access = [\"bob\"]");
    ann.rest();
    EXPECT_TRUE(gateway.tells("(ann) is sent away: the user is not one of the station's own"));
    everyEpochComes("access");

    settings.replace(old, output(newPort));
    oldPeer.rest();
    EXPECT_TRUE(oldPeer.ended()) << gateway.log();
    Client newPeer(newPort);
    ASSERT_TRUE(newPeer.connected());
    Bytes first; // what a rover needs at once
    ASSERT_FALSE(
        (first = newPeer.receive([](const Bytes& some) { return !some.empty(); })).empty());
    everyEpochComes("push");
    EXPECT_EQ(wholeEpochs(newPeer.receive(epochs(1))), 1);

    settings.replace("access = ", "identifier = \"Canberra\"\naccess = ");
    settings.replace("operator = \"A\"", "operator = \"Survey\"\ncountry = \"AUS\"\n"
                                         "max_clients = 4\nmax_per_user = 1");
    std::string table;
    EXPECT_TRUE(eventually([&] {
        table = answerTo(ports.caster, askOf(""));
        return table.find("STR;CANB;Canberra;") != table.npos &&
               table.find(";Survey;") != table.npos &&
               table.find(";AUS;", table.find("STR;")) != table.npos;
    })) << table;
    Client again(ports.caster);
    ASSERT_TRUE(again.send(asks("Ym9iOnJpZ2h0")));
    EXPECT_EQ(again.head().substr(0, 12), "HTTP/1.0 429") << "the limit holds for who comes now";
    everyEpochComes("identifier, operator, country, limits");

    settings.replace("access = ", "guard = 100\naccess = ");
    ASSERT_TRUE(eventually([&] { return gateway.count("goes on with changed settings") == 5; }))
        << gateway.log();
    ref::Vec3 moved = kSite;
    moved[0] += 50;
    ASSERT_TRUE(station.send(ref::frame(ref::write1005({.station = 1, .xyzM = moved}))));
    everyEpochComes("guard");

    settings.replace("access = ", "rate = 0.5\naccess = ");
    ASSERT_TRUE(eventually([&] { return gateway.count("goes on with changed settings") == 6; }))
        << gateway.log();
    ASSERT_TRUE(station.send(next()));
    everyEpochComes("rate"); // the second of two
    EXPECT_EQ(engineOf(gateway), engine) << gateway.log();
    EXPECT_EQ(gateway.count("is stopped"), 0) << gateway.log();
    EXPECT_EQ(gateway.count(": connected"), 1) << "of the source\n" << gateway.log();

    // The engine has its place from the settings: with another one it is another engine.
    settings.replace("access = ", "offset = [0, 200, 0]\naccess = ");
    EXPECT_EQ(bob.rest(), "");
    EXPECT_TRUE(eventually([&] {
        return gateway.status().find("\"connected\"") != std::string::npos &&
               engineOf(gateway) != engine;
    }));
}

TEST(Reload, SendsAReceiverAwayThatPushesWithThePasswordBefore) {
    const Ports ports;
    const RunningGateway gateway(ports, "source = \"caster:\"\npassword = \"letmein\"\n" +
                                            std::string(kPosition));
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    Client rover(ports.caster, askOf("CANB"), kGranted);
    const auto ask = [](const std::string& password) {
        return "SOURCE " + password + " /CANB\r\nSource-Agent: NTRIP x\r\n\r\n";
    };
    Client before(ports.caster, ask("letmein"), kGranted);
    Settings(gateway).replace("letmein", "another");
    EXPECT_TRUE(before.ended());
    EXPECT_TRUE(gateway.tells("the receiver that pushes is sent away")) << gateway.log();
    Client wrong(ports.caster, ask("letmein"), "ERROR - Bad Password\r\n");
    const Client receiver(ports.caster, ask("another"), kGranted);
    ASSERT_TRUE(receiver.send(streamOf(3)));
    EXPECT_EQ(wholeEpochs(rover.receive(epochs(3))), 3) << gateway.log();
}

TEST(Reload, TellsWhatIsWrongWithTheUsersOnce) {
    const Ports ports;
    const UsersFile users("bob:right\n" + rightUser("ann"));
    const RunningGateway gateway(ports, stationSource(ports) + kPosition, users.setting());
    const std::string wrong = "bob: what follows the name is no hash";
    ASSERT_TRUE(gateway.tells("listens on")) << gateway.log();
    EXPECT_EQ(gateway.count(wrong), 1) << gateway.log();
    Settings(gateway).replace("listen = [\"", "operator = \"A\"\nlisten = [\"");
    EXPECT_TRUE(eventually(
        [&] { return answerTo(ports.caster, askOf("")).find(";A;") != std::string::npos; }));
    EXPECT_EQ(gateway.count(wrong), 2) << gateway.log();
}

TEST(StateFolder, IsOfOneGatewayForAsLongAsThatRuns) {
    const auto free = freePorts<4>();
    const Ports ports({free[0], free[1]}), others({free[2], free[3]});
    RunningGateway first(ports, stationSource(ports) + kPosition);
    ASSERT_TRUE(first.engineConnected()) << first.log();
    const std::string inUse = "the state folder " + (first.folder / "state").string() +
                              " is in use by another gateway (process " +
                              std::to_string(first.process()) + ")";
    const fs::path second = first.folder / "second.toml";
    std::ofstream(second) << replaced(readFile(first.folder / "gateway.toml"),
                                      std::to_string(ports.caster), std::to_string(others.caster));
    const auto isRefused = [&] {
        const Ran ran = runInShell(kGatewayProgram, second.string());
        EXPECT_EQ(ran.status, 1);
        EXPECT_NE(ran.output.find(inUse), std::string::npos) << ran.output;
    };
    isRefused();

    // The same when it has been away, and is back before its engine there has ended.
    const std::string here = (first.folder / "state").string() + '"';
    const std::string elsewhere = (first.folder / "elsewhere").string() + '"';
    const pid_t old = engineOf(first);
    kill(old, SIGSTOP);
    Settings settings(first);
    settings.replace(here, elsewhere);
    ASSERT_TRUE(first.tells("CANB: is stopped")) << first.log();
    settings.replace(elsewhere, here);
    EXPECT_TRUE(eventually([&] { return first.count("CANB: is stopped") == 2; })) << first.log();
    EXPECT_EQ(kill(old, 0), 0) << "it has ended already";
    EXPECT_TRUE(eventually([&] { return kill(old, 0) != 0; }));
    std::this_thread::sleep_for(
        std::chrono::milliseconds(1500)); // what is left of it goes within a second
    isRefused();
    ASSERT_TRUE(first.engineConnected()) << first.log();

    // One that runs does not take it either, and loses nothing.
    RunningGateway other(others, stationSource(others) + kPosition, "", "", "other");
    ASSERT_TRUE(other.engineConnected()) << other.log();
    const pid_t engine = engineOf(other);
    Client rover(others.caster, askOf("CANB"), kGranted);
    Settings(other).replace((other.folder / "state").string(), (first.folder / "state").string());
    EXPECT_TRUE(other.tells(inUse)) << other.log();
    EXPECT_TRUE(other.tells("; the settings in force stay")) << other.log();
    const Client station(others.station);
    ASSERT_TRUE(station.send(streamOf(2)));
    EXPECT_EQ(wholeEpochs(rover.receive(epochs(2))), 2) << other.log();
    EXPECT_EQ(engineOf(other), engine);

    // The lock ends with its process, also where an engine is left.
    const pid_t left = engineOf(first);
    kill(left, SIGSTOP);
    first.end(SIGKILL);
    other.signal(SIGHUP);
    EXPECT_TRUE(other.tells("CANB: is stopped")) << other.log();
    EXPECT_TRUE(eventually([&] { return first.status() != "" && engineOf(first) != left; }));
    EXPECT_EQ(kill(left, SIGKILL), 0) << "it was there all the time";
}

} // namespace running
