/// RTCM 3 frames (RTCM 10403.x, transport layer).
#pragma once

#include "bits.h"

namespace ref {

/// CRC-24Q as the remainder of a long division, bit by bit.
std::uint32_t crc24q(std::span<const std::uint8_t> bytes);

/// Preamble, length, body and check word; std::length_error above 1023 bytes.
Bytes frame(const Bytes& body);

struct Frame {
    std::size_t offset = 0; ///< of the preamble in the stream
    Bytes bytes;            ///< preamble to check word
    int type = 0;           ///< DF002, 0 for a body of less than two bytes
    Bytes body;
};

} // namespace ref
