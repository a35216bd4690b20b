#include "rtcm/encode.h"
#include "rtcm/layouts/StationMessages.h"

namespace {

/// What 1005 and 1006 say. The services are deliberately constants, whatever the state holds.
WirePosition positionOf(const RtcmState& s) {
    return {.staid = s.staid,
            .itrf = s.sta.itrf,
            .gps = 1,
            .glonass = 1,
            .pos = s.sta.pos,
            .oscillator = 1,
            .hgt = s.sta.hgt};
}

} // namespace

int encode_type1005(RtcmState& s) {
    return writeMessage(s, layout1005, positionOf(s));
}
int encode_type1006(RtcmState& s) {
    return writeMessage(s, layout1006, positionOf(s));
}
int encode_type1007(RtcmState& s) {
    return writeMessage(s, layout1007, WireStation{s.staid, s.sta});
}
int encode_type1008(RtcmState& s) {
    return writeMessage(s, layout1008, WireStation{s.staid, s.sta});
}
int encode_type1033(RtcmState& s) {
    return writeMessage(s, layout1033, WireStation{s.staid, s.sta});
}

/// A bias of 0 stands for none, but where the station says that it has aligned its phases with
/// its ranges: there 0 is the bias.
int encode_type1230(RtcmState& s) {
    Biases1230 m{.staid = s.staid, .align = s.sta.glo_cp_align, .biasM = s.sta.glo_cp_bias};
    for (std::size_t i = 0; i < m.biasM.size(); ++i)
        if (m.align || m.biasM[i] != 0.0)
            m.mask |= 8 >> i;
    return writeMessage(s, layout1230, m);
}
