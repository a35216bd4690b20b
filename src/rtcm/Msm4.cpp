#include "rtcm/Msm4.h"

#include <algorithm>
#include <array>
#include <bit>
#include <span>

namespace {

constexpr int kGpsType = 1074;
constexpr int kGlonassType = 1084;
constexpr int kGpsSatellites = 32; // ids above are SBAS
constexpr int kGlonassSatellites = 24;
constexpr double kMostCnrDb = 63.0; // DF403

/// Id of a signal in the messages of a type; 0 = none. MSM has no signal for cross-correlated L2,
/// which is P(Y) too.
constexpr int idOf(int type, std::string_view signal) {
    const SignalCodes& codes = msmSystem(type).codes;
    const auto at =
        std::find(codes.begin() + 1, codes.end(), obs2code(signal == "2D" ? "2W" : signal));
    return signal.empty() || at == codes.end() ? 0 : static_cast<int>(at - codes.begin());
}
constexpr auto idsOf(int type, const IndicatedSignals& signals) {
    std::array<int, 4> ids{};
    std::ranges::transform(signals, ids.begin(), [=](auto signal) { return idOf(type, signal); });
    return ids;
}
constexpr auto kL1Ids = idsOf(kGpsType, kL1Signals);
constexpr auto kGpsL2Ids = idsOf(kGpsType, kGpsL2Signals);
constexpr auto kGlonassL2Ids = idsOf(kGlonassType, kGlonassL2Signals);
static_assert(kL1Ids == idsOf(kGlonassType, kL1Signals));

struct SentSignal {
    int id; // 0 = none
    double rangeM, phaseM;
    int lock;
    double cnrDb;
};
std::array<SentSignal, 2> sentSignals(const LegacySatellite& s, const LegacyForm& form) {
    const double rangeM = l1RangeM(s, form.glonass);
    std::array<SentSignal, 2> signals{
        {{kL1Ids[static_cast<std::size_t>(s.code1)], rangeM, rangeM + s.phase1M, s.lock1, s.cnr1Db},
         {0, kNone, kNone, 0, 0.0}}};
    if (form.l2 && !(isNone(s.range2M) && isNone(s.phase2M)))
        signals[1] = {(form.glonass ? kGlonassL2Ids : kGpsL2Ids)[static_cast<std::size_t>(s.code2)],
                      rangeM + s.range2M, rangeM + s.phase2M, s.lock2, s.cnr2Db};
    return signals;
}

bool hasId(const LegacySatellite& s, bool glonass) {
    return s.id >= 1 && s.id <= (glonass ? kGlonassSatellites : kGpsSatellites);
}

std::span<const LegacySatellite> satellitesOf(const LegacyMessage& m) {
    return {m.satellites.data(), static_cast<std::size_t>(m.head.satellites)};
}

std::uint32_t signalBit(int id) {
    return id == 0 ? 0 : std::uint32_t{1} << (kMsmSignals - static_cast<std::size_t>(id));
}

std::uint32_t maskOf(const std::array<SentSignal, 2>& signals) {
    return signalBit(signals[0].id) | signalBit(signals[1].id);
}

MsmCell cellOf(const SentSignal& signal, double roughMs) {
    const MsmForm& form = msmForm(kGpsType);
    MsmCell cell = kNoMsmCell;
    cell.rangeMs = signal.rangeM / kRangeMs - roughMs;
    cell.phaseMs = signal.phaseM / kRangeMs - roughMs;
    cell.lock = lockIndicator(form, leastLockS(signal.lock));
    cell.cnrDb = std::min(roundHalfUp(signal.cnrDb), kMostCnrDb);
    return cell;
}

} // namespace

bool shareSignal(const LegacyMessage& a, const LegacyMessage& b) {
    const LegacyForm form = legacyForm(a.head.type);
    for (const LegacySatellite& s : satellitesOf(a))
        for (const LegacySatellite& t : satellitesOf(b))
            if (s.id == t.id && hasId(s, form.glonass) &&
                (maskOf(sentSignals(s, form)) & maskOf(sentSignals(t, form))) != 0)
                return true;
    return false;
}

std::uint64_t toMsm4(const LegacyMessage& from, std::uint32_t epoch, std::uint64_t ids,
                     MsmMessage& out) {
    const LegacyForm form = legacyForm(from.head.type);
    // Of a satellite that comes twice the first.
    std::array<const LegacySatellite*, kMsmSatellites + 1> byId{};
    std::uint64_t left = 0;
    std::uint32_t signals = 0;
    for (const LegacySatellite& s : satellitesOf(from))
        if (hasId(s, form.glonass) && (ids & ~left & idBit(s.id)) != 0) {
            left |= idBit(s.id);
            byId[static_cast<std::size_t>(s.id)] = &s;
            signals |= maskOf(sentSignals(s, form));
        }

    out.head = {.type = form.glonass ? kGlonassType : kGpsType,
                .staid = from.head.staid,
                .epoch = epoch,
                .more = from.head.more,
                .smoothing = from.head.smoothing,
                .smoothingInterval = from.head.smoothingInterval,
                .signals = signals};
    out.satelliteCount = out.cellCount = 0;
    out.signalCount = static_cast<std::size_t>(std::popcount(signals));
    out.cellMask = 0;
    while (left != 0 && out.pairs() + out.signalCount <= kMsmCells) {
        const LegacySatellite& s = *byId[static_cast<std::size_t>(std::countl_zero(left)) + 1];
        left &= ~idBit(s.id);
        out.head.satellites |= idBit(s.id);
        MsmSatellite& satellite = out.satellites[out.satelliteCount++] = kNoMsmSatellite;
        const auto roughs = static_cast<std::uint32_t>(
            roundHalfUp(l1RangeM(s, form.glonass) / kRangeMs / pow2(-10)));
        satellite.setRange(roughs);
        std::uint32_t has = 0;
        for (const SentSignal& signal : sentSignals(s, form)) // ascending ids
            if (signal.id != 0) {
                has |= signalBit(signal.id);
                out.cells[out.cellCount++] = cellOf(signal, satellite.roughMs());
            }
        for (std::uint32_t rest = signals; rest != 0;) {
            const std::uint32_t bit = std::bit_floor(rest);
            out.cellMask = out.cellMask << 1 | ((has & bit) != 0 ? 1U : 0U);
            rest &= ~bit;
        }
    }
    return left;
}
