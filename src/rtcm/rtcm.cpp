#include "rtcm/rtcm.h"

#include "base/Print.h"
#include "rtcm/rtcm3.h"
#include "rtcm/rtcm3e.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace {

void clearTouched(RtcmState& s) {
    for (std::size_t word = 0; word < s.touched.size(); ++word)
        for (; s.touched[word] != 0; s.touched[word] &= s.touched[word] - 1) {
            const std::size_t row =
                64 * word + static_cast<std::size_t>(std::countr_zero(s.touched[word]));
            s.nav.eph[row].sat = 0;
            s.tracks[row] = {};
            int slot = 0;
            if (satsys(static_cast<int>(row) + 1, &slot) == kGlonass)
                s.nav.geph[static_cast<std::size_t>(slot - 1)].sat = 0;
        }
    for (std::size_t page = 0; s.countedPages != 0; ++page, s.countedPages >>= 1)
        if (s.countedPages & 1U)
            std::fill_n(s.nmsg3.begin() + static_cast<std::ptrdiff_t>(16 * page), 16, 0U);
}

/// Bytes that the frame under construction has in all; 3 until its length is known.
std::size_t frameSize(const RtcmState& s) {
    return static_cast<std::size_t>(s.nbyte) < kHeaderBytes
               ? kHeaderBytes
               : static_cast<std::size_t>(s.len) + kCheckBytes;
}

} // namespace

void RtcmState::count(int type) {
    std::size_t index = 0;
    if (type > 1000 && type < 1300)
        index = static_cast<std::size_t>(type - 1000);
    else if (type > 4069 && type < 4100)
        index = static_cast<std::size_t>(type - 3770);
    ++nmsg3[index];
    countedPages |= 1U << index / 16;
}

void init_rtcm(RtcmState& s) {
    clearTouched(s);
    s.staid = s.stah = s.seqno = s.outtype = 0;
    s.statedId = -1;
    s.time = {};
    s.obs.n = 0;
    s.sta = {};
    s.msg[0] = '\0';
    s.msgtype.clear();
    for (auto& list : s.msmtype)
        list[0] = '\0';
    s.obsflag = s.ephsat = 0;
    s.epoch = {};
    s.dated = false;
    s.refused = {};
    s.nbyte = s.nbit = s.len = 0;
    s.opt.clear();
}

Taken input_rtcm3_block(RtcmState& s, std::span<const std::uint8_t> block, int& framelen) {
    static_assert(kMaxFrame <= std::tuple_size_v<decltype(s.buff)>);
    std::size_t used = 0;
    if (s.nbyte == 0) {
        const auto start = std::find(block.begin(), block.end(), kPreamble);
        used = static_cast<std::size_t>(start - block.begin());
    }
    // Header, then the rest, as far as the block reaches.
    for (std::size_t size = frameSize(s); used < block.size(); size = frameSize(s)) {
        const auto held = static_cast<std::size_t>(s.nbyte);
        const std::size_t n = std::min(size - held, block.size() - used);
        std::memcpy(s.buff.data() + held, block.data() + used, n);
        used += n;
        s.nbyte += static_cast<int>(n);
        if (held + n < size)
            break;
        if (size == kHeaderBytes) {
            s.len = static_cast<int>(getbitu(s.buff, 14, 10) + kHeaderBytes);
            continue;
        }
        framelen = s.nbyte;
        s.nbyte = 0;
        const auto len = static_cast<std::size_t>(s.len);
        if (crc24q({s.buff.data(), len}) != getbitu(s.buff, len * 8, 24)) {
            trace(2, "rtcm3 parity error: len=%d\n", s.len);
            return {used, kNothing};
        }
        return {used, decode_rtcm3(s)};
    }
    return {used, kNothing};
}

int input_rtcm3_ex(RtcmState& s, std::uint8_t byte, int& framelen) {
    return input_rtcm3_block(s, {&byte, 1}, framelen).status;
}

int input_rtcm3(RtcmState& s, std::uint8_t byte) {
    int framelen = 0;
    return input_rtcm3_ex(s, byte, framelen);
}

int input_rtcm3f(RtcmState& s, std::FILE* file) {
    constexpr int most = 4096;
    for (int i = 0; i < most; ++i) {
        const int byte = std::fgetc(file);
        if (byte == EOF)
            return kEndOfFile;
        if (const int status = input_rtcm3(s, static_cast<std::uint8_t>(byte)))
            return status;
    }
    return kNothing;
}

int fcn_glo(int sat, const RtcmState& s) {
    int slot = 0;
    if (satsys(sat, &slot) != kGlonass)
        return -1;
    const auto row = static_cast<std::size_t>(slot - 1);
    if (s.nav.configuredChannels[row] >= 1)
        return s.nav.configuredChannels[row] - 1;
    if (s.nav.geph[row].sat == sat && validChannel(s.nav.geph[row].frq))
        return s.nav.geph[row].frq + 7;
    return s.nav.glo_fcn[row] >= 1 ? s.nav.glo_fcn[row] - 1 : -1;
}

int obsindex(ObsSet& obs, GTime time, int sat) {
    std::uint8_t& row = obs.rows[static_cast<std::size_t>(sat)];
    if (row < obs.n && obs.data[row].sat == sat)
        return row;
    if (static_cast<std::size_t>(obs.n) >= kMaxObs)
        return -1;
    row = static_cast<std::uint8_t>(obs.n);
    ObsRecord& record = obs.data[static_cast<std::size_t>(obs.n)];
    record = {};
    record.time = time;
    record.sat = static_cast<std::uint8_t>(sat);
    return obs.n++;
}
