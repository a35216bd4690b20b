#include "process.h"
#include "session.h"

#include "reference/judge.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

// The real program against a peer: recorded or generated stream in, every byte of the replies out.

namespace {

using ref::Bytes;
namespace fs = std::filesystem;

/// Frames, forwarded or replies, that are there from the first to the last byte. Their lengths
/// stand in their heads; what they hold is judged later.
int wholeFrames(const Bytes& received) {
    int count = 0;
    for (std::size_t at = 0; at + 3 <= received.size(); ++count) {
        const bool reply = received[at] == 0xDA;
        const std::size_t field = 256U * received[at + 1] + received[at + 2];
        at += reply ? field + 7 : (field & 0x3FF) + 6;
        if (at > received.size())
            break;
    }
    return count;
}

/// A listener on loopback that the service connects to.
class Peer {
public:
    Peer() : listener_(boundSocket(port)) {}
    ~Peer() {
        drop();
        close(listener_);
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    /// Waits for the service; false after 20 s.
    bool accept() {
        listen(listener_, 1);
        pollfd p{listener_, POLLIN, 0};
        const bool waiting = poll(&p, 1, 20000) == 1;
        drop(); // a half-closed connection stands until the next one comes
        if (waiting)
            connection_ = ::accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        return connection_ >= 0;
    }
    /// Sends everything in blocks and takes in what comes, until that many frames are there or
    /// 20 s pass without any.
    Bytes exchange(const Bytes& stream, std::size_t block, int frames) {
        Bytes received;
        std::size_t sent = 0;
        while (sent < stream.size() || wholeFrames(received) < frames) {
            pollfd p{connection_,
                     static_cast<short>(sent < stream.size() ? POLLIN | POLLOUT : POLLIN), 0};
            if (poll(&p, 1, 20000) <= 0)
                break;
            if (p.revents & POLLOUT) {
                const auto n = send(connection_, stream.data() + sent,
                                    std::min(block, stream.size() - sent), MSG_NOSIGNAL);
                sent += n > 0 ? static_cast<std::size_t>(n) : 0;
            }
            if (p.revents & (POLLIN | POLLHUP)) {
                std::array<std::uint8_t, 65536> in{};
                const auto n = recv(connection_, in.data(), in.size(), 0);
                if (n <= 0)
                    break;
                received.insert(received.end(), in.begin(), in.begin() + n);
            }
        }
        return received;
    }
    void drop() {
        if (connection_ >= 0)
            close(connection_);
        connection_ = -1;
    }
    void reset() {
        const linger hard{1, 0};
        setsockopt(connection_, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
        drop();
    }
    void halfClose() { shutdown(connection_, SHUT_WR); }

    int port = 0;

private:
    int listener_;
    int connection_ = -1;
};

/// The running program with the worked example's configuration, at another port and clock.
class Service {
public:
    Service(int port, const std::string& clock) {
        const fs::path source = fs::path(KESTRUNE_SOURCE_DIR) / "examples/canberra";
        std::string deployment = readFile(source / "vrs.json");
        deployment = replaced(deployment, "127.0.0.1 2101", "127.0.0.1 " + std::to_string(port));
        deployment = replaced(deployment, "2018-07-12 23:37:11", clock);
        folder_ = fs::path(testing::TempDir()) / ("kestrune_service_" + std::to_string(getpid()));
        fs::create_directories(folder_);
        std::ofstream(folder_ / "vrs.json") << deployment;
        process_ = fork();
        if (process_ == 0) {
            const int out = open((folder_ / "log").c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0644);
            dup2(out, STDOUT_FILENO);
            if (chdir(KESTRUNE_SOURCE_DIR) == 0)
                execl(KESTRUNE_PROGRAM, "Kestrune", "-mode", "vrs", (folder_ / "vrs.json").c_str(),
                      nullptr);
            _exit(127);
        }
    }
    ~Service() {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
        fs::remove_all(folder_);
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;
    std::string log() const { return readFile(folder_ / "log"); }
    /// The descriptors of the process that are sockets.
    std::vector<std::string> sockets() const {
        std::vector<std::string> out;
        for (const auto& e : fs::directory_iterator("/proc/" + std::to_string(process_) + "/fd"))
            if (std::error_code error; fs::read_symlink(e, error).string().starts_with("socket:"))
                out.push_back(e.path().filename().string() + fs::read_symlink(e).string());
        return out;
    }

private:
    fs::path folder_;
    pid_t process_ = -1;
};

ref::Expectation expectation() {
    ref::Expectation e;
    e.siteM = kSite;
    e.near = {2009, 430650};
    constexpr std::array channels{1,  -4, 5, 6,  1, -4, 5, 6, -2, -7, 0, -1,
                                  -2, -7, 0, -1, 4, -3, 3, 2, 4,  -3, 3, 2};
    for (std::size_t i = 0; i < channels.size(); ++i)
        e.channels[static_cast<int>(i) + 1] = channels[i];
    for (const auto& [system, count] :
         std::map<char, int>{{'G', 32}, {'R', 24}, {'E', 36}, {'C', 37}, {'J', 4}})
        for (int id = 1; id <= count; ++id)
            e.satellites.insert(ref::satName(system, id));
    return e;
}

void expectRight(const ref::Verdict& v) {
    EXPECT_EQ(v.wrong, 0);
    for (const std::string& fault : v.faults)
        ADD_FAILURE() << fault;
}

} // namespace

TEST(Service, AnswersEveryEpochOfTheRecordedStream) {
    CAPTURE_OR_SKIP(stream, "str24-msm4.rtcm3");
    const ref::Expectation e = expectation();
    for (const std::size_t block : {std::size_t{4096}, std::size_t{333}, stream.size()}) {
        Peer peer;
        const Service service(peer.port, "2018-07-12 23:37:11");
        ASSERT_TRUE(peer.accept());
        const ref::Verdict v = judge(stream, peer.exchange(stream, block, 1309 + 1243), e);
        expectRight(v);
        EXPECT_EQ(v.replies, 1309);
        EXPECT_EQ(v.forwarded, 1243);
        EXPECT_GT(v.cells, 30000);
        RecordProperty("worstRangeM", std::to_string(v.worstRangeM()));
        RecordProperty("worstPhaseM", std::to_string(v.worstPhaseM()));
        for (const auto& [signal, count] : v.signals)
            RecordProperty(signal, count);
    }
}

TEST(Service, AnswersAGeneratedStreamOfAllSystems) {
    // Three epochs of each form, with new ephemerides, a station message in mid-epoch, garbage and
    // a frame with a wrong check word between them.
    const ref::GpsTime start{2009, 430650};
    ref::Sky sky(kSite);
    sky.systems = "GRECJ";
    Bytes stream;
    const auto put = [&](const Bytes& f) { stream.insert(stream.end(), f.begin(), f.end()); };
    int frames = 0;
    for (int epoch = 0; epoch < 12; ++epoch) {
        const ref::GpsTime t = start + epoch * 1.0;
        if (epoch % 6 == 0)
            for (const Bytes& f : sky.ephemerisFrames(t)) {
                put(f);
                ++frames;
            }
        auto observations = sky.epochFrames(t, 4 + epoch % 4);
        for (std::size_t i = 0; i < observations.size(); ++i) {
            if (epoch == 5 && i == 2) {
                put(ref::frame(ref::write1005({.station = 1, .xyzM = kSite})));
                ++frames;
            }
            if (epoch == 7 && i == 1)
                observations[i][40] ^= 4;
            put(observations[i]);
            if (i % 2 == 0)
                put(Bytes{0, 1, 2, 0xD2, 0xFF});
        }
        ++frames;
    }
    const ref::Expectation e = expectation();
    Peer peer;
    const Service service(peer.port, "2018-07-12 23:37:11");
    ASSERT_TRUE(peer.accept());
    const ref::Verdict v = judge(stream, peer.exchange(stream, 1000, frames), e);
    expectRight(v);
    EXPECT_EQ(v.replies, 12);
    EXPECT_GT(v.signals.at("C6I"), 100);
    for (const char* const signal : {"G1C", "G2W", "G5Q", "R1P", "R2P", "E1X", "E6X", "C2I", "J2X"})
        EXPECT_GT(v.signals.count(signal), 0U) << signal;
    EXPECT_LT(v.worstPhaseM(), 0.00038);
}

TEST(Service, SendsSixtyThreeCellsOfMoreThanSixtyFour) {
    // 17 Galileo satellites of four signals, all on the orbit of one that stands high.
    const ref::GpsTime t{2009, 430650};
    ref::Sky sky(kSite);
    sky.systems = "E";
    const std::vector<ref::Cell> seen = sky.observe(t, false);
    const auto highest =
        std::max_element(seen.begin(), seen.end(),
                         [](const ref::Cell& a, const ref::Cell& b) { return a.cnr < b.cnr; });
    ref::Kepler k = sky.navigation(t).kepler.at(highest->sat);
    k.type = 1046;
    Bytes stream;
    const auto put = [&](const Bytes& f) { stream.insert(stream.end(), f.begin(), f.end()); };
    ref::Msm m;
    m.system = 'E';
    m.epochField = ref::epochField('E', t);
    for (int id = 1; id <= 17; ++id) {
        k.id = id;
        put(ref::frame(ref::writeKepler(k)));
    }
    for (int id = 1; id <= 17; ++id) {
        for (const char* const signal : {"1X", "5X", "6X", "7X"}) {
            ref::Cell c = *highest;
            c.id = id;
            c.signal = signal;
            c.pseudorangeM = c.phaseRangeM = 2.4e7 + 10 * id + signal[0];
            m.cells.push_back(c);
        }
        m.more = id == 16;
        if (id >= 16) {
            put(ref::frame(ref::writeMsm(m)));
            m.cells.clear();
        }
    }
    Peer peer;
    const Service service(peer.port, "2018-07-12 23:37:11");
    ASSERT_TRUE(peer.accept());
    const ref::Verdict v = judge(stream, peer.exchange(stream, 4096, 18), expectation());
    expectRight(v);
    EXPECT_EQ(v.replies, 1);
    EXPECT_EQ(v.cells, 63);
}

TEST(Service, IsBackOnTheSameDescriptorWhateverThePeerDoes) {
    ref::Sky sky(kSite);
    Bytes epoch;
    const ref::GpsTime t{2009, 430650};
    std::vector<Bytes> frames = sky.ephemerisFrames(t);
    const int answers = static_cast<int>(frames.size()) + 1;
    for (const Bytes& f : sky.epochFrames(t, 4))
        frames.push_back(f);
    for (const Bytes& f : frames)
        epoch.insert(epoch.end(), f.begin(), f.end());
    // A whole message of another epoch part, then half a frame that could swallow what follows.
    Bytes half = sky.epochFrames(t + 1.0, 4).at(0);
    half.insert(half.end(), {0xD3, 0x03, 0xFF, 0x43});
    Peer peer;
    const Service service(peer.port, "2018-07-12 23:37:11");
    std::vector<std::string> descriptors;
    for (const std::string end : {"close", "reset", "half-close", "mid-frame", "last"}) {
        ASSERT_TRUE(peer.accept()) << end;
        const ref::Verdict v = judge(epoch, peer.exchange(epoch, 512, answers), expectation());
        expectRight(v);
        EXPECT_GT(v.cells, 50) << "before " << end;
        if (descriptors.empty())
            descriptors = service.sockets();
        EXPECT_EQ(service.sockets(), descriptors);
        EXPECT_EQ(descriptors.size(), 1U);
        if (end == "reset")
            peer.reset();
        if (end == "half-close")
            peer.halfClose();
        if (end == "mid-frame") // the half epoch must not reach into the next connection
            peer.exchange(half, 512, 0);
        if (end != "half-close")
            peer.drop();
    }
    EXPECT_TRUE(contains(service.log(), "ppppp:Success\n"));
}

TEST(Service, RetriesWhileThePeerRefuses) {
    Peer peer; // bound, not yet listening: connections are refused
    const Service service(peer.port, "2018-07-12 23:37:11");
    const std::string warning =
        "***WARN: Connect input failed, 127.0.0.1:" + std::to_string(peer.port);
    for (int i = 0; i < 200 && !contains(service.log(), warning); ++i)
        sleepms(20);
    EXPECT_TRUE(
        contains(service.log(), "Kestrune v2.5\nppppp:Unknown error -1\n" + warning + "\n"));
    EXPECT_TRUE(peer.accept());
}

TEST(Service, ExplainsItselfWithoutArguments) {
    for (const std::string arguments : {"", " -mode vrs", " -debug -post -mode vrs"}) {
        FILE* const pipe = popen((std::string(KESTRUNE_PROGRAM) + arguments).c_str(), "r");
        std::array<char, 1024> text{};
        const std::size_t n = fread(text.data(), 1, text.size() - 1, pipe);
        const int status = pclose(pipe);
        EXPECT_EQ(WEXITSTATUS(status), 1);
        EXPECT_EQ(std::string(text.data(), n),
                  "Kestrune v2.5\nWelcome to Kestrune!\n"
                  "Example: Kestrune -mode vrs vrs.json -rawsav/vrssav(*)\n"
                  "Example: where (*) denotes optional parameter.\n");
    }
}
