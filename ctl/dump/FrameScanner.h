#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

/// FrameScanner: RTCM 3 frames (RTCM 10403.x) and reply frames of the service in a stream of bytes
/// of any origin.

namespace ctl::dump {

inline constexpr std::size_t kMaxSkipped = 4096; // bytes told as one piece

struct Found {
    enum Kind { kMessage, kReply, kSkipped };
    Kind kind = kSkipped;
    std::uint64_t offset = 0; // of its first byte in the stream
    /// The whole frame, or the bytes skipped; valid until the scanner is fed again.
    std::span<const std::uint8_t> bytes;
    bool good = false; // check word
    bool cut = false;  // skipped: begins like a frame that the end of the stream cuts off
};

/// A frame whose check word is wrong is taken whole where another start byte or the end of the
/// stream follows it; elsewhere its first byte alone is skipped. In what may be a frame that the
/// end of the stream cuts off, only whole frames with a right check word are taken.
class FrameScanner {
public:
    enum class Replies { kLookFor, kIgnore };
    explicit FrameScanner(Replies replies = Replies::kLookFor, std::uint64_t offset = 0)
        : replies_(replies), offset_(offset) {}

    void feed(std::span<const std::uint8_t> bytes);
    void end() { ended_ = true; }
    /// The next piece in order; none while its bytes have not come.
    std::optional<Found> next();

private:
    /// Length of the frame that may begin at a byte; 0 = none begins, nothing = not known yet.
    std::optional<std::size_t> frameAt(std::size_t at) const;
    bool startByte(std::uint8_t byte) const;
    Found take(Found::Kind kind, std::size_t length, bool good);

    Replies replies_;
    std::uint64_t offset_; // of buff_[0]
    std::vector<std::uint8_t> buff_;
    std::size_t first_ = 0; // not yet told
    std::size_t at_ = 0;    // not yet looked at
    bool ended_ = false;
    bool behindCut_ = false;  // a frame that the end cuts off may have begun
    bool inCutReply_ = false; // that frame is a reply
};

} // namespace ctl::dump
