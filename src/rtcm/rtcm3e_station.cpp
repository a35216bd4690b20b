#include "rtcm/Messages.h"

/// 1005 and 1006. The services are deliberately constants, whatever the state holds.
bool encodePosition(RtcmState& s, PositionMessage& m) {
    m.staid = s.staid;
    m.itrf = s.sta.itrf;
    m.gps = m.glonass = 1;
    m.pos = s.sta.pos;
    m.oscillator = 1;
    m.hgt = s.sta.hgt;
    return true;
}

/// 1007, 1008 and 1033.
bool encodeEquipment(RtcmState& s, EquipmentMessage& m) {
    m = {s.staid,       s.sta.antsetup, s.sta.antdes, s.sta.antsno,
         s.sta.rectype, s.sta.recver,   s.sta.recsno};
    return true;
}

/// A bias of 0 stands for none, but where the station says that it has aligned its phases with
/// its ranges: there 0 is the bias.
bool encode_type1230(RtcmState& s, BiasMessage& m) {
    m = {.staid = s.staid, .align = s.sta.glo_cp_align, .biasM = s.sta.glo_cp_bias};
    for (std::size_t i = 0; i < m.biasM.size(); ++i)
        if (m.align || m.biasM[i] != 0.0)
            m.mask |= 8 >> i;
    return true;
}
