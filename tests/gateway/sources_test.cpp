#include "gateway/running.h"

#include <atomic>

// Where the stream of a station comes from: several sources, and a second stream of ephemerides.

namespace running {

namespace {

using std::chrono::seconds, std::chrono::milliseconds, std::chrono::nanoseconds;

std::vector<Bytes> epochsOfSeconds(int count) {
    ref::Sky sky = skyOfStation();
    std::vector<Bytes> out;
    for (int i = 0; i < count; ++i)
        out.push_back(epochOf(sky, kNow + i * 1.0));
    return out;
}

/// One of several sources of a station: a peer that the gateway connects to. All send the same
/// epochs, one a second from `start` on.
class Sender {
public:
    enum class Does { sends, freezes, refuses };
    Sender(const std::vector<Bytes>& epochs, nanoseconds start)
        : epochs_(epochs), start_(start), listener_(boundSocket(port_)),
          thread_([this](const std::stop_token& stop) {
              listen(listener_, 1);
              while (!stop.stop_requested())
                  serveOne(stop);
          }) {}
    ~Sender() {
        thread_ = {};
        close(listener_);
    }
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    std::string source() const { return "\"tcp://127.0.0.1:" + std::to_string(port_) + "\""; }
    std::atomic<Does> does = Does::sends;
    std::atomic<nanoseconds> sent = nanoseconds{}; // when the last epoch went out

private:
    /// The epoch of now, -1 before the first.
    std::int64_t due() const {
        const nanoseconds passed = monotonicNow() - start_;
        return passed < nanoseconds{} ? -1 : passed / seconds(1);
    }
    void serveOne(const std::stop_token& stop) {
        pollfd p{listener_, POLLIN, 0};
        const int peer =
            poll(&p, 1, 100) == 1 ? accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC) : -1;
        if (peer < 0)
            return;
        const auto send = [&](const Bytes& bytes) {
            return ::send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0;
        };
        std::int64_t next = due() + 1;
        for (bool lives = send(streamOf(0));
             lives && does != Does::refuses && !stop.stop_requested();) {
            std::this_thread::sleep_for(milliseconds(20));
            for (; next <= due(); ++next)
                if (does == Does::sends) {
                    lives = send(epochs_.at(static_cast<std::size_t>(next)));
                    sent = monotonicNow();
                }
        }
        close(peer);
    }

    const std::vector<Bytes>& epochs_;
    nanoseconds start_;
    int port_ = 0;
    int listener_;
    std::jthread thread_; // the last: it uses the others
};

/// A station with two sources, of which the second is behind by more than two epochs, and a rover.
struct TwoSources {
    const std::vector<Bytes> epochs = epochsOfSeconds(600);
    const Ports ports;
    Sender first{epochs, monotonicNow()};
    Sender second{epochs, monotonicNow() + milliseconds(2500)};
    RunningGateway gateway{ports, "source = [" + first.source() + ", " + second.source() + "]\n" +
                                      kPosition};
    Client rover{ports.caster, askOf("CANB"), kGranted};
    std::vector<int> got; // the epochs of the rover, by their second

    /// The rover reads on until something is told, or for so long.
    bool readsUntil(const std::string& told, seconds limit) {
        const nanoseconds end = monotonicNow() + limit;
        const auto enough = [&](const Bytes&) {
            return monotonicNow() > end ||
                   (!told.empty() && gateway.log().find(told) != std::string::npos);
        };
        while (!enough({}))
            for (const ref::Frame& f : ref::goodFrames(rover.receive(enough)))
                if (const auto head = ref::headOf(f); head && f.type == 1077)
                    got.push_back(
                        static_cast<int>(std::lround(head->epochField / 1000.0 - kNow.sow)));
        return monotonicNow() <= end;
    }
    bool someEpochComesTwiceOrLate() const {
        return std::ranges::adjacent_find(got, std::ranges::greater_equal{}) != got.end();
    }
};

} // namespace

TEST(Sources, FirstReturnsAfterAMinuteOnTrialWithoutAGapOrADoubledEpoch) {
    TwoSources s;
    ASSERT_TRUE(s.gateway.engineConnected()) << s.gateway.log();
    s.readsUntil("", seconds(3));
    s.first.does = Sender::Does::refuses;
    ASSERT_TRUE(s.readsUntil("now, which delivers", seconds(60))) << s.gateway.log();
    const auto bySecond = static_cast<std::ptrdiff_t>(s.got.size());
    s.readsUntil("", seconds(4));
    const nanoseconds back = monotonicNow();
    s.first.does = Sender::Does::sends;
    ASSERT_TRUE(s.readsUntil("now, which has delivered for a minute again", seconds(200)))
        << s.gateway.log();
    EXPECT_GE(monotonicNow() - back, seconds(60));
    s.readsUntil("", seconds(5));

    EXPECT_EQ(s.gateway.count("the stream comes from"), 2) << s.gateway.log();
    EXPECT_GT(s.got.size(), 60U);
    EXPECT_FALSE(s.someEpochComesTwiceOrLate());
    const std::vector<int> later(s.got.begin() + bySecond, s.got.end());
    ASSERT_FALSE(later.empty());
    EXPECT_EQ(later.back() - later.front() + 1, std::ssize(later)) << "a gap";
}

TEST(Sources, SecondDeliversWhereTheFirstFreezes) {
    TwoSources s;
    ASSERT_TRUE(s.gateway.engineConnected()) << s.gateway.log();
    while (s.first.sent.load() == nanoseconds{})
        s.readsUntil("", seconds(1));
    s.first.does = Sender::Does::freezes;
    ASSERT_TRUE(s.readsUntil("now, which delivers", seconds(90))) << s.gateway.log();
    EXPECT_GE(monotonicNow() - s.first.sent.load(), seconds(30));
    const std::size_t before = s.got.size();
    s.readsUntil("", seconds(4));
    EXPECT_GE(s.got.size(), before + 3);
    EXPECT_FALSE(s.someEpochComesTwiceOrLate());
}

TEST(Sources, SecondStreamGivesTheNewestEphemeridesThatTheStationLacks) {
    const Ports ports, others;
    // The engine is the test: it sees what the gateway sends to one.
    RunningGateway gateway(
        ports,
        stationSource(ports) +
            "ephemerides = \"tcp-listen://127.0.0.1:" + std::to_string(others.station) + "\"\n",
        "",
        "engine = \"external\"\naddress = \"127.0.0.1:" + std::to_string(others.caster) + "\"\n");
    Client engine(others.caster);
    ASSERT_TRUE(gateway.tells("has connected")) << gateway.log();

    // The station sends those of GPS, and of Galileo in the other one of its two messages.
    ref::Sky sky = skyOfStation();
    const auto setOf = [&](double hours) {
        std::map<int, std::vector<Bytes>> byType;
        for (const ref::Frame& f : ref::goodFrames(streamOf(0, kNow + 3600 * hours)))
            byType[f.type].push_back(f.bytes);
        return byType;
    };
    const auto older = setOf(-2), now = setOf(0), newer = setOf(2);
    std::vector<Bytes> own = now.at(1019);
    const ref::Navigation navigation = sky.navigation(kNow);
    for (const auto& [sat, kepler] : navigation.kepler)
        if (ref::Kepler other = kepler; other.system == 'E') {
            other.type = other.type == 1045 ? 1046 : 1045;
            own.push_back(ref::frame(ref::writeKepler(other)));
        }
    const Client station(ports.station), second(others.station);
    for (const Bytes& one : own)
        ASSERT_TRUE(station.send(one));
    Bytes received;
    const auto comes = [&](const Bytes& frame) {
        return [&received, frame](const Bytes& more) {
            Bytes all = received;
            append(all, more);
            return std::search(all.begin(), all.end(), frame.begin(), frame.end()) != all.end();
        };
    };
    append(received, engine.receive(comes(own.back())));

    // What it lacks comes in three issues; the oldest comes again behind each.
    const auto sendAll = [&](const std::map<int, std::vector<Bytes>>& set) {
        for (const auto& [type, frames] : set)
            for (const Bytes& one : frames)
                ASSERT_TRUE(second.send(one));
    };
    for (const auto* const set : {&now, &older, &now, &newer, &older, &newer})
        sendAll(*set);
    const auto enough = comes(newer.at(1044).back());
    for (int sent = 0; !enough({}) && sent < 100;) {
        // In two pieces: what comes between them belongs behind the epoch.
        const Bytes epoch = epochOf(sky, kNow + sent++ * 1.0);
        const std::size_t half = epoch.size() / 2;
        ASSERT_TRUE(station.send(Bytes(epoch.begin(), epoch.begin() + static_cast<long>(half))));
        std::this_thread::sleep_for(milliseconds(50));
        ASSERT_TRUE(station.send(Bytes(epoch.begin() + static_cast<long>(half), epoch.end())));
        append(received, engine.receive([&, want = sent](const Bytes& more) {
            Bytes all = received;
            append(all, more);
            return wholeEpochs(all) >= want;
        }));
    }
    const Bytes end = ref::frame(ref::write1005({.station = 1, .xyzM = kSite}));
    ASSERT_TRUE(station.send(end));
    append(received, engine.receive(comes(end)));

    std::map<Bytes, int> times;
    bool amid = false;
    for (const ref::Frame& f : ref::goodFrames(received)) {
        const auto head = ref::headOf(f);
        EXPECT_FALSE(amid && !head) << "a message " << f.type << " amid an epoch";
        amid = head ? head->more : amid;
        ++times[f.bytes];
    }
    for (const Bytes& one : own)
        EXPECT_EQ(times[one], 1);
    for (const auto& [type, all] : older) {
        const bool lacking = type == 1020 || type == 1042 || type == 1044;
        for (std::size_t i = 0; i < all.size(); ++i) {
            EXPECT_EQ(times[all[i]], 0) << "the old issue of " << type;
            if (type != 1019) // the station's own
            {
                EXPECT_EQ(times[now.at(type)[i]], lacking ? 1 : 0) << type;
            }
            EXPECT_EQ(times[newer.at(type)[i]], lacking ? 1 : 0) << type;
        }
    }
    EXPECT_GT(now.at(1020).size() + now.at(1042).size(), 40U);
}

} // namespace running
