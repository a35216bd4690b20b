#include "bench/Sockets.h"
#include "bench/Station.h"
#include "reference/service/framing.h"

#include <chrono>
#include <cstdio>
#include <thread>

// What the service adds to an echo over loopback. One run talks to both in turn: an epoch goes to
// the echo, then to the service, and each time the time until the last byte of the answer counts.
//   bench_latency station HOST PORT EPOCHS   waits for the service on PORT, for the echo on PORT +
//   1 bench_latency echo HOST PORT             sends back what comes, until the connection ends

namespace {

using Clock = std::chrono::steady_clock;
using Micros = std::chrono::duration<double, std::micro>;

constexpr std::chrono::milliseconds kBetween{5}; // epochs; the service sleeps meanwhile

/// A connection that waits 10 s for what is to come.
Socket accept10s(const Socket& listener) {
    Socket s = accepted(listener);
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
    const Socket service = accept10s(serviceListener);
    const Socket echo = accept10s(echoListener);
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
