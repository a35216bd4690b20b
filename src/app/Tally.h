#pragma once

#include "rtcm/layouts/Msm.h"

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

/// Tally: satellites and signals of observation messages, by what their heads say.

/// Of a system, in the order of kMsmSystems.
struct SystemTally {
    std::uint64_t satellites = 0; // of the epoch that is being counted; bit 63 = MSM id 1
    std::array<std::uint64_t, kMsmSignals + 1> cells{}; // since the start, by signal id
};
using Tally = std::array<SystemTally, kMsmSystems.size()>;
using Satellites = std::array<std::uint64_t, kMsmSystems.size()>;

/// Adds the message of a whole frame; one that is no MSM4 to MSM7 adds nothing.
void addMessage(Tally& tally, std::span<const std::uint8_t> frame);
/// The satellites of the epoch that ends.
Satellites endEpoch(Tally& tally);
/// "GRESJCI", by system.
inline constexpr std::string_view kMsmLetters = "GRESJCI";
/// Satellite number of an MSM id; 0 = none.
int satelliteOf(std::size_t system, int id);
