#pragma once

#include "vrs/BaseStation.h"

#include <array>
#include <cstdint>
#include <span>

/// Generator: the virtual station's observations, the reference's shifted by the change of
/// geometric range (Earth rotation included). Both points see the satellite at the transmit time
/// of the virtual one; no clock, atmosphere or antenna enters.

/// What is kept of a satellite from epoch to epoch: for the Doppler correction its last answered
/// epoch, and the last light time to the virtual point, from which the next is forecast.
struct RangeHistory {
    int mjd = 0;
    double sod = 0.0;
    double drleng = 0.0; // range at the virtual point minus range at the reference, m
    MjdTime seen;
    double lightTimeS = 0.0; // 0 = none
    double lightTimeRate = 0.0;
    /// f1^2 / f^2 per carrier slot, formed when first needed; 0 = not formed. Recorded only.
    std::array<double, kMaxSlots> ionosphereFactor{};
};
/// By configured satellite; lives as long as the process.
extern std::array<RangeHistory, kMaxSatellites> last_drleng;

/// Fills `out` from the reference pack; beyond 5000 m (and without "-post") with the reference's
/// own observations.
VrsObsPack& VrsGenerator_s_genVirtualObs(VrsObsPack& out, const VrsBaseStation& base,
                                         VrsObsPack& reference,
                                         const RequestRecord& virtualStation);
/// The generation proper; a satellite whose flag is 0 is taken as absent.
void VrsGenerator_s_genObservation_raw(VrsObsPack& out, VrsObsPack& reference,
                                       const RequestRecord& virtualStation,
                                       std::span<const std::uint8_t> flags);
