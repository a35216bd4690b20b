#include "rtcm/Frame.h"

#include "base/bits.h"

std::size_t closeFrame(std::span<std::uint8_t> buff, std::size_t nbit) {
    const std::size_t bytes = (nbit + 7) / 8;
    if (bytes < kHeaderBytes || bytes > kHeaderBytes + kMaxBody ||
        bytes + kCheckBytes > buff.size())
        return 0;
    setbitu(buff, nbit, static_cast<int>(8 * bytes - nbit), 0);
    setbitu(buff, 0, 8, kPreamble);
    setbitu(buff, 8, 16, static_cast<std::uint32_t>(bytes - kHeaderBytes));
    setbitu(buff, 8 * bytes, 24, crc24q(buff.first(bytes)));
    return bytes + kCheckBytes;
}

std::size_t wholeFrame(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < kHeaderBytes || bytes[0] != kPreamble)
        return 0;
    const std::size_t length = frameLength(bytes);
    const std::size_t checked = length - kCheckBytes;
    return length <= bytes.size() && crc24q(bytes.first(checked)) == getbitu(bytes, 8 * checked, 24)
               ? length
               : 0;
}
