#include "app/PeerLink.h"

#include "base/Print.h"
#include "config/Configuration.h"
#include "gnss/Clock.h"
#include "net/Notify.h"
#include "net/ysocket.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kShortConnection{3000};
constexpr std::chrono::duration<double> kMostPatience{1.0};
// Two stations on one stream have epochs of the same time, one behind the other.
constexpr std::chrono::duration<double> kLeastPatience{0.01};
constexpr double kPatienceRegained = 0.1; // of the time that passes
constexpr std::uint32_t kMostUnsentBeforeFrame = 32768;
// The path is told to be free again behind that many replies, so that one with room for every
// second reply does not give two lines for each.
constexpr int kEnoughInRow = 10;

/// Errors with which the kernel gives a path up. That the peer ended the connection is no cut.
bool isCut(int error) {
    return error == ETIMEDOUT || error == EHOSTUNREACH || error == ENETUNREACH;
}

} // namespace

void PeerLink::tellCut(const char* why) const {
    print(Level::warning, "***WARN: Connection cut, %s:%d, %s!\n", peer_.host.c_str(), peer_.port,
          why);
}

void PeerLink::send(int fd, std::span<const std::uint8_t> bytes) const {
    const int sent = socket_send(fd, bytes);
    if (sent == -1 && isCut(errno))
        tellCut(std::strerror(errno));
    else if (sent != static_cast<int>(bytes.size()) && (sent >= 0 || errno == EAGAIN))
        tellCut("it takes no more data");
}

void PeerLink::made() {
    madeAt_ = monotonicNow();
    lastAt_ = {};
    patience_ = kMostPatience;
}

milliseconds PeerLink::untilNextConnect() const {
    if (madeAt_.count() == 0)
        return {};
    const auto left = std::chrono::ceil<milliseconds>(madeAt_ + kShortConnection - monotonicNow());
    return std::max(left, milliseconds(0));
}

void PeerLink::receiveFailed(int error) const {
    if (isCut(error))
        tellCut(std::strerror(error));
}

bool PeerLink::sendReply(int fd, std::span<const std::uint8_t> reply, double epochS) {
    const ConnectionState state = socket_state(fd);
    if (!state.established)
        return false;
    const Instant now = monotonicNow();
    // An epoch that comes sooner behind the last one than its time says is of a recording that is
    // played fast: until it is due, waiting makes nothing older. A live stream is never ahead.
    Seconds ahead = kMostPatience;
    if (lastAt_.count() != 0)
        ahead = std::max<Seconds>(Seconds(epochS - lastEpochS_) - (now - lastAt_), kLeastPatience);
    const bool fits = leavesRoom(fd, state.unsent, 0, ahead);
    lastAt_ = monotonicNow();
    lastEpochS_ = epochS;
    if (!fits) {
        count(replies_);
        return false;
    }
    send(fd, reply);
    replyLeft();
    return true;
}

bool PeerLink::sendFrame(int fd, std::span<const std::uint8_t> frame) {
    const ConnectionState state = socket_state(fd);
    if (!state.established)
        return false;
    const bool fits = leavesRoom(fd, state.unsent, kMostUnsentBeforeFrame, kMostPatience);
    if (fits)
        send(fd, frame);
    else
        count(frames_);
    return fits;
}

/// Whether no more than that many bytes are waiting, now (`unsent`) or within the time. Waiting
/// takes from a patience that comes back slowly, so that a path that is always slow holds nothing
/// up. What is unsent cannot be polled for.
bool PeerLink::leavesRoom(int fd, std::uint32_t unsent, std::uint32_t mostUnsent, Seconds longest) {
    if (unsent <= mostUnsent)
        return true;
    const Instant start = monotonicNow();
    patience_ =
        std::min<Seconds>(kMostPatience, patience_ + kPatienceRegained * (start - waitedAt_));
    const Seconds limit = std::min(longest, patience_);
    bool fits = false;
    while (!fits && monotonicNow() - start < limit) {
        pauseTelling(milliseconds(1));
        fits = socket_state(fd).unsent <= mostUnsent;
    }
    waitedAt_ = monotonicNow();
    patience_ -= waitedAt_ - start;
    return fits;
}

void PeerLink::count(int& dropped) {
    if (replies_ + frames_ == 0)
        print(Level::warning, "***WARN: Path to %s:%d is slow, replies are dropped!\n",
              peer_.host.c_str(), peer_.port);
    ++dropped;
    leftInRow_ = 0;
}

void PeerLink::replyLeft() {
    if (replies_ + frames_ == 0 || ++leftInRow_ < kEnoughInRow)
        return;
    print(Level::notice,
          "***INFO: Path to %s:%d is free again, %d replies and %d frames were dropped!\n",
          peer_.host.c_str(), peer_.port, replies_, frames_);
    replies_ = frames_ = leftInRow_ = 0;
}
