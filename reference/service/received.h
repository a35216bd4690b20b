/// An observation message as it was received, in the fields of an MSM, with its whole values.
#pragma once

#include "reference/standard/frame.h"
#include "reference/standard/geometry.h"
#include "reference/standard/msm.h"

#include <optional>
#include <set>
#include <utility>
#include <vector>

namespace ref {

/// What the head of an observation message says: type, system, station, epoch field, multiple-
/// message bit. Nothing for other messages, and where the head is not whole.
std::optional<Msm> headOf(const Frame& f);

/// Epoch of an observation message, where it is nearest to a time: within half a week, GLONASS half
/// a day. Nothing for an epoch that no week has.
std::optional<GpsTime> timeNear(const Msm& m, GpsTime near);

/// Whether the time of a system's messages counts. Of SBAS and NavIC, which no reply carries, only
/// the end of the epoch does; their time does where an epoch holds nothing else.
constexpr bool datesEpochs(char system) {
    return system != 'S' && system != 'I';
}

/// Rough and fine together, in ms of range and m/s; nothing where one of them is invalid.
struct WholeCell {
    std::optional<double> rangeMs, phaseMs, rateMps;
    /// Phases that differ by a multiple are the same; 0: none do.
    double rollOverMs = 0;
};

/// The values of the cells of an MSM, in their order.
std::vector<WholeCell> wholeCells(const RawMsm& m);

struct ReceivedMessage {
    RawMsm raw;                   ///< legacy messages: as the MSM4 that they become
    std::vector<WholeCell> whole; ///< of raw.cells
    bool legacy = false;
    int cells = 0; ///< that it came with; a legacy message without whole ranges keeps none
    /// That it came with: satellite id, signal id.
    std::set<std::pair<int, int>> pairs;
};

/// Nothing where the contents do not fit the message.
std::optional<ReceivedMessage> received(const Frame& f, GpsTime time);

} // namespace ref
