#include "rtcm/decode.h"
#include "rtcm/layouts/StationMessages.h"

#include "common/ComCoord.h"
#include "common/Findings.h"
#include "common/Print.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace {

/// Reads a message by its layout into a scratch record; the state takes it only when it is whole
/// and from the right station.
template <class Layout, class Record>
bool readStation(RtcmState& s, const Layout& layout, int type, Record& message) {
    BitReader in = messageOf(s);
    layout(in, message);
    if (!in.ok()) {
        trace(2, "rtcm3 %d length error: len=%d\n", type, s.len);
        return false;
    }
    return test_staid(s, message.staid);
}

int storePosition(RtcmState& s, const WirePosition& m) {
    s.sta.itrf = m.itrf;
    s.sta.pos = m.pos;
    s.sta.hgt = m.hgt;
    s.sta.deltype = 0;
    s.sta.del = {};
    return kStation;
}

/// Latitude and longitude (degrees, east positive) and height (m).
std::string positionLabel(int staid, const WirePosition& m) {
    const Vector3 blh = xyzblh(m.pos, 1.0, 0.0, 0.0, 0.0, 0.0, 0.0);
    const double lat = blh[0] * 180.0 / kPi;
    const double lon = std::remainder(blh[1] * 180.0 / kPi, 360.0);
    return text(" staid=%4d pos=%.8f %.8f %.3f", staid, lat, lon, blh[2]);
}

template <class Layout> int readAntenna(RtcmState& s, const Layout& layout, int type) {
    WireStation m{0, s.sta};
    if (!readStation(s, layout, type, m))
        return kMalformed;
    s.sta = m.sta;
    if (s.outtype)
        s.msgtype += text(" staid=%4d", s.staid);
    return kStation;
}

} // namespace

int decode_type1005(RtcmState& s) {
    WirePosition m;
    if (!readStation(s, layout1005, 1005, m))
        return kMalformed;
    if (s.outtype)
        s.msgtype += positionLabel(s.staid, m);
    return storePosition(s, m);
}

int decode_type1006(RtcmState& s) {
    WirePosition m;
    if (!readStation(s, layout1006, 1006, m))
        return kMalformed;
    if (s.outtype)
        s.msgtype += positionLabel(s.staid, m) + text(" anth=%.3f", m.hgt);
    return storePosition(s, m);
}

int decode_type1007(RtcmState& s) {
    return readAntenna(s, layout1007, 1007);
}
int decode_type1008(RtcmState& s) {
    return readAntenna(s, layout1008, 1008);
}

int decode_type1033(RtcmState& s) {
    const int status = readAntenna(s, layout1033, 1033);
    if (status == kStation)
        trace(3, "rtcm3 1033: ant=%s:%s rec=%s:%s:%s\n", s.sta.antdes.data(), s.sta.antsno.data(),
              s.sta.rectype.data(), s.sta.recver.data(), s.sta.recsno.data());
    return status;
}

int decode_type1029(RtcmState& s) {
    UnicodeText m;
    BitReader in = messageOf(s);
    layout1029Head(in, m);
    if (!in.ok()) {
        trace(2, "rtcm3 1029 length error: len=%d\n", s.len);
        return kMalformed;
    }
    layout1029Text(in, m);
    if (!in.ok()) {
        trace(2, "rtcm3 1029 length error: len=%d nchar=%d\n", s.len, m.bytes);
        return kMalformed;
    }
    const std::size_t kept = std::min(static_cast<std::size_t>(m.bytes), s.msg.size() - 1);
    std::copy_n(m.text.begin(), kept, s.msg.begin());
    s.msg[kept] = '\0';
    if (s.outtype)
        s.msgtype += text(" staid=%4d text=%s", m.staid, s.msg.data());
    return kNothing;
}

int decode_type1230(RtcmState& s) {
    Biases1230 m;
    BitReader in = messageOf(s);
    layout1230(in, m);
    if (!in.ok()) {
        trace(2, "rtcm3 1230 length error: len=%d\n", s.len);
        return kMalformed;
    }
    if (!test_staid(s, m.staid))
        return kMalformed;
    s.sta.glo_cp_align = m.align;
    for (std::size_t i = 0; i < m.biasM.size(); ++i)
        s.sta.glo_cp_bias[i] = isNone(m.biasM[i]) ? 0.0 : m.biasM[i];
    return kStation;
}
