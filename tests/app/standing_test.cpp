#include "service.h"

#include "net/Notify.h"
#include "reference/judge.h"

#include <cstddef>
#include <sstream>
#include <sys/un.h>

// The real program under a service manager, and how it ends.

namespace {

using ref::Bytes;

const char* const kClock = "2018-07-12 23:37:11";
const std::string kWatchdog = "WATCHDOG_USEC=200000";

/// The socket of a service manager: a path, or an abstract name behind '@'.
class ManagerSocket {
public:
    explicit ManagerSocket(const std::string& name) : name_(name) {
        sockaddr_un a{};
        a.sun_family = AF_UNIX;
        name.copy(a.sun_path, sizeof a.sun_path);
        if (name[0] == '@')
            a.sun_path[0] = '\0';
        length_ = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&a), length_), 0) << name;
        address_ = a;
    }
    ~ManagerSocket() {
        close(fd);
        if (name_[0] == '/')
            unlink(name_.c_str());
    }
    ManagerSocket(const ManagerSocket&) = delete;
    ManagerSocket& operator=(const ManagerSocket&) = delete;

    std::string variable() const { return "NOTIFY_SOCKET=" + name_; }
    /// The next message; empty where 20 s bring none.
    std::string next() {
        pollfd p{fd, POLLIN, 0};
        std::array<char, 1024> in{};
        const bool came = poll(&p, 1, 20000) == 1;
        const auto n = came ? recv(fd, in.data(), in.size(), 0) : 0;
        const std::string message(in.data(), static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
        readies += contains(message, "READY=1\n") ? 1 : 0;
        lives += contains(message, "WATCHDOG=1\n") ? 1 : 0;
        return message;
    }
    /// Takes messages until one holds the text; that one.
    std::string until(const std::string& text) {
        for (std::string message = next(); !message.empty(); message = next())
            if (contains(message, text))
                return message;
        ADD_FAILURE() << "never told: " << text;
        return {};
    }
    void untilAlive(int times) {
        while (times-- > 0 && !until("WATCHDOG=1\n").empty()) {
        }
    }
    /// Messages of the test itself, as many as the socket holds.
    int fill() const {
        const int sender = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        int count = 0;
        while (sendto(sender, "x", 1, 0, reinterpret_cast<const sockaddr*>(&address_), length_) ==
               1)
            ++count;
        close(sender);
        return count;
    }

    int readies = 0;
    int lives = 0;

private:
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    std::string name_;
    sockaddr_un address_{};
    socklen_t length_ = 0;
};

std::string scratchName(char kind) {
    const std::string name = "kestrune_notify_" + std::to_string(getpid());
    return kind == '@' ? "@" + name : testing::TempDir() + name;
}

/// A listener on loopback that answers no connect: its queue of one is taken.
class BusyPeer {
public:
    BusyPeer() : listener_(boundSocket(port)) {
        listen(listener_, 0);
        sockaddr_in a{};
        socklen_t n = sizeof a;
        getsockname(listener_, reinterpret_cast<sockaddr*>(&a), &n);
        EXPECT_EQ(connect(first_, reinterpret_cast<sockaddr*>(&a), n), 0);
    }
    ~BusyPeer() {
        for (const int fd : {listener_, first_})
            close(fd);
    }
    BusyPeer(const BusyPeer&) = delete;
    BusyPeer& operator=(const BusyPeer&) = delete;
    void makeRoom() const { close(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)); }

    int port = 0;

private:
    int listener_;
    int first_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

/// Ephemerides and two epochs, and what is owed for them.
Bytes twoEpochs(std::size_t& owed) {
    ref::Sky sky(kSite);
    const ref::GpsTime start{2009, 430650};
    Bytes stream;
    const auto put = [&](const std::vector<Bytes>& frames) {
        for (const Bytes& f : frames)
            stream.insert(stream.end(), f.begin(), f.end());
    };
    put(sky.ephemerisFrames(start));
    put(sky.epochFrames(start, 7));
    put(sky.epochFrames(start + 1.0, 7));
    owed = ref::Predictor(expectation()).take(stream).size();
    return stream;
}

/// Has the service answer the two epochs.
void expectAnswers(Peer& peer) {
    std::size_t owed = 0;
    const Bytes stream = twoEpochs(owed);
    const ref::Verdict v =
        ref::judge(stream, peer.exchange(stream, 4096, static_cast<int>(owed)), expectation());
    EXPECT_EQ(v.wrong, 0);
    EXPECT_EQ(v.replies, 2);
}

/// The log without the lines that depend on how the stream was cut into blocks.
std::string withoutBlocks(const std::string& log) {
    std::istringstream in(log);
    std::string out;
    for (std::string line; std::getline(in, line);)
        out += line.starts_with("recv len:") ? "" : line + "\n";
    return out;
}

} // namespace

TEST(ServiceManager, IsToldOfReadinessAndOfLifeInEveryState) {
    for (const char kind : {'/', '@'}) {
        ManagerSocket manager(scratchName(kind));
        Peer peer; // refuses until it listens
        const std::string place = "127.0.0.1:" + std::to_string(peer.port);
        const Service service(peer.port, kClock, {.environment = {manager.variable(), kWatchdog}});
        EXPECT_EQ(manager.until("READY=1\n"),
                  "READY=1\nSTATUS=no connection, trying every 3 s to reach " + place + "\n");
        EXPECT_TRUE(contains(service.log(), "ppppp:Unknown error -1\n")); // connect was tried
        manager.untilAlive(5);
        ASSERT_TRUE(peer.accept());
        manager.until("STATUS=connected to " + place + "\n"); // and silent
        manager.untilAlive(5);
        expectAnswers(peer);
        for (const int target = manager.lives + 5; manager.lives < target;) {
            peer.exchange(Bytes(200'000), 4096, 0); // never without data
            ASSERT_NE(manager.next(), "");
        }
        peer.drop();
        manager.untilAlive(2);
        EXPECT_EQ(manager.readies, 1);
    }
}

TEST(ServiceManager, IsToldOfLifeWhileAConnectIsNotAnswered) {
    ManagerSocket manager(scratchName('@'));
    const BusyPeer peer;
    const Service service(peer.port, kClock, {.environment = {manager.variable(), kWatchdog}});
    EXPECT_EQ(manager.until("STATUS="),
              "STATUS=connecting to 127.0.0.1:" + std::to_string(peer.port) + "\n");
    manager.untilAlive(10);
    EXPECT_EQ(manager.readies, 0);
    EXPECT_EQ(service.log(), "Kestrune v2.5\n"); // still connecting
    peer.makeRoom();
    manager.until("READY=1\n");
    EXPECT_TRUE(contains(service.log(), "ppppp:Success\n"));
}

TEST(ServiceManager, DoesNoHarmWhereItIsAbsentOrDoesNotListen) {
    // Names that are refused leave no socket behind; the log is the same with every one.
    std::string expected;
    const std::string missing = testing::TempDir() + "no/such/socket";
    for (const std::string& name :
         std::vector<std::string>{"", "/", "relative", "vsock:2:1", "/" + std::string(108, 'x'),
                                  "@none-listens", missing}) {
        Peer peer;
        const Service service(peer.port, kClock,
                              {.environment = {"NOTIFY_SOCKET=" + name, "WATCHDOG_USEC=1"}});
        ASSERT_TRUE(peer.accept());
        expectAnswers(peer);
        EXPECT_EQ(service.sockets().size(), name[0] == '@' || name == missing ? 2U : 1U) << name;
        const std::string log = withoutBlocks(service.log());
        if (expected.empty())
            expected = log;
        EXPECT_EQ(log, expected) << name;
    }
    ManagerSocket deaf(scratchName('@'));
    const int held = deaf.fill();
    Peer peer;
    const Service service(peer.port, kClock, {.environment = {deaf.variable()}});
    ASSERT_TRUE(peer.accept());
    expectAnswers(peer);
    for (int i = 0; i < held; ++i)
        EXPECT_EQ(deaf.next(), "x");
    deaf.until("READY=1\n");  // told once it listens again
    EXPECT_EQ(deaf.lives, 0); // nobody asked for it
}

TEST(Watchdog, IsFedFourTimesInItsLimit) {
    constexpr std::int64_t own = 77;
    const struct {
        const char* usec;
        const char* pid;
        std::int64_t ms;
    } cases[] = {{"60000000", nullptr, 15000},
                 {"60000000", "77", 15000},
                 {"60000000", "78", 0},
                 {"60000000", "", 0},
                 {"60000000", "-77", 0},
                 {"200000", nullptr, 50},
                 {"1", nullptr, 10},
                 {"0", nullptr, 0},
                 {"-1", nullptr, 0},
                 {"", nullptr, 0},
                 {"abc", nullptr, 0},
                 {"5s", nullptr, 0},
                 {nullptr, nullptr, 0},
                 {nullptr, "77", 0},
                 {"18446744073709551616", "77", 0},
                 {"18446744073709551615", nullptr, 3'600'000}};
    for (const auto& c : cases)
        EXPECT_EQ(watchdogPeriod(c.usec, c.pid, own).count(), c.ms)
            << (c.usec ? c.usec : "none") << ' ' << (c.pid ? c.pid : "none");
}

TEST(Signals, EndTheServiceAtOnceInEveryState) {
    struct State {
        const char* status;
        bool busy, listening;
    };
    for (const State state :
         {State{"STATUS=connecting", true, false}, State{"STATUS=no connection", false, false},
          State{"STATUS=connected", false, true}})
        for (const int signal : {SIGTERM, SIGINT})
            for (const bool first : {false, true}) { // process 1 of a PID namespace
                ManagerSocket manager(scratchName('@'));
                const BusyPeer busy;
                Peer peer;
                if (state.listening)
                    peer.listen();
                const int user = geteuid() == 0 ? 0 : CLONE_NEWUSER;
                Service service(state.busy ? busy.port : peer.port, kClock,
                                {.environment = {manager.variable()},
                                 .namespaces = first ? CLONE_NEWPID | user : 0});
                if (first && !service.started())
                    GTEST_SKIP() << "no PID namespace may be made here: " << std::strerror(errno);
                manager.until(state.status);
                service.signal(signal);
                EXPECT_EQ(service.end(), first ? 128 + signal : -signal) << state.status;
                EXPECT_TRUE(service.log().ends_with("\n"));
            }
}
