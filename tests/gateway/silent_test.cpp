#include "gateway/running.h"

#include <atomic>
#include <sys/mount.h>

// Peers that say nothing: one whose machine fails, so that no end of its connections reaches the
// gateway, and a name server.

namespace running {

namespace {

using Seconds = std::chrono::duration<double>;
using std::chrono::milliseconds, std::chrono::seconds;

/// Two machines with a cable between them, as network namespaces: that of the gateway, 192.0.2.1,
/// in which the test goes on, and that of its peer, 192.0.2.2.
class TwoMachines {
public:
    TwoMachines() {
        if (geteuid() != 0 || unshare(CLONE_NEWNET) != 0)
            return;
        peer_ = current();
        if (unshare(CLONE_NEWNET) != 0)
            return;
        gateway_ = current();
        const std::string there =
            "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(peer_);
        made_ = run("ip link set lo up && ip link add name here type veth peer name there netns " +
                    there + " && ip address add 192.0.2.1/24 dev here && ip link set here up");
        atPeer([&] {
            made_ = made_ && run("ip address add 192.0.2.2/24 dev there && ip link set there up");
        });
    }
    ~TwoMachines() {
        setns(home_, CLONE_NEWNET);
        for (const int fd : {home_, peer_, gateway_})
            if (fd >= 0)
                close(fd);
    }
    TwoMachines(const TwoMachines&) = delete;
    TwoMachines& operator=(const TwoMachines&) = delete;

    bool made() const { return made_; }
    template <class Does> void atPeer(const Does& does) const {
        setns(peer_, CLONE_NEWNET);
        does();
        setns(gateway_, CLONE_NEWNET);
    }
    void setPath(const char* state) const {
        atPeer([&] { EXPECT_TRUE(run("ip link set there " + std::string(state))); });
    }

private:
    static int current() { return open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC); }
    static bool run(const std::string& commands) {
        return std::system(("{ " + commands + "; } >/dev/null 2>&1").c_str()) == 0;
    }

    const int home_ = current();
    int peer_ = -1, gateway_ = -1;
    bool made_ = false;
};

/// Another file in place of one, for this thread and the programs that it starts.
class OtherFile {
public:
    OtherFile(const char* place, const fs::path& file) {
        there_ = unshare(CLONE_NEWNS) == 0 &&
                 mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                 mount(file.c_str(), place, nullptr, MS_BIND, nullptr) == 0;
    }
    ~OtherFile() {
        setns(home_, CLONE_NEWNS); // and with it the root of all of it, as the folder as well
        EXPECT_TRUE(fchdir(root_) == 0 && chroot(".") == 0 && fchdir(folder_) == 0);
        for (const int fd : {home_, root_, folder_})
            close(fd);
    }
    OtherFile(const OtherFile&) = delete;
    OtherFile& operator=(const OtherFile&) = delete;

    bool there() const { return there_; }

private:
    const int root_ = open("/", O_PATH | O_CLOEXEC), folder_ = open(".", O_PATH | O_CLOEXEC);
    const int home_ = open("/proc/thread-self/ns/mnt", O_RDONLY | O_CLOEXEC);
    bool there_ = false;
};

/// A station at the peer, five seconds of its stream a second. It waits for the gateway, or, with
/// a port of the gateway, connects to it.
class PeerStation {
public:
    explicit PeerStation(const TwoMachines& machines, int gatewayPort = 0)
        : gatewayPort_(gatewayPort) {
        machines.atPeer([this] {
            listener_ = boundSocket(port, "192.0.2.2");
            listen(listener_, 1);
            thread_ = std::jthread([this](const std::stop_token& stop) {
                while (!stop.stop_requested())
                    if (const int peer = runs ? connection() : -1; peer >= 0)
                        feed(peer, stop);
                    else
                        std::this_thread::sleep_for(milliseconds(20));
            });
        });
    }
    ~PeerStation() {
        thread_ = {};
        close(listener_);
    }
    PeerStation(const PeerStation&) = delete;
    PeerStation& operator=(const PeerStation&) = delete;

    ref::GpsTime now() const { return kNow + sent_ * 1.0; }
    std::atomic<bool> runs = true; // its machine
    int port = 0;

private:
    int connection() const {
        if (gatewayPort_ == 0) {
            pollfd p{listener_, POLLIN, 0};
            return poll(&p, 1, 100) == 1 ? accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC) : -1;
        }
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const timeval limit{1, 0};
        setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        sockaddr_in a = loopback("192.0.2.1", gatewayPort_);
        if (connect(fd, reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0)
            return fd;
        close(fd);
        return -1;
    }
    void feed(int peer, const std::stop_token& stop) {
        for (bool first = true; runs && !stop.stop_requested(); first = false) {
            const Bytes next = first ? streamOf(0, now()) : epochOf(sky_, now());
            if (send(peer, next.data(), next.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0)
                break;
            sent_ += first ? 0 : 1;
            std::this_thread::sleep_for(milliseconds(200));
        }
        const linger nothing{1, 0}; // nor does it say more later
        setsockopt(peer, SOL_SOCKET, SO_LINGER, &nothing, sizeof nothing);
        close(peer);
    }

    const int gatewayPort_;
    int listener_ = -1;
    ref::Sky sky_ = skyOfStation();
    std::atomic<int> sent_ = 0;
    std::jthread thread_; // the last: it uses the others
};

} // namespace

TEST(Gateway, TakesAStreamWhileANameServerIsSilentForAnotherOne) {
    const TwoMachines machines; // where nobody else answers
    const int server = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_in names = loopback("127.0.0.1", 53);
    if (!machines.made() ||
        bind(server, reinterpret_cast<const sockaddr*>(&names), sizeof names) != 0)
        GTEST_SKIP() << "no network namespaces may be made here, or there is no ip(8)";
    const fs::path file = fs::path(testing::TempDir()) / ("names_" + std::to_string(getpid()));
    std::ofstream(file) << "nameserver 127.0.0.1\noptions timeout:30 attempts:1\n";
    const Ports ports;
    int port = 0;
    const int listener = boundSocket(port);
    listen(listener, 1);
    std::optional<RunningGateway> gateway;
    const OtherFile other("/etc/resolv.conf", file);
    if (other.there())
        gateway.emplace(ports, "source = \"tcp://silent.example:1\"\n" + std::string(kPosition) +
                                   "[[station]]\nname = \"NEXT\"\nclock = \"" + kClock +
                                   "\"\nsource = \"tcp://localhost:" + std::to_string(port) +
                                   "\"\n" + kPosition);
    fs::remove(file);
    if (!gateway)
        GTEST_SKIP() << "no other /etc/resolv.conf may be mounted here";
    pollfd asked{server, POLLIN, 0}, comes{listener, POLLIN, 0};
    EXPECT_EQ(poll(&asked, 1, 10'000), 1) << "the name server is not asked";
    ASSERT_EQ(poll(&comes, 1, 10'000), 1) << gateway->log();
    const auto begin = monotonicNow();
    EXPECT_EQ(gateway->end(SIGTERM), 0);
    EXPECT_LT(monotonicNow() - begin, seconds(10)) << "it waits for the name server";
    close(listener);
    close(server);
}

TEST(Gateway, FindsAStationAgainWhoseMachineFailed) {
    const TwoMachines machines;
    if (!machines.made())
        GTEST_SKIP() << "no network namespaces may be made here, or there is no ip(8)";
    const Ports ports;
    PeerStation waits(machines), connects(machines, ports.station);
    RunningGateway gateway(
        ports, "source = \"tcp://192.0.2.2:" + std::to_string(waits.port) + "\"\n" + kPosition +
                   "[[station]]\nname = \"LSTN\"\nclock = \"" + kClock +
                   "\"\nsource = \"tcp-listen://192.0.2.1:" + std::to_string(ports.station) +
                   "\"\n" + kPosition);
    struct Served {
        std::string name;
        PeerStation& station;
        Client rover;
    };
    Served all[] = {{"CANB", waits, Client(ports.caster, askOf("CANB"), kGranted)},
                    {"LSTN", connects, Client(ports.caster, askOf("LSTN"), kGranted)}};
    for (Served& one : all)
        EXPECT_GE(wholeEpochs(one.rover.receive(epochs(1))), 1) << gateway.log();

    machines.setPath("down");
    for (Served& one : all)
        one.station.runs = false;
    const auto end = monotonicNow() + seconds(150);
    while (gateway.count("next attempt in") < 2 && monotonicNow() < end)
        std::this_thread::sleep_for(milliseconds(100));
    ASSERT_GE(gateway.count("next attempt in"), 2) << gateway.log();

    machines.setPath("up");
    const auto begin = monotonicNow();
    std::vector<std::jthread> waiting;
    for (Served& one : all) {
        one.station.runs = true;
        waiting.emplace_back([&gateway, &one, begin] {
            const Bytes got = one.rover.receive(epochOfTime(one.station.now()));
            const Seconds passed = monotonicNow() - begin;
            EXPECT_GE(wholeEpochs(got), 1) << one.name << gateway.log();
            EXPECT_LT(passed, Seconds(5 + waitInForce(gateway, one.name + ": "))) << one.name;
        });
    }
}

} // namespace running
