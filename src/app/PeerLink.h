#pragma once

#include <chrono>
#include <cstdint>
#include <span>

/// PeerLink: how the service treats a peer that hangs up at once or whose path is slow. A reply is
/// worth something only while it is fresh, so that none waits behind an older one: while bytes of
/// earlier sends have not left, it is dropped whole. Frames that are passed on are small and keep
/// their worth: they are dropped only where many are waiting.

struct Connector; // config/Configuration.h

class PeerLink {
public:
    /// Of the peer at that address, which lines name.
    explicit PeerLink(const Connector& peer) : peer_(peer) {}

    /// A connection has been made.
    void made();
    /// What is left to wait before the next connect: where a connection lasted less than 3 s, the
    /// rest of them.
    std::chrono::milliseconds untilNextConnect() const;
    /// A receive failed, with that error number.
    void receiveFailed(int error) const;

    // Nothing is sent where the connection is not established.
    /// Sends or drops the reply to an epoch (its time in s, of any scale that runs evenly); whether
    /// it was sent.
    bool sendReply(int fd, std::span<const std::uint8_t> reply, double epochS);
    /// Sends or drops a frame of the stream; whether it was sent.
    bool sendFrame(int fd, std::span<const std::uint8_t> frame);

private:
    using Instant = std::chrono::nanoseconds; // of the monotonic clock
    using Seconds = std::chrono::duration<double>;

    void send(int fd, std::span<const std::uint8_t> bytes) const;
    void tellCut(const char* why) const;
    bool leavesRoom(int fd, std::uint32_t unsent, std::uint32_t mostUnsent, Seconds longest);
    void count(int& dropped);
    void replyLeft();

    const Connector& peer_;
    Instant madeAt_{}; // zero: never
    // What was dropped, from the line that tells the begin to the one that tells the end.
    int replies_ = 0;
    int frames_ = 0;
    int leftInRow_ = 0; // replies since the last one that was dropped
    // The last reply of this connection, sent or dropped.
    Instant lastAt_{}; // zero: none yet
    double lastEpochS_ = 0.0;
    Seconds patience_{};
    Instant waitedAt_{};
};
