#pragma once

#include "rtcm/BitCursor.h"

#include <cstddef>
#include <cstdint>

/// ReplyFrame: the frame in which the service sends a reply: this head, RTCM 3 frames, and the
/// CRC-24Q of all before in 32 bits.

inline constexpr std::uint8_t kReplyStart = 0xDA;
inline constexpr std::uint8_t kReplyMark = 0x68;
inline constexpr int kReplyKind = 6;
inline constexpr std::size_t kReplyHeadBytes = 10;
inline constexpr std::size_t kReplyCheckBytes = 4;
inline constexpr std::size_t kReplyUncounted = 3; // bytes up to the end of the length
// Of a whole frame, at most: what the length can say, and what an answer of a few signals takes.
inline constexpr std::size_t kLongestReply = kReplyUncounted + 0xFFFF + kReplyCheckBytes;
inline constexpr std::size_t kReplyBytes = 4096;

struct ReplyHead {
    int start = kReplyStart;
    std::size_t length = 0; // bytes behind it, without the check word
    int mark = kReplyMark;
    std::uint32_t requestWord = 0;
    int kind = kReplyKind;

    /// Whether a frame begins so, and how long it is.
    bool begins() const {
        return start == kReplyStart && mark == kReplyMark && frameBytes() <= kLongestReply &&
               frameBytes() >= kReplyHeadBytes + kReplyCheckBytes;
    }
    std::size_t frameBytes() const { return kReplyUncounted + length + kReplyCheckBytes; }
};

// clang-format off
inline constexpr auto layoutReplyHead = [](auto& b, auto& h) {
    b.u(8,  h.start,       df(0, "start byte"));
    b.u(16, h.length,      df(0, "length", "bytes"));
    b.u(8,  h.mark,        df(0, "mark"));
    b.u(32, h.requestWord, df(0, "request word"));
    b.u(16, h.kind,        df(0, "kind"));
};
// clang-format on
static_assert(bitsOf(layoutReplyHead, ReplyHead{}) == 8 * kReplyHeadBytes);
