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
/// Ids of satellites, the bits of DF394.
inline constexpr std::uint64_t kAllIds = ~std::uint64_t{0};
/// Of the satellites in `ids` as many as one message may have, in order; those of the ids that are
/// left. `epoch`: time field of the MSM.
std::uint64_t toMsm4(const LegacyMessage& from, std::uint32_t epoch, std::uint64_t ids,
                     MsmMessage& out);
/// Whether two messages carry a signal of a satellite both.
bool shareSignal(const LegacyMessage& a, const LegacyMessage& b);
