#include "rtcm/rtcm3.h"

#include "base/Findings.h"
#include "base/Print.h"
#include "gnss/Clock.h"
#include "gnss/Leaps.h"
#include "rtcm/Messages.h"

#include <cmath>
#include <cstdlib>

namespace {

/// Whether the options leave a message out, unread: also one that is cut off is not malformed then.
bool leftOut(const RtcmState& s, int type) {
    return (type == 1045 && hasOption(s, "-GALINAV")) || (type == 1046 && hasOption(s, "-GALFNAV"));
}

template <class Record> void traceShort(const RtcmState& s, int type, const Record& m) {
    if constexpr (requires { m.bytes; })
        if (m.bytes > 0) { // its text is cut off, not what stands before
            trace(2, "rtcm3 %d length error: len=%d nchar=%d\n", type, s.len, m.bytes);
            return;
        }
    trace(2, "rtcm3 %d length error: len=%d\n", type, s.len);
}

/// Not inlined: the records of all messages would make the stack frame of each dispatch.
template <class Row> [[gnu::noinline]] int readMessage(RtcmState& s, const Row& row) {
    if (!row.read || leftOut(s, row.type))
        return kNothing;
    typename Row::Record m = row.blank();
    BitReader in = messageOf(s);
    row.layout(in, m);
    if (!in.ok()) {
        traceShort(s, row.type, m);
        return kMalformed;
    }
    return row.read(s, m);
}

int dispatch(RtcmState& s, int type) {
    if (type == 1041)
        return decode_type1041(s);
    int status = kNothing;
    if (!visitObservations(type, [&](const auto& row) { status = row.read(s, type); }))
        visitMessage(type, [&](const auto& row) { status = readMessage(s, row); });
    return status;
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
