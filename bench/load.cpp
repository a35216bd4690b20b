#include "bench/Sockets.h"
#include "bench/Station.h"
#include "ctl/CommandLine.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sys/epoll.h>
#include <sys/wait.h>

// A caster with many stations at 1 Hz for a gateway to fetch, and many rovers of the gateway; for
// bench/gateway. The same epochs go by a plain relay to as many rovers, in turn with the gateway.
//   bench_load apart|together HOST STATIONS CLIENTS SECONDS GATEWAY...
// GATEWAY is the command that starts it: its stations S0, S1, ... are those of the caster on port
// 2101, its own caster is on port 2102. CLIENTS are those of each station. The epochs of the
// stations are spread over the second, or come together. Prints names and numbers.

namespace {

using Clock = std::chrono::steady_clock;
using Micros = std::chrono::duration<double, std::micro>;

constexpr int kCasterPort = 2101, kGatewayPort = 2102, kRelayPort = 2103;
constexpr int kAlone = 10; // s with stations alone: the first half for engines to get going
constexpr int kSettle = 3; // s after the clients have come
constexpr int kLinger = 2; // s for the last epochs to arrive
constexpr double kLateUs = 1e6;

enum Way { gateway, relay, kWays };

// The plain relay: what a source sends goes at once to all clients of the station.

/// One line says what a connection is: "+17" brings station 17, "-17" gets it.
void relayLine(const Socket& to, char what, int station) {
    to.send(what + std::to_string(station) + "\n");
}

class Poll {
public:
    Poll() : fd_(epoll_create1(EPOLL_CLOEXEC)) {}
    void add(int fd, std::uint64_t data) const {
        epoll_event event{EPOLLIN, {.u64 = data}};
        done(epoll_ctl(fd_.fd(), EPOLL_CTL_ADD, fd, &event));
    }
    void remove(int fd) const { done(epoll_ctl(fd_.fd(), EPOLL_CTL_DEL, fd, nullptr)); }
    /// Calls take(data) for all that can be read now or within that time.
    template <class Take> void wait(Clock::duration limit, const Take& take) const {
        const auto ns = std::max<std::int64_t>(std::chrono::nanoseconds(limit).count(), 0);
        const timespec time{ns / 1'000'000'000, ns % 1'000'000'000};
        std::array<epoll_event, 256> events;
        const int n = epoll_pwait2(fd_.fd(), events.data(), events.size(), &time, nullptr);
        for (int i = 0; i < n; ++i)
            take(events[static_cast<std::size_t>(i)].data.u64);
    }

private:
    Socket fd_;
};

[[noreturn]] void relayAll(const Socket& listener) {
    struct Connection {
        Socket socket;
        std::string line;
        bool source = false;
        int station = 0;
    };
    std::map<std::uint64_t, Connection> connections;
    std::map<int, std::vector<int>> clients; // by station
    const Poll poll;
    poll.add(listener.fd(), 0);
    for (;;)
        poll.wait(std::chrono::seconds(1), [&](std::uint64_t which) {
            if (which == 0) {
                Socket s = accepted(listener);
                const auto id = static_cast<std::uint64_t>(s.fd());
                poll.add(s.fd(), id);
                connections.emplace(id, Connection{std::move(s), {}});
                return;
            }
            Connection& c = connections.at(which);
            std::array<std::uint8_t, 16384> block;
            const bool data = c.source && c.line.ends_with('\n');
            const ssize_t n = recv(c.socket.fd(), block.data(), data ? block.size() : 1, 0);
            if (n <= 0)
                std::_Exit(0); // the run is over
            if (data) {
                for (const int to : clients[c.station])
                    send(to, block.data(), static_cast<std::size_t>(n),
                         MSG_NOSIGNAL | MSG_DONTWAIT);
            } else if (c.line += static_cast<char>(block[0]); c.line.ends_with('\n')) {
                c.source = c.line[0] == '+';
                c.station = number(std::string_view(c.line).substr(1, c.line.size() - 2));
                if (!c.source)
                    clients[c.station].push_back(c.socket.fd());
            }
        });
}

// The stream at a rover.

std::uint32_t bits(std::span<const std::uint8_t> from, std::size_t at, int width) {
    std::uint32_t out = 0;
    for (; width > 0; --width, ++at)
        out = out << 1 | (from[at / 8] >> (7 - at % 8) & 1U);
    return out;
}

/// The times of whole epochs, from the observation messages of GPS (MSM, DF004) to the last one of
/// the epoch (DF393).
class Stream {
public:
    /// Calls whole(milliseconds of the week) for each epoch that ends in these bytes.
    template <class Whole> void take(std::span<const std::uint8_t> bytes, const Whole& whole) {
        held_.insert(held_.end(), bytes.begin(), bytes.end());
        std::span<const std::uint8_t> rest = held_;
        while (rest.size() >= 3) {
            require(rest[0] == 0xD3, "a stream that is not of whole messages");
            const std::size_t size = bits(rest, 14, 10) + std::size_t{6};
            if (rest.size() < size)
                break;
            const std::uint32_t type = bits(rest, 24, 12);
            if (type == 1077)
                gps_ = bits(rest, 48, 30);
            if (type > 1070 && type < 1138 && type % 10 == 7 && bits(rest, 78, 1) == 0)
                whole(gps_);
            rest = rest.subspan(size);
        }
        held_.erase(held_.begin(), held_.end() - static_cast<std::ptrdiff_t>(rest.size()));
    }

private:
    ref::Bytes held_;
    std::uint32_t gps_ = 0;
};

struct Client {
    Socket socket;
    Way way;
    std::size_t station;
    std::string head; // of the gateway's answer, until it is whole
    bool granted;
    Stream stream{};
};

// The process of the gateway.

/// Of all its threads, us.
double processorTime(pid_t id) {
    double ns = 0;
    const std::string tasks = "/proc/" + std::to_string(id) + "/task";
    for (const auto& task : std::filesystem::directory_iterator(tasks)) {
        double own = 0;
        std::ifstream(task.path() / "schedstat") >> own;
        ns += own;
    }
    return ns * 1e-3;
}
double residentKb(pid_t id) {
    std::ifstream status("/proc/" + std::to_string(id) + "/status");
    for (std::string word; status >> word;)
        if (double kb = 0; word == "VmRSS:" && status >> kb)
            return kb;
    throw std::runtime_error("the gateway has ended");
}

class Load {
public:
    Load(const char* host, bool together, std::size_t stations, std::size_t clients, int seconds)
        : host_(host), together_(together), clientsEach_(clients), seconds_(seconds),
          stations_(stations), listener_(listenOn(host, kCasterPort)),
          sent_(kWays, std::vector<std::vector<Clock::time_point>>(stations)) {
        ref::Sky sky = skyOf("GREC", "full");
        for (const ref::Bytes& f : sky.ephemerisFrames(kStart))
            ephemerides_.insert(ephemerides_.end(), f.begin(), f.end());
        for (int k = 0; k < kAlone + kSettle + seconds; ++k) {
            ref::Bytes& epoch = epochs_.emplace_back();
            for (const ref::Bytes& f : sky.epochFrames(kStart + k, 7))
                epoch.insert(epoch.end(), f.begin(), f.end());
        }
        poll_.add(listener_.fd(), kListener);
    }

    void run(pid_t gatewayId) {
        while (sources_.size() < stations_)
            poll_.wait(std::chrono::seconds(1), [this](std::uint64_t data) { took(data); });
        for (std::size_t i = 0; i < stations_; ++i) {
            relays_.push_back(connected(kRelayPort));
            relayLine(relays_.back(), '+', static_cast<int>(i));
        }
        begin_ = Clock::now();
        send(0, kAlone / 2);
        const double early = processorTime(gatewayId);
        send(kAlone / 2, kAlone);
        const double aloneUs = processorTime(gatewayId) - early, aloneKb = residentKb(gatewayId);
        for (int way = 0; way < kWays; ++way)
            for (std::size_t i = 0; i < stations_ * clientsEach_; ++i)
                comes(static_cast<Way>(way), i % stations_);
        begin_ = Clock::now() - std::chrono::seconds(kAlone);
        send(kAlone, kAlone + kSettle);
        const double before = processorTime(gatewayId);
        send(kAlone + kSettle, end());
        const double us = processorTime(gatewayId) - before, kb = residentKb(gatewayId);
        until(Clock::now() + std::chrono::seconds(kLinger));

        const double epochs = static_cast<double>(stations_) * seconds_;
        const double each = static_cast<double>(clientsEach_);
        constexpr int measuredS = kAlone - kAlone / 2;
        const double aloneEpoch = aloneUs / (static_cast<double>(stations_) * measuredS);
        std::printf("core-percent %.2f\n", us / (seconds_ * 1e4));
        std::printf("us-an-epoch %.1f\n", aloneEpoch);
        std::printf("us-an-epoch-and-client %.2f\n", (us / epochs - aloneEpoch) / each);
        std::printf("kib-a-station %.0f\n", aloneKb / static_cast<double>(stations_));
        std::printf("kib-a-client %.1f\n",
                    (kb - aloneKb) / (each * static_cast<double>(stations_)));
        std::printf("epochs-due %.0f\n", epochs * each);
        constexpr const char* names[] = {"gateway", "relay"};
        for (int way = 0; way < kWays; ++way) {
            const auto& delays = delaysUs_[static_cast<std::size_t>(way)];
            const auto late = std::count_if(delays.begin(), delays.end(),
                                            [](double one) { return one > kLateUs; });
            std::printf("%s-epochs %zu\n%s-late %td\n%s-median %.0f\n%s-99 %.0f\n%s-most %.0f\n",
                        names[way], delays.size(), names[way], late, names[way],
                        percentile(delays, 0.5), names[way], percentile(delays, 0.99), names[way],
                        percentile(delays, 1.0));
        }
    }

private:
    static constexpr std::uint64_t kListener = ~0ULL, kSource = 1ULL << 32;

    int end() const { return kAlone + kSettle + seconds_; }

    Socket connected(int port) const {
        Socket s = tcp();
        const sockaddr_in address = addressOf(host_, port);
        done(connect(s.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
        setOn(s.fd(), IPPROTO_TCP, TCP_NODELAY);
        return s;
    }
    void comes(Way way, std::size_t station) {
        Client& c = clients_.emplace_back(Client{
            connected(way == gateway ? kGatewayPort : kRelayPort), way, station, {}, way == relay});
        if (way == gateway)
            c.socket.send("GET /S" + std::to_string(station) +
                          " HTTP/1.0\r\nUser-Agent: NTRIP bench/1\r\n\r\n");
        else
            relayLine(c.socket, '-', static_cast<int>(station));
        poll_.add(c.socket.fd(), clients_.size() - 1);
    }

    /// A gateway asks for the stream of a station.
    void asked(std::size_t which) {
        auto& [socket, request] = asking_[which];
        ref::Bytes in;
        require(socket.receive(in), "the gateway has gone");
        request.append(in.begin(), in.end());
        if (!request.ends_with("\r\n\r\n"))
            return;
        const std::size_t from = request.find("/S") + 2;
        const auto station = static_cast<std::size_t>(
            number(std::string_view(request).substr(from, request.find(' ', from) - from)));
        socket.send("ICY 200 OK\r\n\r\n");
        socket.send(ephemerides_);
        poll_.remove(socket.fd());
        require(sources_.emplace(station, std::move(socket)).second,
                "a station was asked for again");
    }

    void took(std::uint64_t data) {
        if (data == kListener) {
            asking_.emplace_back(accepted(listener_), "");
            poll_.add(asking_.back().first.fd(), kSource + asking_.size() - 1);
        } else if (data >= kSource) {
            asked(data - kSource);
        } else {
            read(clients_[data]);
        }
    }

    void read(Client& c) {
        const ssize_t n = recv(c.socket.fd(), block_.data(), block_.size(), MSG_DONTWAIT);
        if (n < 0)
            return;
        require(n > 0, "a rover was sent away");
        const Clock::time_point now = Clock::now();
        auto in = std::span<const std::uint8_t>(block_).first(static_cast<std::size_t>(n));
        while (!c.granted && !in.empty()) {
            c.head += static_cast<char>(in.front());
            in = in.subspan(1);
            c.granted = c.head == "ICY 200 OK\r\n\r\n";
            require(c.granted || c.head.size() < 14, "a rover was refused: " + c.head);
        }
        c.stream.take(in, [&](std::uint32_t ms) {
            const auto& sent = sent_[c.way][c.station];
            const auto k =
                static_cast<std::size_t>(ms / 1000) - static_cast<std::size_t>(kStart.sow);
            require(k < sent.size(), "an epoch that was not sent");
            if (k >= kAlone + kSettle)
                delaysUs_[c.way].push_back(Micros(now - sent[k]).count());
        });
    }

    void until(Clock::time_point time) {
        for (Clock::time_point now = Clock::now(); now < time; now = Clock::now())
            poll_.wait(time - now, [this](std::uint64_t data) { took(data); });
    }

    /// Epochs of all stations by both ways, each at its time.
    void send(int from, int to) {
        const Micros slot(1e6 / static_cast<double>(together_ ? 1 : stations_));
        for (int k = from; k < to; ++k)
            for (std::size_t turn = 0; turn < kWays * stations_; ++turn) {
                // together: all to the gateway, half a second later all to the relay
                const auto way = static_cast<Way>(together_ ? turn / stations_ : turn % kWays);
                const std::size_t station = together_ ? turn % stations_ : turn / kWays;
                const Micros at = 1e6 * Micros(k) + slot * (together_ ? 0 : station) +
                                  slot * static_cast<double>(way) / kWays;
                until(begin_ + std::chrono::duration_cast<Clock::duration>(at));
                const Socket& s = way == gateway ? sources_.at(station) : relays_[station];
                sent_[way][station].push_back(Clock::now());
                s.send(epochs_[static_cast<std::size_t>(k)]);
            }
        until(begin_ + std::chrono::seconds(to));
    }

    const char* host_;
    bool together_;
    std::size_t clientsEach_;
    int seconds_;
    std::size_t stations_;
    Socket listener_;
    Poll poll_;
    std::vector<std::pair<Socket, std::string>> asking_; // with what they have sent
    std::map<std::size_t, Socket> sources_;
    std::vector<Socket> relays_;
    std::vector<Client> clients_;
    ref::Bytes ephemerides_;
    std::vector<ref::Bytes> epochs_;
    std::array<std::uint8_t, 65536> block_;
    Clock::time_point begin_;
    std::vector<std::vector<std::vector<Clock::time_point>>> sent_; // by way and station
    std::array<std::vector<double>, kWays> delaysUs_;
};

class Child {
public:
    explicit Child(pid_t id) : id_(done(id)) {}
    ~Child() {
        kill(id_, SIGTERM);
        waitpid(id_, nullptr, 0);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    pid_t id() const { return id_; }

private:
    pid_t id_;
};

int load(int argc, char** argv) {
    require(argc > 6, "bench_load apart|together HOST STATIONS CLIENTS SECONDS GATEWAY...");
    const char* const host = argv[2];
    const Socket relayListener = listenOn(host, kRelayPort);
    const Child relaying(fork());
    if (relaying.id() == 0)
        relayAll(relayListener);
    Load load(host, std::string_view(argv[1]) == "together",
              static_cast<std::size_t>(number(argv[3])), static_cast<std::size_t>(number(argv[4])),
              number(argv[5]));
    const Child served(fork());
    if (served.id() == 0) {
        execvp(argv[6], argv + 6);
        std::perror(argv[6]);
        std::_Exit(127);
    }
    load.run(served.id());
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    return ctl::guarded("bench_load", load, argc, argv);
}
