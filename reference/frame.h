/// RTCM 3 frames (RTCM 10403.x, transport layer) and the reply frame that carries them.
#pragma once

#include "bits.h"

namespace ref {

/// CRC-24Q as the remainder of a long division, bit by bit.
std::uint32_t crc24q(std::span<const std::uint8_t> bytes);

/// Preamble, length, body and check word; std::length_error above 1023 bytes.
Bytes frame(const Bytes& body);

struct Frame {
    std::size_t offset = 0; ///< of the preamble in the bytes read
    Bytes bytes;            ///< preamble to check word
    int type = 0;           ///< DF002, 0 for a body of less than two bytes
    Bytes body;
};

/// The frames a receiver accepts: bytes before a preamble are skipped; a frame with a wrong check
/// word is dropped as a whole, without a search inside it; an unfinished one at the end is not
/// seen.
std::vector<Frame> goodFrames(std::span<const std::uint8_t> stream);

/// The same from a stream that comes in pieces.
class FrameCutter {
public:
    std::vector<Frame> take(std::span<const std::uint8_t> piece);
    void forget(); ///< what is held of an unfinished frame; offsets go on

private:
    Bytes held_;
    std::size_t before_ = 0; // bytes of the stream before those held
};

struct Reply {
    std::uint32_t word = 0; ///< request word
    std::uint16_t kind = 0;
    std::vector<Frame> messages;
};

/// Opens one reply frame; std::runtime_error says what is wrong with it.
Reply openReply(std::span<const std::uint8_t> bytes);

} // namespace ref
