#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

/// bits: big-endian bit fields (bit 0 is the most significant of byte 0) and CRC-24Q.

namespace detail {

inline std::uint64_t load64(const std::uint8_t* p) {
    std::uint64_t word = 0;
    std::memcpy(&word, p, sizeof word);
    if constexpr (std::endian::native == std::endian::little)
        word = __builtin_bswap64(word);
    return word;
}

inline void store64(std::uint8_t* p, std::uint64_t word) {
    if constexpr (std::endian::native == std::endian::little)
        word = __builtin_bswap64(word);
    std::memcpy(p, &word, sizeof word);
}

inline void store32(std::uint8_t* p, std::uint32_t word) {
    if constexpr (std::endian::native == std::endian::little)
        word = __builtin_bswap32(word);
    std::memcpy(p, &word, sizeof word);
}

} // namespace detail

/// Unsigned value of len (0..32) bits; bits past the end of buff read as 0.
inline std::uint32_t getbitu(std::span<const std::uint8_t> buff, std::size_t pos, int len) {
    if (len <= 0 || len > 32)
        return 0;
    const std::size_t byte = pos / 8;
    std::uint64_t word = 0;
    if (byte + 8 <= buff.size()) {
        word = detail::load64(buff.data() + byte);
    } else {
        for (std::size_t i = 0; i < 8; ++i)
            word = word << 8 | (byte + i < buff.size() ? buff[byte + i] : 0U);
    }
    return static_cast<std::uint32_t>(word << pos % 8 >> (64 - len));
}

/// The same as two's complement.
inline std::int32_t getbits(std::span<const std::uint8_t> buff, std::size_t pos, int len) {
    const std::uint32_t bits = getbitu(buff, pos, len);
    if (len <= 0 || len >= 32)
        return static_cast<std::int32_t>(bits);
    const int unused = 32 - len;
    return static_cast<std::int32_t>(bits << unused) >> unused;
}

/// Writes the low len (1..32) bits of data; another len writes nothing, nor does a field that
/// does not fit. Bits outside the field are kept.
inline void setbitu(std::span<std::uint8_t> buff, std::size_t pos, int len, std::uint32_t data) {
    if (len <= 0 || len > 32 || pos + static_cast<std::size_t>(len) > buff.size() * 8)
        return;
    const std::size_t byte = pos / 8;
    const int shift = 64 - len - static_cast<int>(pos % 8);
    const std::uint64_t mask = (~std::uint64_t{0} >> (64 - len)) << shift;
    const std::uint64_t field = std::uint64_t{data} << shift & mask;
    if (byte + 8 <= buff.size()) {
        std::uint8_t* p = buff.data() + byte;
        detail::store64(p, (detail::load64(p) & ~mask) | field);
        return;
    }
    for (std::size_t i = 0; byte + i < buff.size(); ++i) {
        const int down = 56 - 8 * static_cast<int>(i);
        const auto keep = static_cast<std::uint8_t>(~(mask >> down));
        buff[byte + i] = static_cast<std::uint8_t>((buff[byte + i] & keep) | (field >> down));
    }
}

/// The same as two's complement.
inline void setbits(std::span<std::uint8_t> buff, std::size_t pos, int len, std::int32_t data) {
    if (len <= 0 || len > 32)
        return;
    auto bits = static_cast<std::uint32_t>(data);
    const std::uint32_t sign = std::uint32_t{1} << (len - 1);
    bits = data < 0 ? bits | sign : bits & ~sign;
    setbitu(buff, pos, len, bits);
}

/// CRC-24Q: polynomial 0x864CFB, initial value 0, no reflection, no final XOR. By carry-less
/// multiplication where the processor has it.
std::uint32_t crc24q(std::span<const std::uint8_t> buff);
/// The same for any processor.
std::uint32_t crc24qByTables(std::span<const std::uint8_t> buff);
