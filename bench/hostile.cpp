#include "bench/Sockets.h"
#include "bench/Station.h"
#include "ctl/CommandLine.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <map>
#include <poll.h>
#include <random>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>

// Clients that mean no good, for bench/hostile.
//   bench_hostile recording FILE                       writes epochs for a station to repeat
//   bench_hostile storm HOST REQUESTS SLOW GATEWAY...
// Its caster is on port 2101, TLS on 2102, its page on 8080. SLOW clients send a byte of their
// request each second, until they are sent away. Then come random, mutated and half requests, from
// many addresses, and those of the same station without a fault in between. Then half as many
// clients ask the page for what happens, and as many for large answers, and hardly read; others ask
// meanwhile. Prints what was answered, the memory of the gateway as the storm goes on, and its end.

namespace {

using namespace std::string_literals;
using Clock = std::chrono::steady_clock;

constexpr int kPort = 2101, kTlsPort = 2102, kPagePort = 8080;
constexpr int kRecorded = 1200; // epochs

void record(const char* file) {
    ref::Sky sky = skyOf("GREC", "full");
    std::ofstream out(file, std::ios::binary);
    const auto write = [&](const std::vector<ref::Bytes>& frames) {
        for (const ref::Bytes& f : frames)
            out.write(reinterpret_cast<const char*>(f.data()),
                      static_cast<std::streamsize>(f.size()));
    };
    write(sky.ephemerisFrames(kStart));
    for (int k = 0; k < kRecorded; ++k)
        write(sky.epochFrames(kStart + k, 7));
}

const std::string kSeeds[] = {
    "GET / HTTP/1.0\r\nUser-Agent: NTRIP a/1\r\n\r\n",
    "GET /OPEN HTTP/1.0\r\nUser-Agent: NTRIP a/1\r\n\r\n$GPGGA,1,2,N,3,E,1,8,1,9,M,0,M,,*7A\r\n",
    ("GET /OPEN HTTP/1.1\r\nHost: a:2101\r\nUser-Agent: NTRIP a/1\r\nNtrip-Version: Ntrip/2.0\r\n"
     "Ntrip-GGA: $GPGGA,092750.000,5321.6802,N,00630.3372,W,1,8,1.03,61.7,M,55.2,M,,*76\r\n"
     "Connection: close\r\n\r\n"),
    "GET /NAMED HTTP/1.1\r\nHost: a\r\nAuthorization: Basic Ym9iOnJpZ2h0\r\n\r\n",
    "GET /NAMED HTTP/1.0\r\nUser-Agent: NTRIP\r\nAuthorization: Basic YTpi\r\n\r\n",
    "GET /NONE HTTP/1.0\r\nUser-Agent: NTRIP a\r\n\r\n",
    "HEAD / HTTP/1.1\r\nHost: a\r\n\r\n",
    "GET /status.json HTTP/1.1\r\nHost: a\r\nUser-Agent: Mozilla/5.0\r\nAccept: text/html\r\n\r\n",
    "SOURCE letmein /PUSHED\r\nSource-Agent: NTRIP a/1\r\nSTR: a;b\r\n\r\n\xD3\x00\x02\x43\x50"s,
    "SOURCE wrong PUSHED\r\n\r\n",
    ("POST /PUSHED HTTP/1.1\r\nHost: a\r\nNtrip-Version: Ntrip/2.0\r\nAuthorization: Basic "
     "YTpsZXRtZWlu\r\nContent-Type: gnss/data\r\nTransfer-Encoding: chunked\r\n\r\n"
     "5;x=y\r\nabcde\r\n1F\r\n\xD3\x00\x19 a message that is not right\r\n0\r\n\r\n"s),
    ("POST /PUSHED HTTP/1.1\r\nHost: a\r\nAuthorization: Basic YTpsZXRtZWlu\r\nContent-Length: "
     "5\r\n"
     "\r\nabcde"),
    "OPTIONS * HTTP/1.1\r\nHost: a\r\n\r\n",
    "GET /api/v1/stations HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n",
    "GET /api/v1/stations/OPEN HTTP/1.1\r\nHost: 127.0.0.1:8080\r\n\r\n",
    "GET /api/v1/events?station=OPEN&x=%3Cscript%3E HTTP/1.1\r\nHost: [::1]:8080\r\n\r\n",
    "GET /api/v1/live?station=OPEN HTTP/1.1\r\nHost: localhost\r\n\r\n",
    ("GET /station/a%2Fb HTTP/1.1\r\nHost: localhost\r\nIf-None-Match: \"1\"\r\n\r\n"
     "HEAD /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n"),
    "\x16\x03\x01\x00\x7f\x01\x00\x00\x7b\x03\x03"s + std::string(116, '\x5A'),
};

class Requests {
public:
    explicit Requests(unsigned seed) : random_(seed) {}
    std::size_t below(std::size_t n) { return random_() % n; }

    std::string next() {
        if (below(8) == 0) {
            std::string noise(below(3000), '\0');
            for (char& c : noise)
                c = byte();
            return noise;
        }
        std::string out = kSeeds[below(std::size(kSeeds))];
        for (std::size_t changes = below(6); changes > 0 && !out.empty(); --changes)
            change(out);
        return out;
    }

private:
    char byte() { return static_cast<char>(below(256)); }
    void change(std::string& s) {
        const std::size_t at = below(s.size()), length = below(20);
        switch (below(7)) {
        case 0:
            s[at] = byte();
            break;
        case 1:
            s.insert(at, 1 + below(3), byte());
            break;
        case 2:
            s.erase(at, length);
            break;
        case 3:
            s.insert(at, s.substr(below(s.size()), length));
            break;
        case 4:
            s.resize(at); // half a request
            break;
        case 5:
            s.insert(at, std::string(below(12'000), byte()));
            break;
        default:
            s += kSeeds[below(std::size(kSeeds))];
        }
    }
    std::mt19937 random_;
};

/// From an address of its own; it leaves no port behind.
Socket from(std::size_t client, const char* host, int port) {
    Socket s = tcp();
    sockaddr_in own = addressOf("127.0.0.1", 0);
    own.sin_addr.s_addr = htonl(0x7F400000U + static_cast<std::uint32_t>(client % 4'000'000) + 1);
    const linger none{1, 0};
    done(setsockopt(s.fd(), SOL_SOCKET, SO_LINGER, &none, sizeof none));
    done(bind(s.fd(), reinterpret_cast<const sockaddr*>(&own), sizeof own));
    const sockaddr_in to = addressOf(host, port);
    for (int tries = 0; connect(s.fd(), reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0;) {
        require(++tries < 200, "the gateway takes nobody");
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return s;
}

bool readable(const Socket& s, int ms) {
    pollfd p{s.fd(), POLLIN, 0};
    return poll(&p, 1, ms) == 1;
}

/// The first word of what came, or what else happened.
std::string answer(const Socket& s, int ms) {
    if (!readable(s, ms))
        return "(waits)";
    ref::Bytes in;
    if (!s.receive(in))
        return "(end)";
    std::string line(in.begin(), in.begin() + std::min<std::ptrdiff_t>(24, std::ssize(in)));
    line.resize(std::min(line.find_first_of("\r\n"), line.size()));
    const bool text =
        std::all_of(line.begin(), line.end(), [](char c) { return c >= ' ' && c <= '~'; });
    return text ? line : "(TLS)";
}

long residentKb(pid_t id) {
    std::ifstream status("/proc/" + std::to_string(id) + "/status");
    for (std::string word; status >> word;)
        if (long kb = 0; word == "VmRSS:" && status >> kb)
            return kb;
    throw std::runtime_error("the gateway has ended");
}

/// How many were sent away within 15 s, of clients that each send a byte a second.
std::size_t slow(const char* host, std::size_t count) {
    std::vector<Socket> clients;
    for (std::size_t i = 0; i < count; ++i)
        clients.push_back(from(i, host, kPort));
    for (std::size_t second = 0; second < 15; ++second) {
        for (const Socket& s : clients)
            send(s.fd(), &kSeeds[0][second], 1, MSG_NOSIGNAL | MSG_DONTWAIT);
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
    return static_cast<std::size_t>(std::count_if(clients.begin(), clients.end(),
                                                  [](const Socket& s) { return readable(s, 0); }));
}

void storm(const char* host, std::size_t count, pid_t gateway) {
    Requests requests(1);
    std::map<std::string, std::size_t> answers;
    for (std::size_t i = 0; i < count; ++i) {
        if (i % std::max<std::size_t>(count / 10, 1) == 0)
            std::printf("memory %ld KiB at %zu\n", residentKb(gateway), i);
        const std::string request = requests.next();
        const std::size_t which = requests.below(8);
        const Socket s = from(i, host, which == 0 ? kTlsPort : which < 4 ? kPagePort : kPort);
        send(s.fd(), request.data(), request.size(), MSG_NOSIGNAL);
        const bool ends = requests.below(2) == 0;
        if (ends)
            shutdown(s.fd(), SHUT_WR);
        if (ends || request.find("\r\n\r\n") != request.npos)
            ++answers[answer(s, 20)];
    }
    std::printf("memory %ld KiB at %zu\n", residentKb(gateway), count);
    for (const auto& [line, times] : answers)
        if (times >= 10)
            std::printf("%zu times: %s\n", times, line.c_str());
}

/// What comes until the text is there, or nothing comes for a while.
bool comes(const Socket& s, std::string_view text, int ms) {
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(ms);
    for (ref::Bytes in; Clock::now() < end && readable(s, ms) && s.receive(in);)
        if (std::search(in.begin(), in.end(), text.begin(), text.end()) != in.end())
            return true;
    return false;
}

/// Seconds until one who reads gets what it asks the page for; it asks again when it is refused.
double served(const char* host, const std::string& path, std::string_view what) {
    const Clock::time_point begin = Clock::now();
    const auto passed = [&] { return std::chrono::duration<double>(Clock::now() - begin).count(); };
    while (passed() < 60) {
        const Socket s = from(7, host, kPagePort);
        send(s.fd(), path.data(), path.size(), MSG_NOSIGNAL);
        if (comes(s, what, 10'000))
            return passed();
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    return passed();
}

std::string askFor(const std::string& path) {
    return "GET " + path + " HTTP/1.1\r\nHost: localhost\r\n\r\n";
}

/// Clients that ask the page for much and read a byte a second.
void slowReaders(const char* host, std::size_t count, pid_t gateway) {
    constexpr std::size_t kRounds = 45; // s
    std::string large;
    for (int i = 0; i < 20; ++i)
        large += askFor("/vendor/land.json") + askFor("/api/v1/events");
    const std::string asked[] = {askFor("/api/v1/live?station=OPEN"), large};
    const Socket hearer = from(9, host, kPagePort); // this one reads
    hearer.send(asked[0]);
    require(comes(hearer, "event: station", 5000), "nobody hears of the station");
    const long before = residentKb(gateway);
    std::vector<Socket> clients;
    for (std::size_t i = 0; i < count; ++i) {
        clients.push_back(from(i, host, kPagePort));
        const int least = 1;
        done(setsockopt(clients.back().fd(), SOL_SOCKET, SO_RCVBUF, &least, sizeof least));
        const std::string& words = asked[i % 2];
        send(clients.back().fd(), words.data(), words.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    }
    long most = before;
    double page = 0, live = 0;
    std::size_t heard = 0;
    for (std::size_t round = 0; round < kRounds; ++round) {
        page = std::max(page, served(host, askFor("/api/v1/stations"), "\"totals\""));
        live = std::max(live, served(host, asked[0], "event: station"));
        heard += comes(hearer, "event: station", 2000) ? 1U : 0U;
        most = std::max(most, residentKb(gateway));
        for (const Socket& s : clients) {
            char one = 0;
            recv(s.fd(), &one, 1, MSG_DONTWAIT);
        }
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
    std::size_t gone = 0;
    for (const Socket& s : clients) { // its end may stand behind what it has not read
        char more[4096];
        ssize_t n = 0;
        while ((n = recv(s.fd(), more, sizeof more, MSG_DONTWAIT)) > 0) {
        }
        gone += n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK) ? 1 : 0;
    }
    std::printf("%zu of %zu slow readers sent away in time\n", gone, count);
    std::printf("memory %ld KiB before them, %ld KiB at most\n", before, most);
    std::printf("seconds until others got the stations: %.2f at most; until they heard: %.2f\n",
                page, live);
    std::printf("%zu of %zu times one who reads heard of the station\n", heard, kRounds);
    require(page < 15 && live < 15 && heard + 2 >= kRounds, "slow readers keep others out");
    require(most - before < 256L * 1024, "slow readers take the memory");
}

int run(int argc, char** argv) {
    const std::string_view what = argc > 2 ? argv[1] : "";
    if (what == "recording") {
        record(argv[2]);
        return 0;
    }
    require(what == "storm" && argc > 5,
            "bench_hostile recording FILE | storm HOST REQUESTS SLOW GATEWAY...");
    const char* const host = argv[2];
    const pid_t gateway = done(fork());
    if (gateway == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // also where a demand here is not met
        execvp(argv[5], argv + 5);
        std::perror(argv[5]);
        std::_Exit(127);
    }
    const auto count = static_cast<std::size_t>(number(argv[4]));
    std::printf("%zu of %zu slow clients sent away in time\n", slow(host, count), count);
    const Clock::time_point begin = Clock::now();
    storm(host, static_cast<std::size_t>(number(argv[3])), gateway);
    slowReaders(host, count / 2, gateway);
    const Socket after = from(0, host, kPort);
    after.send(kSeeds[0]);
    std::printf("then: %s\n", answer(after, 5000).c_str());
    std::printf("seconds: %.0f\n", std::chrono::duration<double>(Clock::now() - begin).count());
    kill(gateway, SIGTERM);
    int status = 0;
    waitpid(gateway, &status, 0);
    std::printf("status: %d\n", WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status));
    return status == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    return ctl::guarded("bench_hostile", run, argc, argv);
}
