#pragma once

#include "rtcm/layouts/Legacy.h"
#include "rtcm/layouts/Msm.h"

#include <cstddef>

/// Msm4: messages from before MSM as MSM4 of the same signals (RTCM 10403.x). Values keep their
/// resolution until they are written.

/// Whether the message has whole pseudoranges, which MSM4 needs: 1002, 1004, 1010, 1012.
constexpr bool hasMsm4(int type) {
    return legacyForm(type).extended;
}
inline constexpr std::size_t kMsm4Ids = kMsmSatellites + 1; // behind the last satellite id
/// The satellites from id `first` on, as many as one message may have; the id after the last one.
/// `epoch`: time field of the MSM.
std::size_t toMsm4(const LegacyMessage& from, std::uint32_t epoch, std::size_t first,
                   MsmMessage& out);
