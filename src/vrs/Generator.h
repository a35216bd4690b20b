#pragma once

#include "gnss/ComCoord.h"
#include "vrs/VirtualStation.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

/// Generator: the virtual station's observations, the reference's shifted by the change of
/// geometric range (Earth rotation included). Both points see the satellite at the transmit time
/// of the virtual one; no clock, atmosphere or antenna enters.

/// A virtual station's place, and its axes: east, north and up to Earth-centred ones.
struct Viewpoint {
    explicit Viewpoint(const RequestRecord& station)
        : xyz(station.xyz), fromLocal(rot_enu2xyz(station.blh[0], station.blh[1])) {}
    Vector3 xyz;
    Matrix3 fromLocal;
};
/// Empties the station's answer to the epoch of its reference pack.
void VrsGenerator_m_begin(VirtualStation& station, const RequestRecord& virtualStation);
/// The change for a configured satellite; nothing, with a line, where it cannot be answered.
std::optional<RangeChange> VrsGenerator_m_rangeChange(VirtualStation& station,
                                                      const OrbitSource& orbits,
                                                      const Viewpoint& from, std::size_t satellite);

/// Fills the changes of the received epoch's satellites, and empties the station's answer.
void VrsGenerator_m_changes(VirtualStation& station, const VrsSources& in,
                            const RequestRecord& virtualStation);
/// Fills the station's answer from its reference pack; beyond 5000 m (and without "-post") with
/// the reference's own observations.
VrsObsPack& VrsGenerator_s_genVirtualObs(VirtualStation& station, const VrsSources& in,
                                         const VrsBaseStation& base,
                                         const RequestRecord& virtualStation);
/// The generation proper; a satellite whose flag is 0 is taken as absent.
void VrsGenerator_s_genObservation_raw(VirtualStation& station, const VrsSources& in,
                                       const RequestRecord& virtualStation,
                                       std::span<const std::uint8_t> flags);
