#include "frame.h"

namespace ref {

std::uint32_t crc24q(std::span<const std::uint8_t> bytes) {
    std::uint32_t rest = 0;
    for (std::size_t i = 0; i < 8 * (bytes.size() + 3); ++i) {
        const unsigned bit =
            i / 8 < bytes.size() ? (unsigned{bytes[i / 8]} >> (7 - i % 8)) & 1u : 0;
        rest = (rest << 1) | bit;
        if ((rest & 0x1000000) != 0)
            rest ^= 0x1864CFB;
    }
    return rest;
}

Bytes frame(const Bytes& body) {
    if (body.size() > 1023)
        throw std::length_error("RTCM 3 body above 1023 bytes");
    Bytes out = BitString().u(8, 0xD3).u(16, body.size()).bytes();
    out.insert(out.end(), body.begin(), body.end());
    for (const std::uint8_t byte : BitString().u(24, crc24q(out)).bytes())
        out.push_back(byte);
    return out;
}

} // namespace ref
