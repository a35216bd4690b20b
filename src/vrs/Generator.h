#pragma once

#include "vrs/VirtualStation.h"

#include <cstdint>
#include <span>

/// Generator: the virtual station's observations, the reference's shifted by the change of
/// geometric range (Earth rotation included). Both points see the satellite at the transmit time
/// of the virtual one; no clock, atmosphere or antenna enters.

/// Fills the station's answer from its reference pack; beyond 5000 m (and without "-post") with
/// the reference's own observations.
VrsObsPack& VrsGenerator_s_genVirtualObs(VirtualStation& station, const VrsSources& in,
                                         const VrsBaseStation& base,
                                         const RequestRecord& virtualStation);
/// The generation proper; a satellite whose flag is 0 is taken as absent.
void VrsGenerator_s_genObservation_raw(VirtualStation& station, const VrsSources& in,
                                       const RequestRecord& virtualStation,
                                       std::span<const std::uint8_t> flags);
