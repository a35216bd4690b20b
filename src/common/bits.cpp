#include "common/bits.h"

namespace {

using CrcTable = std::array<std::uint32_t, 256>;

/// Table k advances the remainder of a byte that is followed by k further bytes.
constexpr std::array<CrcTable, 4> makeTables() {
    std::array<CrcTable, 4> tables{};
    for (std::uint32_t byte = 0; byte < 256; ++byte) {
        std::uint32_t crc = byte << 16;
        for (int bit = 0; bit < 8; ++bit)
            crc = crc & 0x800000U ? (crc << 1 ^ 0x864CFBU) & 0xFFFFFFU : crc << 1;
        tables[0][byte] = crc;
    }
    for (std::size_t k = 1; k < tables.size(); ++k)
        for (std::size_t byte = 0; byte < 256; ++byte) {
            const std::uint32_t crc = tables[k - 1][byte];
            tables[k][byte] = (crc << 8 & 0xFFFFFFU) ^ tables[0][crc >> 16];
        }
    return tables;
}

constexpr std::array<CrcTable, 4> tbl_CRC24Q = makeTables();

} // namespace

std::uint32_t crc24q(std::span<const std::uint8_t> buff) {
    std::uint32_t crc = 0;
    const std::uint8_t* p = buff.data();
    std::size_t left = buff.size();
    // Four bytes a step: the first three take the old remainder in, the fourth stands alone.
    for (; left >= 4; left -= 4, p += 4)
        crc = tbl_CRC24Q[3][(crc >> 16) ^ p[0]] ^ tbl_CRC24Q[2][(crc >> 8 & 0xFFU) ^ p[1]] ^
              tbl_CRC24Q[1][(crc & 0xFFU) ^ p[2]] ^ tbl_CRC24Q[0][p[3]];
    for (; left > 0; --left, ++p)
        crc = (crc << 8 & 0xFFFFFFU) ^ tbl_CRC24Q[0][(crc >> 16) ^ *p];
    return crc;
}
