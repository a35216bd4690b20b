#include "rtcm/rtcm3e.h"

#include "base/Print.h"
#include "gnss/ComCoord.h"
#include "gnss/Leaps.h"
#include "rtcm/Messages.h"

#include <cmath>

namespace {

template <class Row> [[gnu::noinline]] int encodeMessage(RtcmState& s, const Row& row) {
    typename Row::Record m = row.blank();
    return row.write && row.write(s, m) ? writeMessage(s, row.layout, m) : 0;
}

int dispatch(RtcmState& s, int type, int sync) {
    int result = 0;
    if (!visitObservations(type, [&](const auto& row) { result = row.write(s, type, sync); }))
        visitMessage(type, [&](const auto& row) { result = encodeMessage(s, row); });
    return result;
}

std::uint32_t milliseconds(double seconds) {
    return static_cast<std::uint32_t>(static_cast<std::int64_t>(roundHalfUp(seconds * 1000.0)));
}

} // namespace

int gen_rtcm3(RtcmState& s, int type, int subtype, int sync) {
    s.nbyte = s.nbit = s.len = 0;
    s.nbit = kMessageBit;
    if (!encode_rtcm3(s, type, subtype, sync)) {
        s.nbit = 0;
        return 0;
    }
    s.nbyte = static_cast<int>(closeFrame(s.buff, static_cast<std::size_t>(s.nbit)));
    s.len = (s.nbit + 7) / 8;
    s.nbit = 8 * s.len;
    if (s.nbyte == 0) {
        trace(2, "generate rtcm 3 message length error len=%d\n", s.len);
        s.nbit = s.len = 0;
        return 0;
    }
    return 1;
}

int encode_rtcm3(RtcmState& s, int type, int /*subtype*/, int sync) {
    const int result = dispatch(s, type, sync);
    if (result)
        s.count(type);
    return result;
}

GTime moscowTime(GTime time) {
    return timeadd(gpst2utc(time), kMoscowOffset);
}

std::uint32_t epochField(System system, GTime time) {
    if (system == kGlonass) {
        const WeekTime moscow = time2gpst(moscowTime(time));
        const auto day = static_cast<std::uint32_t>(static_cast<int>(moscow.sow / kSecondsPerDay));
        const double tod = std::fmod(moscow.sow, kSecondsPerDay);
        return day << 27 | milliseconds(tod);
    }
    const WeekTime t = system == kBds ? time2bdt(timeadd(time, -kBdtOffset)) : time2gpst(time);
    return milliseconds(t.sow);
}

double wavelengthM(const RtcmState& s, System system, const ObsRecord& record, std::size_t slot) {
    const int fcn = system == kGlonass ? fcn_glo(record.sat, s) : -1;
    const double hz = code2freq(system, record.code[slot], fcn < 0 ? kUnknownChannel : fcn - 7);
    return hz > 0.0 ? kSpeedOfLight / hz : 0.0;
}
