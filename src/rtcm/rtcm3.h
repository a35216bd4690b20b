#pragma once

#include "rtcm/rtcm.h"

#include <algorithm>
#include <string_view>

/// rtcm3: decodes the message of a frame, and what its handlers share.

/// Decodes the frame held in buff; a Status.
int decode_rtcm3(RtcmState& state);

inline BitReader messageOf(const RtcmState& s) {
    const auto end = static_cast<std::size_t>(s.len);
    return BitReader(
        std::span(s.buff).subspan(kHeaderBytes, std::max(end, kHeaderBytes) - kHeaderBytes));
}
inline bool hasOption(const RtcmState& s, std::string_view option) {
    return s.opt.find(option) != std::string::npos;
}

/// Adopts the message's station id; false where it is not the one of the epoch being collected
/// (which is then given up) or not the one that the options ask for.
bool test_staid(RtcmState& s, int staid);

/// Learns a GLONASS channel from the stream.
void learnChannel(RtcmState& s, int slot, int channel);

/// 1 when the lock indicator is 0 or smaller than the last one of the signal.
inline std::uint8_t lossoflock(RtcmState& s, int sat, std::size_t slot, int lock) {
    s.touch(sat);
    SignalTrack& track = s.tracks[static_cast<std::size_t>(sat - 1)][slot];
    const bool lost = lock == 0 || lock < track.lock;
    track.lock = static_cast<std::uint16_t>(lock);
    return lost ? 1 : 0;
}
/// 0.001 dB-Hz; 0 outside (0, 100).
inline std::uint16_t snratio(double cnr) {
    return cnr > 0.0 && cnr < 100.0
               ? static_cast<std::uint16_t>(std::min(cnr / 0.001 + 0.5, 65535.0))
               : std::uint16_t{0};
}
