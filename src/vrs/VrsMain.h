#pragma once

#include "vrs/VirtualStation.h"

#include <cstddef>
#include <cstdint>
#include <span>

/// VrsMain: one request for an epoch of the virtual station.

/// Northward shift of the virtual station, rad of latitude: about 300 m.
inline constexpr double kVirtualLatitudeShift = 4.7088369190215936e-05;

/// Answers the stored epoch of a station: puts the reply frame into the buffer (at least 4096
/// bytes) and returns its length, 0 where there is no reply. The stored epoch is taken: it is
/// empty afterwards.
int VrsMain(VirtualStation& virtualStation, const VrsSources& in, std::size_t station,
            std::span<std::uint8_t> reply);
