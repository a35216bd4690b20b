#pragma once

#include "rtcm/BitCursor.h"

#include <cstddef>
#include <cstdint>
#include <span>

/// Frame: the transport layer of RTCM 3 (RTCM 10403.x): preamble, six reserved bits, ten bits of
/// length, message, CRC-24Q.

inline constexpr std::uint8_t kPreamble = 0xD3;
inline constexpr std::size_t kHeaderBytes = 3; // preamble, reserved bits, length
inline constexpr std::size_t kCheckBytes = 3;
inline constexpr std::size_t kMaxBody = 1023;
inline constexpr std::size_t kMaxFrame = kHeaderBytes + kMaxBody + kCheckBytes;
inline constexpr std::size_t kMessageBit = 8 * kHeaderBytes; // first bit of a message in a frame

/// Closes the frame whose message ends before bit nbit of buff: pads the last byte with zeros,
/// writes header and check word. The frame's length in bytes; 0 where the message is above 1023
/// bytes or the frame does not fit.
std::size_t closeFrame(std::span<std::uint8_t> buff, std::size_t nbit);

/// Length of the frame that the bytes begin with, which are a header at least.
inline std::size_t frameLength(std::span<const std::uint8_t> bytes) {
    return kHeaderBytes + getbitu(bytes, 14, 10) + kCheckBytes;
}
/// Length of the frame in front of the bytes, its check word right; 0 where none is whole.
std::size_t wholeFrame(std::span<const std::uint8_t> bytes);

/// Number of the message of a frame; 0 where it has none.
inline int messageType(std::span<const std::uint8_t> frame) {
    return static_cast<int>(getbitu(frame, kMessageBit, 12));
}
/// The station id of a message that tells it, behind its number.
inline int stationIdOf(std::span<const std::uint8_t> frame) {
    return static_cast<int>(getbitu(frame, kMessageBit + 12, 12));
}

/// The message of a whole frame, between header and check word.
inline BitReader messageOf(std::span<const std::uint8_t> frame) {
    constexpr std::size_t around = kHeaderBytes + kCheckBytes;
    if (frame.size() < around)
        return BitReader({});
    return BitReader(frame.subspan(kHeaderBytes, frame.size() - around));
}
