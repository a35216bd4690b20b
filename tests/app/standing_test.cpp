#include "manager_socket.h"
#include "service.h"

#include "ctl/Alive.h"
#include "net/Notify.h"
#include "reference/standard/kinds.h"

// The real program under a service manager, and how it ends.

namespace {

const std::string kWatchdog = "WATCHDOG_USEC=200000";

/// A frame comes back as it is, and the log has these lines.
void expectService(Peer& peer, const RunningService& service) {
    const ref::Bytes frame = ref::frame(ref::write1005({.station = 1, .xyzM = kSite}));
    EXPECT_EQ(peer.exchange(frame, frame.size(), 1), frame);
    EXPECT_TRUE(service.tells("***INFO: Copy raw buff, size=25\n"));
    EXPECT_EQ(service.log(), "Kestrune v2.5\nppppp:Success\nrecv len:25\n"
                             "***INFO(StreamObs): RtcmObsDecoder_Initial\n"
                             "***WARN(StreamObs): Not support antenna!\n"
                             "***INFO: Copy raw buff, size=25\n");
}

} // namespace

TEST(ServiceManager, IsToldOfReadinessAndOfLifeInEveryState) {
    ManagerSocket manager("@kestrune");
    Peer peer; // refuses until it listens
    const std::string place = "127.0.0.1:" + std::to_string(peer.port);
    const RunningService service(peer.port, kClock,
                                 {.environment = {manager.variable(), kWatchdog}});
    EXPECT_EQ(manager.until("READY=1\n"),
              "READY=1\nSTATUS=no connection, trying every 3 s to reach " + place + "\n");
    EXPECT_TRUE(contains(service.log(), "ppppp:Unknown error -1\n")); // connect was tried
    manager.expectLives(5);
    ASSERT_TRUE(peer.accept());
    manager.until("STATUS=connected to " + place + "\n"); // and silent
    manager.expectLives(5);
    const int enough = manager.lives + 5;
    do
        peer.exchange(ref::Bytes(200'000), 4096, 0); // never without data
    while (!manager.next().empty() && manager.lives < enough);
    EXPECT_EQ(manager.readies, 1);
}

TEST(ServiceManager, IsToldOfLifeWhileAConnectIsNotAnswered) {
    ManagerSocket manager(testing::TempDir() + "kestrune");
    Peer peer;
    peer.stayBusy();
    const RunningService service(peer.port, kClock,
                                 {.environment = {manager.variable(), kWatchdog}});
    manager.until("STATUS=connecting to 127.0.0.1:" + std::to_string(peer.port) + "\n");
    manager.expectLives(10);
    EXPECT_EQ(manager.readies, 0);
    EXPECT_EQ(service.log(), "Kestrune v2.5\n"); // still connecting
    ASSERT_TRUE(peer.accept() && peer.accept());
    manager.until("READY=1\n");
    expectService(peer, service);
}

TEST(ServiceManager, DoesNoHarmWhereItIsAbsentOrDoesNotListen) {
    // Names that are refused leave no socket behind.
    const std::map<std::string, std::size_t> names{{"", 1},
                                                   {"/", 1},
                                                   {"relative", 1},
                                                   {"vsock:2:1", 1},
                                                   {"/" + std::string(108, 'x'), 1},
                                                   {"@", 1},
                                                   {"@none-there", 2},
                                                   {"/no/such", 2}};
    for (const auto& [name, sockets] : names) {
        Peer peer;
        peer.listen();
        const RunningService service(peer.port, kClock,
                                     {.environment = {"NOTIFY_SOCKET=" + name, "WATCHDOG_USEC=1"}});
        ASSERT_TRUE(peer.accept());
        expectService(peer, service);
        EXPECT_EQ(service.sockets().size(), sockets) << name;
    }
    ManagerSocket deaf("@kestrune");
    int held = deaf.fill();
    Peer peer;
    peer.listen();
    const RunningService service(peer.port, kClock, {.environment = {deaf.variable()}});
    ASSERT_TRUE(peer.accept());
    expectService(peer, service);
    while (held-- > 0)
        EXPECT_EQ(deaf.next(), "x");
    deaf.until("READY=1\n");  // once it listens again
    EXPECT_EQ(deaf.lives, 0); // nobody asked for it
}

TEST(LivenessProbe, HearsTheServiceAndMissesOneThatHangs) {
    const std::string name = "@kestrune-alive" + std::to_string(getpid());
    const std::chrono::milliseconds brief{60}, ample{20000};
    EXPECT_FALSE(ctl::alive::hearsSignOfLife(name, brief)); // nobody is there
    Peer peer;
    peer.listen();
    const RunningService service(peer.port, kClock,
                                 {.environment = {"NOTIFY_SOCKET=" + name, kWatchdog}});
    EXPECT_TRUE(ctl::alive::hearsSignOfLife(name, ample)); // while it connects
    ASSERT_TRUE(peer.accept());
    EXPECT_TRUE(ctl::alive::hearsSignOfLife(name, ample));
    service.signal(SIGSTOP);
    EXPECT_FALSE(ctl::alive::hearsSignOfLife(name, 5 * brief)); // six signs of life are due
    service.signal(SIGCONT);
    EXPECT_TRUE(ctl::alive::hearsSignOfLife(name, ample));
}

TEST(Watchdog, IsFedFourTimesInItsLimit) {
    const std::pair<std::string, int> periods[] = {{"60000000", 15000},
                                                   {"1", 10},
                                                   {"0", 0},
                                                   {"-1", 0},
                                                   {"", 0},
                                                   {"5s", 0},
                                                   {"18446744073709551616", 0},
                                                   {"18446744073709551615", 3'600'000}};
    for (const auto& [usec, ms] : periods)
        EXPECT_EQ(watchdogPeriod(usec.c_str(), nullptr, 77).count(), ms) << usec;
    for (const auto& [pid, ms] : std::map<std::string, int>{{"77", 10}, {"78", 0}, {"", 0}})
        EXPECT_EQ(watchdogPeriod("1", pid.c_str(), 77).count(), ms) << pid;
}

namespace {

/// Each of the two signals in each state, in namespaces of their own where some are wanted; false
/// where these cannot be had.
bool endsInEveryState(int namespaces) {
    for (const std::string status : {"connecting", "no connection", "connected"})
        for (const int signal : {SIGTERM, SIGINT}) {
            ManagerSocket manager("@kestrune");
            Peer peer;
            if (status == "connecting")
                peer.stayBusy();
            if (status == "connected")
                peer.listen();
            RunningService service(peer.port, kClock,
                                   {.environment = {manager.variable()}, .namespaces = namespaces});
            if (!service.started())
                return false;
            manager.until("STATUS=" + status);
            service.signal(signal);
            EXPECT_EQ(service.end(), namespaces == 0 ? -signal : 128 + signal) << status;
            EXPECT_TRUE(service.log().ends_with("\n"));
        }
    return true;
}

} // namespace

TEST(Signals, EndTheServiceAtOnceInEveryState) {
    EXPECT_TRUE(endsInEveryState(0));
}

TEST(Signals, EndTheServiceAlsoAsProcess1) {
    const int user = geteuid() == 0 ? 0 : CLONE_NEWUSER;
    if (!endsInEveryState(CLONE_NEWPID | user))
        GTEST_SKIP() << "no PID namespace may be made here; under an emulator never";
}
