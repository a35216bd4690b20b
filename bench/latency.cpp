#include "bench/Station.h"
#include "reference/service/framing.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <netinet/tcp.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

// What the service adds to an echo over loopback. One run talks to both in turn: an epoch goes to
// the echo, then to the service, and each time the time until the last byte of the answer counts.
//   bench_latency station HOST PORT EPOCHS   waits for the service on PORT, for the echo on PORT +
//   1 bench_latency echo HOST PORT             sends back what comes, until the connection ends

namespace {

using Clock = std::chrono::steady_clock;
using Micros = std::chrono::duration<double, std::micro>;

constexpr std::chrono::milliseconds kBetween{5}; // epochs; the service sleeps meanwhile

void require(bool holds, const std::string& what) {
    if (!holds)
        throw std::runtime_error(what);
}

/// The result of a system call that has to succeed.
int done(int result) {
    if (result < 0)
        throw std::system_error(errno, std::generic_category());
    return result;
}

void setOn(int fd, int level, int option) {
    const int on = 1;
    done(setsockopt(fd, level, option, &on, sizeof on));
}

class Socket {
public:
    explicit Socket(int fd) : fd_(done(fd)) {}
    Socket(Socket&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    Socket& operator=(Socket&&) = delete;
    ~Socket() {
        if (fd_ >= 0)
            close(fd_);
    }
    int fd() const { return fd_; }

    void send(const ref::Bytes& bytes) const {
        require(::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
                    static_cast<ssize_t>(bytes.size()),
                "not all could be sent");
    }
    /// Adds what is there; false at the end of the connection or after 10 s of silence.
    bool receive(ref::Bytes& to) const {
        std::uint8_t block[16384];
        const ssize_t n = recv(fd_, block, sizeof block, 0);
        to.insert(to.end(), block, block + std::max<ssize_t>(n, 0));
        return n > 0;
    }

private:
    int fd_;
};

sockaddr_in addressOf(const char* host, int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    require(inet_pton(AF_INET, host, &address.sin_addr) == 1, "not an address");
    return address;
}

Socket tcp() {
    return Socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

Socket listenOn(const char* host, int port) {
    Socket listener = tcp();
    const sockaddr_in address = addressOf(host, port);
    setOn(listener.fd(), SOL_SOCKET, SO_REUSEADDR);
    done(bind(listener.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
    done(listen(listener.fd(), 1));
    return listener;
}

Socket accepted(const Socket& listener) {
    Socket s(accept(listener.fd(), nullptr, nullptr));
    setOn(s.fd(), IPPROTO_TCP, TCP_NODELAY);
    const timeval limit{10, 0};
    done(setsockopt(s.fd(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit));
    return s;
}

/// Bytes of the reply frame that begins there; 0 where too little has come.
std::size_t replyBytes(const ref::Bytes& bytes) {
    return bytes.size() < 3 ? 0 : static_cast<std::size_t>(bytes[1] << 8 | bytes[2]) + 3 + 4;
}

double roundTrip(const Socket& s, const ref::Bytes& epoch, std::size_t expected) {
    ref::Bytes back;
    const Clock::time_point sent = Clock::now();
    s.send(epoch);
    for (;;) {
        require(s.receive(back), "an answer is missing");
        const std::size_t whole = expected > 0 ? expected : replyBytes(back);
        if (whole > 0 && back.size() >= whole)
            break;
    }
    const double us = Micros(Clock::now() - sent).count();
    if (expected == 0)
        require(!ref::openReply(back).messages.empty(), "an empty reply");
    return us;
}

double percentile(std::vector<double> values, double part) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
}

void print(const char* name, const std::vector<double>& us) {
    std::printf("%s %.0f %.0f\n", name, percentile(us, 0.5), percentile(us, 0.99));
}

/// The ephemerides, and the frames that come back from them.
void greet(const Socket& service, ref::Sky& sky) {
    std::size_t passed = 0;
    for (const ref::Bytes& frame : sky.ephemerisFrames(kStart)) {
        service.send(frame);
        passed += frame.size();
    }
    ref::Bytes back;
    while (back.size() < passed)
        require(service.receive(back), "the ephemerides did not come back");
}

void station(const char* host, int port, int epochs) {
    const Socket serviceListener = listenOn(host, port);
    const Socket echoListener = listenOn(host, port + 1);
    const Socket service = accepted(serviceListener);
    const Socket echo = accepted(echoListener);
    ref::Sky sky = skyOf("GREC", "full");
    greet(service, sky);
    std::vector<double> echoUs, serviceUs;
    for (int i = 0; i < epochs; ++i) {
        ref::Bytes epoch;
        for (const ref::Bytes& frame : sky.epochFrames(kStart + i, 7))
            epoch.insert(epoch.end(), frame.begin(), frame.end());
        std::this_thread::sleep_for(kBetween);
        echoUs.push_back(roundTrip(echo, epoch, epoch.size()));
        std::this_thread::sleep_for(kBetween);
        serviceUs.push_back(roundTrip(service, epoch, 0));
    }
    print("echo", echoUs);
    print("service", serviceUs);
}

void echo(const char* host, int port) {
    const Socket s = tcp();
    const sockaddr_in address = addressOf(host, port);
    while (connect(s.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        std::this_thread::sleep_for(kBetween);
    setOn(s.fd(), IPPROTO_TCP, TCP_NODELAY);
    for (ref::Bytes bytes; s.receive(bytes); bytes.clear())
        s.send(bytes);
}

int number(std::string_view text) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    require(error == std::errc() && end == text.data() + text.size(), "not a number");
    return value;
}

} // namespace

int main(int argc, char** argv) {
    try {
        const std::string_view as = argc > 3 ? argv[1] : "";
        if (as == "station" && argc == 5)
            station(argv[2], number(argv[3]), std::max(number(argv[4]), 1));
        else if (as == "echo" && argc == 4)
            echo(argv[2], number(argv[3]));
        else
            throw std::runtime_error("bench_latency station HOST PORT EPOCHS | echo HOST PORT");
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_latency: %s\n", e.what());
        return 1;
    }
}
