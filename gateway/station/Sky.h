#pragma once

#include "gateway/net/Outbox.h"
#include "gateway/station/Look.h"
#include "reference/standard/geometry.h"

#include <span>
#include <vector>

/// Sky: where the satellites of an epoch are, and what became of them, by the independent
/// computation (reference/) and its limits.

namespace gateway {

struct SkyTerms {
    ref::Vec3 siteM{}, virtualM{};
    ref::GpsTime near; // the epoch is within half a day of it
    double agoS = 0.0; // since the epoch came; ages are those of now
};
/// `received` and `kept`: the last epoch of the station and that of rovers, in whole frames;
/// `ephemerides`: those that have come, among other messages.
std::vector<SatelliteLook> skyOf(std::span<const std::uint8_t> received,
                                 std::span<const std::uint8_t> kept,
                                 std::span<const std::uint8_t> ephemerides, const SkyTerms& terms);

} // namespace gateway
