#include "rtcm/encode.h"
#include "rtcm/layouts/Legacy.h"
#include "rtcm/layouts/Msm.h"

#include "common/ComCoord.h"

#include <array>
#include <cmath>

namespace {

struct Encoder {
    int type;
    int (*encode)(RtcmState&);
};
constexpr std::array<Encoder, 13> kEncoders{{{1005, encode_type1005},
                                             {1006, encode_type1006},
                                             {1007, encode_type1007},
                                             {1008, encode_type1008},
                                             {1019, encode_type1019},
                                             {1020, encode_type1020},
                                             {1033, encode_type1033},
                                             {1042, encode_type1042},
                                             {63, encode_type63},
                                             {1044, encode_type1044},
                                             {1045, encode_type1045},
                                             {1046, encode_type1046},
                                             {1230, encode_type1230}}};

int dispatch(RtcmState& s, int type, int sync) {
    if (isMsm4To7(type))
        return encodeMsm(s, type, sync);
    if (isLegacy(type))
        return encodeLegacy(s, type, sync);
    for (const Encoder& encoder : kEncoders)
        if (encoder.type == type)
            return encoder.encode(s);
    return 0;
}

std::uint32_t milliseconds(double seconds) {
    return static_cast<std::uint32_t>(static_cast<std::int64_t>(roundHalfUp(seconds * 1000.0)));
}

} // namespace

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
