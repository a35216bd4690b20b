#pragma once

#include "vrs/VirtualStation.h"

#include <cstdint>
#include <span>
#include <string>

/// BaseStation: generates and encodes the virtual epoch of one request.

struct VrsBaseStation {
    std::string name;
    Vector3 xyz{};                       // of the reference, m
    std::span<const std::uint8_t> reply; // encoded frame; empty = no reply
};

void VrsBaseStation_Initial(VrsBaseStation& base);
/// Generates the virtual epoch of the station's reference pack and leaves its reply frame in the
/// base state, valid until the next call.
void VrsBaseStation_m_process(VirtualStation& station, const VrsSources& in, VrsBaseStation& base,
                              const RequestRecord& request);
/// Saves a reference epoch where the command line asks for it.
void VrsBaseStation_m_save(const VrsSources& in, const VrsObsPack& reference);
/// Appends the epoch of a pack to the day's observation file. 0, or -1 when the file lacks it.
int VrsBaseStation_m_outputObservation(const VrsSources& in, const VrsObsPack& pack);
/// Position of a configured satellite at a transmit time (MJD, GPS seconds of day). Non-zero when
/// there is one.
int VrsBaseStation_v_readOrbit(const OrbitSource& in, std::size_t satellite, int mjd,
                               OrbitState& position, int& ephemerisIndex, double sod);
