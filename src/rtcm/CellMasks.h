#pragma once

#include "rtcm/Frame.h"
#include "rtcm/Msm4.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

/// CellMasks: who is in an observation message (RTCM 10403.x), by its head alone.

/// Who is in a message, or in a signal of a message from before MSM.
struct CellMasks {
    std::uint64_t satellites = 0; // bit 63 = MSM id 1
    std::uint32_t signals = 0;    // bit 31 = id 1
    std::uint64_t cells = 0;      // DF396
    bool operator==(const CellMasks&) const = default;
};

/// Calls take(system, masks) for a whole frame, the system as in kMsmSystems; for a message from
/// before MSM for each of the MSM4 that would hold it. Nothing for other messages.
template <class Take> void forEachCellMasks(std::span<const std::uint8_t> frame, const Take& take) {
    const int type = messageType(frame);
    if (isMsm4To7(type)) {
        constexpr std::size_t before = kMsmBitsBeforeMasks / 8;
        BitReader in = messageOf(frame.subspan(std::min(before, frame.size())));
        in.fixed(kMsmBitsBeforeMasks % 8, 0);
        CellMasks m;
        in.u(64, m.satellites);
        in.u(32, m.signals);
        const int pairs = std::popcount(m.satellites) * std::popcount(m.signals);
        if (pairs == 0 || pairs > static_cast<int>(kMsmCells))
            return;
        in.u(pairs, m.cells);
        if (in.ok())
            take(static_cast<std::size_t>((type - 1070) / 10), m);
    } else if (isLegacy(type)) {
        BitReader in = messageOf(frame);
        LegacyMessage message;
        layoutLegacy(in, message);
        MsmMessage part;
        for (std::uint64_t left = in.ok() ? kAllIds : 0; left != 0;) {
            left = toMsm4(message, 0, left, part);
            if (part.pairs() > 0)
                take(legacyForm(type).glonass ? std::size_t{1} : std::size_t{0},
                     CellMasks{part.head.satellites, part.head.signals, part.cellMask});
        }
    }
}
