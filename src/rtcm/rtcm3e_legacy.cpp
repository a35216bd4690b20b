#include "base/Print.h"
#include "rtcm/Messages.h"
#include "rtcm/rtcm3e.h"

#include <array>
#include <cmath>

namespace {

constexpr int kMostSatellites = 31;     // the count has five bits
constexpr double kMaxRange2M = 163.82;  // DF017, DF047
constexpr double kMaxPhaseM = 262.1435; // DF012, DF018, DF042, DF048
constexpr double kRollCycles = 1500.0;

/// Tracking modes of GPS that the indicators give to another signal: P(Y) code, L2C.
constexpr std::array<std::array<std::string_view, 2>, 6> kAliases{
    {{"1W", "1P"}, {"1Y", "1P"}, {"2Y", "2P"}, {"2C", "2X"}, {"2S", "2X"}, {"2L", "2X"}}};

std::string_view indicatedName(int code, bool glonass) {
    const std::string_view name = code2obs(code);
    if (!glonass)
        for (const auto& [alias, signal] : kAliases)
            if (alias == name)
                return signal;
    return name;
}

/// The first signal of a record that an indicator can name; indicator -1 = none.
struct Choice {
    std::size_t slot = 0;
    int indicator = -1;
};
Choice choose(const ObsRecord& record, const IndicatedSignals& signals, bool glonass) {
    for (std::size_t k = 0; k < kObsSlots; ++k)
        if (const int i = indicatorOf(signals, indicatedName(record.code[k], glonass)); i >= 0)
            return {k, i};
    return {};
}

/// Satellite id of DF009 or DF038; 0 where the message does not take the satellite.
int legacyId(int sat, bool glonass, System& system) {
    int prn = 0;
    system = static_cast<System>(satsys(sat, &prn));
    if (system == (glonass ? kGlonass : kGps))
        return prn;
    return !glonass && system == kSbas && prn <= 138 ? prn - 80 : 0; // 40 to 58
}

/// Phase range minus L1 pseudorange. Beyond the field it is rolled over by 1500 cycles.
double phaseField(const ObsRecord& record, std::size_t slot, double wavelength, double rangeM) {
    if (record.L[slot] == 0.0 || wavelength <= 0.0)
        return kNone;
    const double difference = record.L[slot] * wavelength - rangeM;
    if (std::fabs(difference) <= kMaxPhaseM)
        return difference;
    const double roll = kRollCycles * wavelength;
    return difference - roll * roundHalfUp(difference / roll);
}

int lockField(RtcmState& s, const ObsRecord& record, std::size_t slot) {
    return legacyLock(lockTime(s, record, slot, /*lost=*/(record.LLI[slot] & 1) != 0));
}

void fillL2(RtcmState& s, LegacySatellite& w, const ObsRecord& record, System system,
            double rangeM) {
    const bool glonass = system == kGlonass;
    const auto [slot, indicator] = choose(record, l2Signals(glonass), glonass);
    if (indicator < 0)
        return;
    w.code2 = indicator;
    if (record.P[slot] != 0.0 && std::fabs(record.P[slot] - rangeM) <= kMaxRange2M)
        w.range2M = record.P[slot] - rangeM;
    w.phase2M = phaseField(record, slot, wavelengthM(s, system, record, slot), rangeM);
    w.lock2 = lockField(s, record, slot);
    w.cnr2Db = record.SNR[slot] * 0.001;
}

/// The fields of a satellite; false where the message cannot name it or has no place for its L1
/// range. A GLONASS satellite needs its channel: every value of the field names one.
bool fillSatellite(RtcmState& s, LegacySatellite& w, const ObsRecord& record,
                   const LegacyForm& form) {
    System system = kNoSystem;
    w = {.id = legacyId(record.sat, form.glonass, system)};
    const auto [slot, indicator] = choose(record, kL1Signals, form.glonass);
    if (w.id == 0 || indicator < 0 || record.P[slot] == 0.0 ||
        !splitL1Range(w, form.glonass, record.P[slot]))
        return false;
    if (form.glonass)
        w.channel = fcn_glo(record.sat, s);
    if (w.channel < 0)
        return false;
    const double rangeM = l1RangeM(w, form.glonass);
    w.code1 = indicator;
    w.phase1M = phaseField(record, slot, wavelengthM(s, system, record, slot), rangeM);
    w.lock1 = lockField(s, record, slot);
    w.cnr1Db = record.SNR[slot] * 0.001;
    if (form.l2)
        fillL2(s, w, record, system, rangeM);
    return true;
}

} // namespace

int encodeLegacy(RtcmState& s, int type, int sync) {
    const LegacyForm form = legacyForm(type);
    LegacyMessage m;
    m.head.type = type;
    m.head.staid = s.staid;
    m.head.epochMs = form.glonass ? epochField(kGlonass, s.time) & 0x7FFFFFFU
                                  : epochField(kGps, s.time) % 604800000U; // DF004
    m.head.more = sync ? 1 : 0;
    for (int i = 0; i < s.obs.n; ++i) {
        LegacySatellite satellite;
        if (!fillSatellite(s, satellite, s.obs.data[static_cast<std::size_t>(i)], form))
            continue;
        if (m.head.satellites == kMostSatellites) {
            trace(2, "rtcm3 %d: more than %d satellites\n", type, kMostSatellites);
            break;
        }
        m.satellites[static_cast<std::size_t>(m.head.satellites++)] = satellite;
    }
    return writeMessage(s, layoutLegacy, m);
}
