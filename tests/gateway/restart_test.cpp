#include "gateway/certificate.h"
#include "gateway/net/Address.h"
#include "gateway/running.h"

#include <atomic>
#include <stdlib.h>
#include <termios.h>

// Two gateways, of which one is the peer of the other for every kind of source and output, find
// each other again.

namespace running {

namespace {

using gateway::parseAddress, gateway::shown, gateway::Use;
using Seconds = std::chrono::duration<double>;

/// A station that sends to a port, five seconds of its stream a second, and connects again. As
/// receivers do it repeats its position and ephemerides: nobody asks for them on a serial line.
class Feeder {
public:
    explicit Feeder(int port)
        : thread_([this, port](const std::stop_token& stop) { run(port, stop); }) {}
    ref::GpsTime now() const { return kNow + sent_ * 1.0; }

private:
    Bytes next() {
        Bytes out;
        if (sent_ % 10 == 0) {
            out = ref::frame(ref::write1005({.station = 1, .xyzM = kSite}));
            append(out, streamOf(0, now()));
        }
        append(out, epochOf(sky_, now()));
        return out;
    }
    void run(int port, const std::stop_token& stop) {
        while (!stop.stop_requested())
            for (const Client station(port); !stop.stop_requested() && station.send(next());
                 ++sent_)
                std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }

    ref::Sky sky_ = skyOfStation();
    std::atomic<int> sent_ = 0;
    std::jthread thread_; // the last: it uses the others
};

/// Two serial ports, A and B, with a cable from the first to the second.
class Cable {
public:
    explicit Cable(const fs::path& folder) : folder_(folder) { plug(); }
    ~Cable() { unplug(); }
    Cable(const Cable&) = delete;
    Cable& operator=(const Cable&) = delete;

    /// The ports vanish and come again, as those of adapters do.
    void replug() {
        unplug();
        plug();
    }

private:
    int port(const char* name) const {
        const int fd = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        EXPECT_EQ(grantpt(fd) + unlockpt(fd), 0);
        termios raw{};
        tcgetattr(fd, &raw);
        cfmakeraw(&raw);
        tcsetattr(fd, TCSANOW, &raw);
        fs::remove(folder_ / name);
        fs::create_symlink(ptsname(fd), folder_ / name);
        return fd;
    }
    void plug() {
        from_ = port("A");
        to_ = port("B");
        thread_ = std::jthread([this](const std::stop_token& stop) {
            std::array<char, 4096> buffer{};
            while (!stop.stop_requested()) {
                const auto n = read(from_, buffer.data(), buffer.size());
                if (n <= 0 || write(to_, buffer.data(), static_cast<std::size_t>(n)) < 0)
                    std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
        });
    }
    void unplug() {
        thread_ = {};
        close(from_);
        close(to_);
    }

    fs::path folder_;
    int from_ = -1, to_ = -1;
    std::jthread thread_;
};

} // namespace

TEST(Gateways, FindEachOtherAgainByEveryKindOfSourceAndOutput) {
    const fs::path folder = fs::path(testing::TempDir()) / ("restart_" + std::to_string(getpid()));
    fs::create_directories(folder);
    const Ports a, b, c;
    const std::string to = "127.0.0.1:";
    const std::string casterOfA = to + std::to_string(a.caster),
                      casterOfB = to + std::to_string(b.caster),
                      listener = to + std::to_string(c.station),
                      receiver = to + std::to_string(b.station);
    const struct {
        std::string name, source, output; // output: of A; none where B fetches from its caster
    } cases[] = {
        {"CANB", "file:" + (folder / "recording").string() + "?loop",
         "file:" + (folder / "written").string()},
        {"LISTEN", "tcp-listen://" + receiver, "tcp://" + receiver},
        {"SERIAL", "serial:" + (folder / "B").string(), "serial:" + (folder / "A").string()},
        {"FETCH", "tcp://" + listener, "tcp-listen://" + listener},
        {"PUSH1", "caster:", "ntrip-source://:letmein@" + casterOfB + "/PUSH1?version=1"},
        {"PUSH2", "caster:", "ntrip-source://:letmein@" + casterOfB + "/PUSH2"},
        {"NTRIP1", "ntrip://" + casterOfA + "/CANB?version=1", ""},
        {"NTRIP2", "ntrip://" + casterOfA + "/CANB", ""},
        {"TLS", "ntrips://localhost:" + std::to_string(c.caster) + "/CANB", ""},
    };
    std::string outputs, stations;
    for (const auto& one : cases) {
        outputs += one.output.empty() ? "" : (outputs.empty() ? "\"" : ", \"") + one.output + "\"";
        if (!stations.empty())
            stations += "[[station]]\nname = \"" + one.name + "\"\nclock = \"" + kClock + "\"\n";
        stations += "source = \"" + one.source + "\"\n";
        if (one.source == "caster:")
            stations += "password = \"letmein\"\n";
    }
    Bytes recording = ref::frame(ref::write1005({.station = 1, .xyzM = kSite}));
    append(recording, streamOf(100));
    std::ofstream(folder / "recording", std::ios::binary)
        .write(reinterpret_cast<const char*>(recording.data()),
               static_cast<std::streamsize>(recording.size()));
    const Pair tls = pair(-1, 1);
    std::ofstream(folder / "key") << tls.key;
    std::ofstream(folder / "certificate") << tls.certificate;
    fs::permissions(folder / "key", fs::perms::owner_read | fs::perms::owner_write);

    Cable cable(folder);
    std::optional<RunningGateway> gatewayA, gatewayB;
    const auto startA = [&] {
        gatewayA.emplace(a, stationSource(a) + "push = [" + outputs + "]\n",
                         "listen_tls = [\"" + to + std::to_string(c.caster) +
                             "\"]\ncertificate = \"" + (folder / "certificate").string() +
                             "\"\nkey = \"" + (folder / "key").string() + "\"\n",
                         "", "A");
    };
    const auto startB = [&] {
        setenv("SSL_CERT_FILE", (folder / "certificate").c_str(), 1);
        gatewayB.emplace(b, stations, "", "", "B");
        unsetenv("SSL_CERT_FILE");
    };
    std::map<std::string, std::unique_ptr<Client>> rovers;
    const auto connectRovers = [&] {
        for (const auto& one : cases)
            rovers[one.name] = std::make_unique<Client>(b.caster, askOf(one.name), kGranted);
    };
    const auto written = [&] {
        const std::string bytes = readFile(folder / "written");
        return wholeEpochs(Bytes(bytes.begin(), bytes.end()));
    };
    const Feeder feeder(a.station);
    // Every rover gets an epoch of now or later within 5 s, and the wait in force.
    const auto expectWhole = [&](const std::string& when) {
        ASSERT_TRUE(gatewayA->engineConnected()) << gatewayA->log();
        const auto begin = monotonicNow();
        const auto ofNow = epochOfTime(feeder.now());
        std::vector<std::jthread> waiting;
        for (const auto& one : cases)
            waiting.emplace_back([&] {
                const int pushed =
                    one.output.empty()
                        ? 0
                        : waitInForce(*gatewayA, "output " +
                                                     shown(parseAddress(one.output, Use::output)) +
                                                     ": ");
                const Seconds limit(5 + pushed + waitInForce(*gatewayB, one.name + ": "));
                Bytes got;
                const auto whole = [&] {
                    return one.source.starts_with("file:") ? wholeEpochs(got) > 0 : ofNow(got);
                };
                while (!whole() && monotonicNow() - begin < limit)
                    append(got, rovers.at(one.name)->receive(
                                    [](const Bytes& some) { return !some.empty(); }));
                const Seconds passed = monotonicNow() - begin;
                EXPECT_TRUE(whole()) << when << ", " << one.name << "\n" << gatewayB->log();
                EXPECT_LT(passed, limit) << when << ", " << one.name;
            });
    };
    startA();
    ASSERT_TRUE(gatewayA->tells("(TLS)")) << gatewayA->log();
    startB();
    connectRovers();
    expectWhole("at first");
    gatewayA.reset();
    const int before = written();
    cable.replug();
    startA();
    expectWhole("A has come again");
    EXPECT_GT(written(), before);
    gatewayB.reset();
    startB();
    connectRovers();
    expectWhole("B has come again");
    gatewayB.reset();
    gatewayA.reset();
    fs::remove_all(folder);
}

} // namespace running
