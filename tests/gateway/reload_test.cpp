#include "gateway/running.h"

// Settings that are read again while stations deliver.

namespace running {

namespace {

constexpr const char* kRightHash = ":$6$abcdefgh$vR/yd6VXABFTBRyOupJyJyD09twBc54Fjx1W8tzKdqxOfohxeZ"
                                   "Rb508btnHrxVQLY86b/u4pA/7OgxagBH8130\n"; // of "right"

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

std::string sourceTable(int port) {
    Client client(port);
    EXPECT_TRUE(client.send(askOf("")));
    return client.rest();
}

std::string processOf(const RunningGateway& gateway) {
    const std::string status = gateway.status();
    const std::size_t at = status.find("\"process_id\":");
    return status.substr(at, status.find(',', at) - at);
}

} // namespace

TEST(Reload, DisturbsNeitherStreamNorRoverWhereItDoesNotConcernThem) {
    const Ports ports, outputs, others;
    const auto output = [](int port) {
        return "\"tcp-listen://127.0.0.1:" + std::to_string(port) + "\"";
    };
    const fs::path users = fs::path(testing::TempDir()) / ("reload_" + std::to_string(getpid()));
    std::ofstream(users) << "bob" << kRightHash << "ann" << kRightHash;
    fs::permissions(users, fs::perms::owner_read | fs::perms::owner_write);
    const std::string kept = output(outputs.station), old = output(outputs.caster);
    RunningGateway gateway(ports,
                           stationSource(ports) + kPosition + "access = \"anyone\"\npush = [" +
                               kept + ", " + old + "]\n",
                           "operator = \"A\"\nusers = \"" + users.string() + "\"\n");
    const Settings settings(gateway);
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    const std::string engine = processOf(gateway);
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
    Client keptPeer(outputs.station), oldPeer(outputs.caster);
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

    settings.replace(old, output(others.station));
    oldPeer.rest();
    EXPECT_TRUE(oldPeer.ended());
    Client newPeer(others.station);
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
        table = sourceTable(ports.caster);
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
    EXPECT_EQ(processOf(gateway), engine) << gateway.log();
    EXPECT_EQ(gateway.count("is stopped"), 0) << gateway.log();
    EXPECT_EQ(gateway.count(": connected"), 1) << "of the source\n" << gateway.log();

    // The engine has its place from the settings: with another one it is another engine.
    settings.replace("access = ", "offset = [0, 200, 0]\naccess = ");
    EXPECT_EQ(bob.rest(), "");
    EXPECT_TRUE(eventually([&] {
        return gateway.status().find("\"connected\"") != std::string::npos &&
               processOf(gateway) != engine;
    }));
    fs::remove(users);
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

} // namespace running
