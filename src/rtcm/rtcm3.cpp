#include "rtcm/decode.h"
#include "rtcm/layouts/Legacy.h"

#include "common/Clock.h"
#include "common/Findings.h"
#include "common/Print.h"

#include <array>
#include <cmath>
#include <cstdlib>

namespace {

struct Handler {
    int type;
    int (*decode)(RtcmState&);
};
constexpr std::array<Handler, 15> kHandlers{{{1005, decode_type1005},
                                             {1006, decode_type1006},
                                             {1007, decode_type1007},
                                             {1008, decode_type1008},
                                             {1019, decode_type1019},
                                             {1020, decode_type1020},
                                             {1029, decode_type1029},
                                             {1033, decode_type1033},
                                             {1041, decode_type1041},
                                             {1042, decode_type1042},
                                             {63, decode_type1042},
                                             {1044, decode_type1044},
                                             {1045, decode_type1045},
                                             {1046, decode_type1046},
                                             {1230, decode_type1230}}};

int dispatch(RtcmState& s, int type) {
    if (type >= 1071 && type <= 1137)
        return decodeMsm(s, type);
    if (isLegacy(type))
        return decodeLegacy(s, type);
    for (const Handler& handler : kHandlers)
        if (handler.type == type)
            return handler.decode(s);
    return kNothing;
}

} // namespace

int decode_rtcm3(RtcmState& s) {
    const auto type = static_cast<int>(getbitu(s.buff, kMessageBit, 12));
    if (s.outtype)
        s.msgtype = text("RTCM %4d (%4d):", type, s.len);
    if (!s.opt.empty() && hasOption(s, "-RT_INP")) {
        const WeekTime now = time2gpst(utc2gpst(utcNow()));
        s.time = gpst2time(now.week, std::floor(now.sow));
    }
    const int status = dispatch(s, type);
    if (status >= 0)
        s.count(type);
    return status;
}

bool test_staid(RtcmState& s, int staid) {
    s.statedId = staid;
    if (!s.opt.empty())
        if (const std::size_t at = s.opt.find("-STA="); at != std::string::npos)
            if (std::atoi(s.opt.c_str() + at + 5) != staid)
                return false;
    if (s.staid != 0 && s.obsflag == 0 && staid != s.staid) {
        trace(2, "rtcm3 %d staid invalid id=%d %d\n",
              static_cast<int>(getbitu(s.buff, kMessageBit, 12)), staid, s.staid);
        s.staid = 0;
        return false;
    }
    s.staid = staid;
    return true;
}

void learnChannel(RtcmState& s, int slot, int channel) {
    if (validChannel(channel))
        s.nav.glo_fcn[static_cast<std::size_t>(slot - 1)] = channel + 8;
}
