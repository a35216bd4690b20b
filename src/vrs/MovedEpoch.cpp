#include "vrs/MovedEpoch.h"

#include "rtcm/Msm4.h"
#include "rtcm/rtcm3e.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <span>

namespace {

/// The change of a rough value that brings all fine values of a satellite into their fields, in
/// steps of the rough value. A fine value is what a whole value has beyond the rough one.
class RoughStep {
public:
    /// A fine value that must come to lie within `most` on either side of 0; none is passed over.
    void mustFit(double value, double most) {
        if (isNone(value))
            return;
        least_ = std::max(least_, std::ceil(value - most - kSlack));
        most_ = std::min(most_, std::floor(value + most + kSlack));
        low_ = std::min(low_, value);
        high_ = std::max(high_, value);
    }
    /// As near to the middle of the values as possible; `otherwise` where there are none.
    double best(double otherwise) const {
        if (low_ > high_)
            return roundHalfUp(otherwise);
        return std::max(least_, std::min(most_, roundHalfUp((low_ + high_) / 2.0)));
    }

private:
    static constexpr double kSlack = 1e-9;
    static constexpr double kFar = std::numeric_limits<double>::max();
    double least_ = -kFar, most_ = kFar; // steps that serve all values
    double low_ = kFar, high_ = -kFar;   // of the values
};

/// The largest value of a fine field that it is rounded to; its lowest one stands for none.
double mostOf(int width, double unit) {
    constexpr double belowNext = 0.49; // of a step
    return (pow2(width - 1) - 1.0 + belowNext) * unit;
}

double withinField(double value, double most) {
    return std::fabs(value) <= most ? value : kNone; // not-a-number is none
}

constexpr double kRoughMs = pow2(-10);
constexpr double kLastRough = 255.0 * 1024.0 - 1.0; // 255 ms stands for none

/// Ranges and phase ranges of a satellite, all by the same time of flight.
void moveRanges(const MsmForm& form, MsmSatellite& satellite, std::span<MsmCell> cells,
                double changeMs) {
    if (!satellite.hasRange())
        return;
    const double mostRangeMs = mostOf(form.range, form.rangeMs);
    const double mostPhaseMs = mostOf(form.phase, form.phaseMs);
    RoughStep step;
    for (MsmCell& cell : cells) {
        cell.rangeMs += changeMs;
        cell.phaseMs += changeMs;
        step.mustFit(cell.rangeMs / kRoughMs, mostRangeMs / kRoughMs);
        step.mustFit(cell.phaseMs / kRoughMs, mostPhaseMs / kRoughMs);
    }
    const double rough = satellite.rangeMs * 1024.0 + satellite.rangeFraction;
    const double moved = std::clamp(rough + step.best(changeMs / kRoughMs), 0.0, kLastRough);
    satellite.setRange(static_cast<std::uint32_t>(moved));
    for (MsmCell& cell : cells) {
        cell.rangeMs = withinField(cell.rangeMs - (moved - rough) * kRoughMs, mostRangeMs);
        cell.phaseMs = withinField(cell.phaseMs - (moved - rough) * kRoughMs, mostPhaseMs);
    }
}

/// Phase-range rates, DF399 in m/s and DF404.
void moveRates(MsmSatellite& satellite, std::span<MsmCell> cells, double changeMps) {
    if (isNone(satellite.rateMps))
        return;
    constexpr double mostRough = 8191.0;
    const double mostMps = mostOf(15, 1e-4);
    RoughStep step;
    for (MsmCell& cell : cells) {
        cell.rateMps += changeMps;
        step.mustFit(cell.rateMps, mostMps);
    }
    const double rough = satellite.rateMps;
    satellite.rateMps = std::clamp(rough + step.best(changeMps), -mostRough, mostRough);
    for (MsmCell& cell : cells)
        cell.rateMps = withinField(cell.rateMps - (satellite.rateMps - rough), mostMps);
}

/// A satellite of a message that has cells.
struct Cells {
    std::size_t rank;      // of the satellite in the message
    int id;                // of MSM, 1 to 64
    int satellite;         // number; 0 = none
    std::uint64_t signals; // by rank, the first one in the highest of signalCount bits
    std::size_t first;     // cell
};
template <class Visit> void forEachSatellite(const MsmMessage& m, Visit visit) {
    const MsmSystem& system = msmSystem(m.head.type);
    std::uint64_t mask = m.pairs() == 0 ? 0 : m.cellMask << (kMsmCells - m.pairs());
    std::uint64_t ids = m.head.satellites;
    std::size_t cell = 0;
    for (std::size_t rank = 0; rank < m.satelliteCount && mask != 0 && ids != 0; ++rank) {
        const int id = std::countl_zero(ids) + 1;
        ids &= ~idBit(id);
        const std::uint64_t signals = mask >> (64 - m.signalCount);
        mask <<= m.signalCount;
        if (signals != 0)
            visit(Cells{rank, id, satno(system.system, id + system.firstPrn - 1), signals, cell});
        cell += static_cast<std::size_t>(std::popcount(signals));
    }
}

/// The bits of `signals` at the places that `used` has, packed.
std::uint64_t packed(std::uint64_t signals, std::uint64_t used) {
    std::uint64_t out = 0;
    for (; used != 0; used &= ~std::bit_floor(used))
        out = out << 1 | ((signals & std::bit_floor(used)) != 0 ? 1U : 0U);
    return out;
}

/// Signals of the mask (bit 31 = id 1) by rank that stay.
std::uint32_t keptSignals(std::uint32_t mask, std::size_t count, std::uint64_t used) {
    std::uint32_t out = 0;
    for (std::size_t rank = 0; rank < count; ++rank) {
        const std::uint32_t bit = std::bit_floor(mask);
        mask &= ~bit;
        if (used >> (count - 1 - rank) & 1U)
            out |= bit;
    }
    return out;
}

/// The signals, by rank, of the satellites that have a change; 0 where none has.
std::uint64_t keptRanks(const MsmMessage& m, const RangeChanges& changes) {
    std::uint64_t kept = 0;
    forEachSatellite(m, [&](const Cells& c) {
        if (changes[static_cast<std::size_t>(c.satellite)])
            kept |= c.signals;
    });
    return kept;
}

/// The message with the satellites that have a change, moved; false where none has.
bool moved(const MsmMessage& in, const RangeChanges& changes, MsmMessage& out) {
    const MsmForm& form = msmForm(in.head.type);
    const std::uint64_t used = keptRanks(in, changes);
    if (used == 0)
        return false;
    out.head = in.head;
    out.head.satellites = 0;
    out.head.signals = keptSignals(in.head.signals, in.signalCount, used);
    out.signalCount = static_cast<std::size_t>(std::popcount(used));
    out.satelliteCount = out.cellCount = 0;
    out.cellMask = 0;
    forEachSatellite(in, [&](const Cells& c) {
        const auto& change = changes[static_cast<std::size_t>(c.satellite)];
        if (!change)
            return;
        out.head.satellites |= idBit(c.id);
        out.cellMask = out.cellMask << out.signalCount | packed(c.signals, used);
        MsmSatellite& satellite = out.satellites[out.satelliteCount++] = in.satellites[c.rank];
        const auto count = static_cast<std::size_t>(std::popcount(c.signals));
        const std::span cells(out.cells.data() + out.cellCount, count);
        std::copy_n(in.cells.begin() + static_cast<std::ptrdiff_t>(c.first), count, cells.begin());
        out.cellCount += count;
        moveRanges(form, satellite, cells, change->metres / kRangeMs);
        if (form.rates)
            moveRates(satellite, cells, change->mps);
    });
    return true;
}

/// Ids of the satellites of GPS or GLONASS that have a change.
std::uint64_t idsWithChange(System system, const RangeChanges& changes) {
    std::uint64_t ids = 0;
    for (int id = 1; id <= static_cast<int>(kMsmSatellites); ++id)
        if (changes[static_cast<std::size_t>(satno(system, id))])
            ids |= idBit(id);
    return ids;
}

/// Calls visit with the messages of the epoch as MSM. Of those from before MSM only satellites that
/// `idsOf` gives for their system: what is kept may need fewer messages than what came.
template <class IdsOf, class Visit>
void forEachMsm(const ReceivedEpoch& epoch, IdsOf idsOf, Visit visit) {
    for (const ReceivedMessage& m : epoch.messages()) {
        if (const auto* const msm = std::get_if<MsmMessage>(&m.body)) {
            visit(*msm);
            continue;
        }
        const auto& legacy = std::get<LegacyMessage>(m.body);
        if (!hasMsm4(legacy.head.type))
            continue;
        std::uint32_t field = legacy.head.epochMs;
        if (m.head.system == kGlonass) { // the day at whose noon that time of day is half a day
            constexpr std::uint32_t timeOfDay = 0x7FFFFFF;
            const double sinceNoonS = field * 0.001 - kSecondsPerDay / 2;
            field |= epochField(kGlonass, timeadd(epoch.time, -sinceNoonS)) & ~timeOfDay;
        }
        MsmMessage part;
        for (std::uint64_t left = idsOf(m.head.system); left != 0;) {
            left = toMsm4(legacy, field, left, part);
            visit(part);
        }
    }
}

} // namespace

std::bitset<kMaxSatellites> satellitesOf(const ReceivedEpoch& epoch, const Session& session) {
    std::bitset<kMaxSatellites> found;
    forEachMsm(
        epoch, [](System) { return kAllIds; },
        [&](const MsmMessage& m) {
            forEachSatellite(m, [&](const Cells& c) {
                const int index = session.satelliteIndex[static_cast<std::size_t>(c.satellite)];
                if (c.satellite != 0 && index >= 0)
                    found.set(static_cast<std::size_t>(index));
            });
        });
    return found;
}

int countMoved(const ReceivedEpoch& epoch, const RangeChanges& changes) {
    int count = 0;
    forEachMsm(
        epoch, [&](System system) { return idsWithChange(system, changes); },
        [&](const MsmMessage& m) { count += keptRanks(m, changes) != 0 ? 1 : 0; });
    return count;
}

void moveEpoch(const ReceivedEpoch& epoch, const RangeChanges& changes, MovedTaker taker) {
    MsmMessage out;
    forEachMsm(
        epoch, [&](System system) { return idsWithChange(system, changes); },
        [&](const MsmMessage& m) {
            if (moved(m, changes, out))
                taker.take(taker.self, out);
        });
}
