#pragma once

#include "ctl/dump/FrameScanner.h"
#include "gateway/net/Outbox.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <vector>

/// Epochs: the whole messages of an RTCM 3 stream, by epochs.

namespace gateway {

/// What the head of a frame says (RTCM 10403.x).
struct FrameHead {
    enum class Kind { observations, ephemeris, station, other };
    Kind kind = Kind::other;
    int type = 0;
    int station = -1;       // of observations and station messages; -1 = none
    std::uint32_t time = 0; // of observations: of the week or day, as sent
    bool more = false;      // further observations of the epoch follow
};
FrameHead headOf(std::span<const std::uint8_t> frame);
/// Seconds from the time of one observation message to that of another, across the end of the week
/// or day; nothing where their numbers differ.
std::optional<double> secondsBetween(const FrameHead& from, const FrameHead& to);

/// Of an ephemeris: its satellite in its kind of message, as sent. Equal for two issues of one.
int satelliteOf(std::span<const std::uint8_t> ephemeris);
/// Seconds from the reference time of an ephemeris (toe, tb) to that of another of its kind, across
/// the end of the week or day; nothing where a message has none.
std::optional<double> secondsBetweenIssues(std::span<const std::uint8_t> from,
                                           std::span<const std::uint8_t> to);

/// One epoch: its observation messages, in order; or the messages between two.
struct Block {
    Bytes bytes;
    enum class Kind { between, epoch, unfinished };
    Kind kind = Kind::between;
    FrameHead first{}; // of an epoch
};

class Epochs {
public:
    /// The stream goes on with these bytes; what came before is still to be asked for.
    void take(std::span<const std::uint8_t> bytes);
    /// The next block in order. What stands between the messages of an epoch comes behind it.
    std::optional<Block> next();
    /// The connection ended: what is not whole is forgotten.
    void restart();

    /// Whole frames and bytes of this connection.
    std::uint64_t frames() const { return frames_; }
    std::uint64_t bytes() const { return bytes_; }
    /// Its first bytes, at most 512, for saying what they look like where no frame has come.
    const Bytes& beginning() const { return beginning_; }

private:
    void take(std::span<const std::uint8_t> frame, const FrameHead& head);
    void end(Block::Kind kind);
    void endBetween();

    ctl::dump::FrameScanner scanner_{ctl::dump::FrameScanner::Replies::kIgnore};
    Bytes epoch_, between_;
    std::deque<Block> ready_;
    std::optional<FrameHead> first_; // of the epoch
    std::uint64_t frames_ = 0, bytes_ = 0;
    Bytes beginning_;
};

} // namespace gateway
