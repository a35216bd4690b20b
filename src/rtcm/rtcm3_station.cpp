#include "base/Findings.h"
#include "base/Print.h"
#include "gnss/ComCoord.h"
#include "rtcm/Messages.h"
#include "rtcm/rtcm3.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace {

int storePosition(RtcmState& s, const PositionMessage& m) {
    s.sta.itrf = m.itrf;
    s.sta.pos = m.pos;
    s.sta.hgt = m.hgt;
    s.sta.deltype = 0;
    s.sta.del = {};
    return kStation;
}

/// Latitude and longitude (degrees, east positive) and height (m).
std::string positionLabel(int staid, const PositionMessage& m) {
    const Vector3 blh = xyzblh(m.pos, 1.0, 0.0, 0.0, 0.0, 0.0, 0.0);
    const double lat = blh[0] * 180.0 / kPi;
    const double lon = std::remainder(blh[1] * 180.0 / kPi, 360.0);
    return text(" staid=%4d pos=%.8f %.8f %.3f", staid, lat, lon, blh[2]);
}

/// Takes what 1007 says; 1008 and 1033 say it, too.
int storeAntenna(RtcmState& s, const EquipmentMessage& m) {
    s.sta.antdes = m.antdes;
    s.sta.antsetup = m.antsetup;
    if (s.outtype)
        s.msgtype += text(" staid=%4d", s.staid);
    return kStation;
}

} // namespace

int decode_type1005(RtcmState& s, PositionMessage& m) {
    if (!test_staid(s, m.staid))
        return kMalformed;
    if (s.outtype)
        s.msgtype += positionLabel(s.staid, m);
    return storePosition(s, m);
}

int decode_type1006(RtcmState& s, PositionMessage& m) {
    if (!test_staid(s, m.staid))
        return kMalformed;
    if (s.outtype)
        s.msgtype += positionLabel(s.staid, m) + text(" anth=%.3f", m.hgt);
    return storePosition(s, m);
}

int decode_type1007(RtcmState& s, EquipmentMessage& m) {
    return test_staid(s, m.staid) ? storeAntenna(s, m) : kMalformed;
}

int decode_type1008(RtcmState& s, EquipmentMessage& m) {
    if (!test_staid(s, m.staid))
        return kMalformed;
    s.sta.antsno = m.antsno;
    return storeAntenna(s, m);
}

int decode_type1033(RtcmState& s, EquipmentMessage& m) {
    if (!test_staid(s, m.staid))
        return kMalformed;
    s.sta.antsno = m.antsno;
    s.sta.rectype = m.rectype;
    s.sta.recver = m.recver;
    s.sta.recsno = m.recsno;
    trace(3, "rtcm3 1033: ant=%s:%s rec=%s:%s:%s\n", m.antdes.data(), m.antsno.data(),
          m.rectype.data(), m.recver.data(), m.recsno.data());
    return storeAntenna(s, m);
}

int decode_type1029(RtcmState& s, TextMessage& m) {
    const std::size_t kept = std::min(static_cast<std::size_t>(m.bytes), s.msg.size() - 1);
    std::copy_n(m.text.begin(), kept, s.msg.begin());
    s.msg[kept] = '\0';
    if (s.outtype)
        s.msgtype += text(" staid=%4d text=%s", m.staid, s.msg.data());
    return kNothing;
}

int decode_type1230(RtcmState& s, BiasMessage& m) {
    if (!test_staid(s, m.staid))
        return kMalformed;
    s.sta.glo_cp_align = m.align;
    for (std::size_t i = 0; i < m.biasM.size(); ++i)
        s.sta.glo_cp_bias[i] = isNone(m.biasM[i]) ? 0.0 : m.biasM[i];
    return kStation;
}
