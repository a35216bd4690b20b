#include "ctl/simulate/Endpoint.h"

#include "gnss/Clock.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace ctl::simulate {

namespace {

constexpr double kPatienceS = 2.0;       // for something owed
constexpr double kRoverPatienceS = 10.0; // for the road to a rover
constexpr double kRoverPauseS = 1.0;     // before it is started again
constexpr double kRoverGoneS = 30.0;
constexpr double kStallS = 0.15;
constexpr double kSlowReaderS = 0.4;
constexpr std::size_t kLargestRandomBlock = 1500;
constexpr std::size_t kTidyFrom = 1 << 20; // bytes

FileDescriptor listenOn(const std::string& host, int port) {
    const auto fail = [&](const char* what) {
        throw std::runtime_error(host + ":" + std::to_string(port) + ": " + what + ": " +
                                 std::strerror(errno));
    };
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1)
        throw std::runtime_error(host + " is no dotted IPv4 address to listen on");
    FileDescriptor fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd.open())
        fail("no socket");
    const int on = 1;
    setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        fail("cannot listen there");
    if (listen(fd.get(), 4) != 0)
        fail("cannot listen");
    return fd;
}

} // namespace

double monotonicS() {
    return std::chrono::duration<double>(monotonicNow()).count();
}

Endpoint::Endpoint(const std::string& host, int port, const ref::Expectation& expectation,
                   FaultPlan faults, Split split)
    : judge(expectation), plan(std::move(faults)), listener_(listenOn(host, port)), split_(split) {}

void Endpoint::hearRover(const std::string& command) {
    rover_ = std::make_unique<Rover>(command);
    rover_->start();
}

bool Endpoint::roverHears(double now) const {
    if (!rover_)
        return true;
    return connected() &&
           (roverHeard_ || now - std::max(connectedAt_, roverEndedAt_) > kRoverPatienceS);
}

bool Endpoint::roverGone(double now) const {
    return rover_ && !roverHeard_ && roverEndedAt_ > 0 && connected() &&
           now - std::max(connectedAt_, roverEndedAt_) > kRoverGoneS;
}

void Endpoint::accept() {
    const int fd = ::accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0)
        return;
    FileDescriptor fresh(fd);
    if (connection_.open())
        read(); // what the earlier connection still holds
    if (connection_.open())
        disconnect();
    connection_ = std::move(fresh);
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    ++connections;
    connectedAt_ = monotonicS();
    greeted = false;
}

void Endpoint::queue(const ref::Bytes& bytes) {
    judge.sent(bytes);
    out_.insert(out_.end(), bytes.begin(), bytes.end());
    queued_ += bytes.size();
}

// A part of the epoch, up to the middle of its last message.
void Endpoint::queueCut(const EpochFrames& epoch) {
    for (std::size_t i = 0; i + 1 < epoch.frames.size(); ++i)
        queue(epoch.frames[i]);
    if (!epoch.frames.empty()) {
        ref::Bytes half = epoch.frames.back();
        half.resize(1 + plan.pick(half.size() - 1));
        queue(half);
    }
}

void Endpoint::queueEpoch(const EpochFrames& epoch, long number) {
    const std::pair<Fault, End> ends[] = {
        {Fault::close, End::close}, {Fault::reset, End::reset}, {Fault::halfClose, End::halfClose}};
    ++epochs;
    for (const auto& [fault, end] : ends)
        if (end_ == End::none && plan.due(fault, number))
            end_ = end;
    if (end_ != End::none)
        return queueCut(epoch);
    const std::size_t before = out_.size();
    queue(spoiled(epoch.frames, plan, number));
    if (plan.due(Fault::stall, number))
        pauseAt_ = before + 1 + plan.pick(out_.size() - before);
    if (plan.due(Fault::slowReader, number))
        readFrom_ = monotonicS() + kSlowReaderS;
}

double Endpoint::pausedUntil(double now) const {
    double until = now;
    if (pending() && writeFrom_ > now)
        until = writeFrom_;
    if (readFrom_ > now)
        until = until > now ? std::min(until, readFrom_) : readFrom_;
    return until;
}

std::size_t Endpoint::blockSize() {
    std::size_t size = out_.size() - sent_;
    if (pauseAt_ > sent_)
        size = std::min(size, pauseAt_ - sent_);
    if (split_.random)
        size = std::min(size, 1 + plan.pick(kLargestRandomBlock));
    else if (split_.bytes > 0)
        size = std::min(size, split_.bytes);
    return size;
}

void Endpoint::write() {
    // The bytes leave while send runs; with the time before it a delay is never shown too short.
    for (double now = monotonicS(); pending() && now >= writeFrom_; now = monotonicS()) {
        const auto n = send(connection_.get(), out_.data() + sent_, blockSize(), MSG_NOSIGNAL);
        if (n <= 0) {
            if (n < 0 && errno != EAGAIN && errno != EINTR)
                disconnect();
            return;
        }
        if (record)
            record->write(reinterpret_cast<const char*>(out_.data() + sent_), n);
        sent_ += static_cast<std::size_t>(n);
        bytesSent += static_cast<std::uint64_t>(n);
        lastMoved_ = now;
        judge.left(queued_ - (out_.size() - sent_), now);
        if (pauseAt_ != 0 && sent_ >= pauseAt_) {
            pauseAt_ = 0;
            writeFrom_ = now + kStallS;
        }
    }
    if (!pending() || sent_ > kTidyFrom) { // what is sent is not kept
        out_.erase(out_.begin(), out_.begin() + static_cast<std::ptrdiff_t>(sent_));
        pauseAt_ = pauseAt_ > sent_ ? pauseAt_ - sent_ : 0;
        sent_ = 0;
    }
}

void Endpoint::read() {
    std::array<std::uint8_t, 65536> in{};
    for (;;) {
        const auto n = recv(connection_.get(), in.data(), in.size(), 0);
        if (n > 0) {
            if (!rover_)
                came({in.data(), static_cast<std::size_t>(n)});
            continue;
        }
        if (n < 0 && (errno == EAGAIN || errno == EINTR))
            return;
        return disconnect();
    }
}

void Endpoint::readRover() {
    std::array<std::uint8_t, 65536> in{};
    for (;;) {
        const ssize_t n = rover_->read(in);
        if (n < 0)
            return;
        if (n == 0)
            break;
        roverConnections += std::exchange(roverHeard_, true) ? 0 : 1;
        came({in.data(), static_cast<std::size_t>(n)});
    }
    rover_->end();
    if (std::exchange(roverHeard_, false) || roverEndedAt_ == 0)
        roverEndedAt_ = monotonicS();
    roverFrom_ = monotonicS() + kRoverPauseS;
    judge.roverEnded();
}

void Endpoint::came(std::span<const std::uint8_t> bytes) {
    if (replies)
        replies->write(reinterpret_cast<const char*>(bytes.data()),
                       static_cast<std::streamsize>(bytes.size()));
    lastMoved_ = monotonicS();
    judge.received(bytes, lastMoved_);
}

bool Endpoint::idle(double now) const {
    if (!connected())
        return false;
    if (pending() || end_ != End::none || now < readFrom_)
        return false;
    return judge.owed() == 0 || now - lastMoved_ > kPatienceS;
}

void Endpoint::settle(double now) {
    if (rover_ && !rover_->runs() && now >= roverFrom_)
        rover_->start();
    if (end_ == End::none || !connected() || pending() || now < readFrom_)
        return;
    if (judge.owed() > 0 && now - lastMoved_ <= kPatienceS)
        return;
    if (end_ == End::halfClose) {
        shutdown(connection_.get(), SHUT_WR);
        ended_ = true; // read on until the other side ends, too
        end_ = End::none;
        return;
    }
    if (end_ == End::reset) {
        const linger hard{1, 0};
        setsockopt(connection_.get(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    }
    disconnect();
}

void Endpoint::disconnect() {
    connection_.reset();
    ended_ = false;
    end_ = End::none;
    out_.clear();
    sent_ = pauseAt_ = 0;
    writeFrom_ = readFrom_ = 0;
    judge.restart();
}

void Endpoint::finish() {
    judge.finish();
    connection_.reset();
    listener_.reset();
    rover_.reset();
}

} // namespace ctl::simulate
