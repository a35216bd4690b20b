#include "rtcm/rtcm.h"

#include <algorithm>

namespace {

void clearTouched(RtcmState& s) {
    s.lastLock.clear();
    s.phaseBase.clear();
    s.lockStart.clear();
    s.withEphemeris.forget([&](std::size_t row) {
        s.nav.eph[row].sat = 0;
        int slot = 0;
        if (satsys(static_cast<int>(row) + 1, &slot) == kGlonass)
            s.nav.geph[static_cast<std::size_t>(slot - 1)].sat = 0;
    });
    for (std::size_t page = 0; s.countedPages != 0; ++page, s.countedPages >>= 1)
        if (s.countedPages & 1U)
            std::fill_n(s.nmsg3.begin() + static_cast<std::ptrdiff_t>(16 * page), 16, 0U);
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

int fcn_glo(int sat, const RtcmState& s) {
    int slot = 0;
    if (satsys(sat, &slot) != kGlonass)
        return -1;
    const auto row = static_cast<std::size_t>(slot - 1);
    const int configured = s.nav.configuredChannels[row] - 1; // -1 = none
    if (configured >= 0 && !s.byStandards)
        return configured;
    if (s.nav.geph[row].sat == sat && validChannel(s.nav.geph[row].frq))
        return s.nav.geph[row].frq + 7;
    return s.nav.glo_fcn[row] >= 1 ? s.nav.glo_fcn[row] - 1 : configured;
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
