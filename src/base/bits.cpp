#include "base/bits.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace {

constexpr std::uint32_t kPolynomial = 0x864CFB; // without x^24

/// A remainder times x.
constexpr std::uint32_t timesX(std::uint32_t remainder) {
    return (remainder << 1 & 0xFFFFFFU) ^ (remainder & 0x800000U ? kPolynomial : 0U);
}

/// Remainder of x^n, n being 23 at least.
constexpr std::uint32_t powerOfX(int n) {
    std::uint32_t remainder = 0x800000U;
    for (int i = 23; i < n; ++i)
        remainder = timesX(remainder);
    return remainder;
}

using CrcTable = std::array<std::uint32_t, 256>;

/// Table k has the remainders of a byte that is followed by k further bytes.
constexpr std::array<CrcTable, 8> makeTables() {
    std::array<CrcTable, 8> tables{};
    for (std::uint32_t byte = 0; byte < 256; ++byte) {
        std::uint32_t remainder = byte << 16;
        for (CrcTable& table : tables) {
            for (int bit = 0; bit < 8; ++bit)
                remainder = timesX(remainder);
            table[byte] = remainder;
        }
    }
    return tables;
}

constexpr std::array<CrcTable, 8> tbl_CRC24Q = makeTables();

#if defined(__x86_64__)

constexpr std::size_t kFold = 16; // bytes

bool multipliesCarryLess() {
    return __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("ssse3");
}

/// Where a shuffle takes its bytes from: here all 16 backwards; from place 16 - n on the first n
/// backwards, then zeros.
constexpr std::array<std::uint8_t, 2 * kFold> makeBackwards() {
    std::array<std::uint8_t, 2 * kFold> from{};
    from.fill(0x80); // a zero
    for (std::size_t i = 0; i < kFold; ++i)
        from[i] = static_cast<std::uint8_t>(kFold - 1 - i);
    return from;
}
constexpr std::array<std::uint8_t, 2 * kFold> kBackwards = makeBackwards();

__m128i load(const std::uint8_t* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

/// Eight bytes, the first being the highest, with the remainder of a message of 16 bytes or more.
/// Zeros in front change nothing, so the first step takes the bytes beyond a multiple of 16.
[[gnu::target("pclmul,ssse3")]] std::uint64_t fold(std::span<const std::uint8_t> buff) {
    const __m128i backwards = load(kBackwards.data());
    const __m128i factors = _mm_set_epi64x(powerOfX(192), powerOfX(128));
    const std::size_t first = (buff.size() - 1) % kFold + 1;
    const std::uint8_t* p = buff.data();
    const std::uint8_t* const end = p + buff.size();
    __m128i sum = _mm_shuffle_epi8(load(p), load(kBackwards.data() + kFold - first));
    for (p += first; p != end; p += kFold)
        sum = _mm_xor_si128(_mm_xor_si128(_mm_clmulepi64_si128(sum, factors, 0x11),
                                          _mm_clmulepi64_si128(sum, factors, 0x00)),
                            _mm_shuffle_epi8(load(p), backwards));
    // The upper half becomes 87 bits with the lower one, then 64.
    const __m128i factor = _mm_set_epi64x(0, powerOfX(64));
    for (int i = 0; i < 2; ++i)
        sum = _mm_xor_si128(_mm_clmulepi64_si128(sum, factor, 0x01), _mm_move_epi64(sum));
    return static_cast<std::uint64_t>(_mm_cvtsi128_si64(sum));
}

#endif

} // namespace

std::uint32_t crc24qByTables(std::span<const std::uint8_t> buff) {
    const auto& t = tbl_CRC24Q;
    std::uint32_t crc = 0;
    const std::uint8_t* p = buff.data();
    std::size_t left = buff.size();
    // Eight bytes a step; the first three take the old remainder in.
    for (; left >= 8; left -= 8, p += 8) {
        const std::uint32_t first = static_cast<std::uint32_t>(detail::load64(p) >> 32) ^ crc << 8;
        crc = t[7][first >> 24] ^ t[6][first >> 16 & 0xFFU] ^ t[5][first >> 8 & 0xFFU] ^
              t[4][first & 0xFFU] ^ t[3][p[4]] ^ t[2][p[5]] ^ t[1][p[6]] ^ t[0][p[7]];
    }
    for (; left > 0; --left, ++p)
        crc = (crc << 8 & 0xFFFFFFU) ^ t[0][(crc >> 16) ^ *p];
    return crc;
}

std::uint32_t crc24q(std::span<const std::uint8_t> buff) {
#if defined(__x86_64__)
    if (buff.size() >= kFold && multipliesCarryLess()) {
        std::array<std::uint8_t, 8> folded;
        detail::store64(folded.data(), fold(buff));
        return crc24qByTables(folded);
    }
#endif
    return crc24qByTables(buff);
}
