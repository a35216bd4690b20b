#pragma once

#include "vrs/VirtualStation.h"

#include <cstddef>
#include <cstdint>
#include <span>

/// VrsMain: one request for an epoch of the virtual station: generates, saves and encodes it.

/// Northward shift of the virtual station, rad of latitude: about 300 m.
inline constexpr double kVirtualLatitudeShift = 4.7088369190215936e-05;

/// Answers the stored epoch of a station: puts the reply frame into the buffer (at least 4096
/// bytes, kLongestReply for complete and plain answers) and returns its length, 0 where there is no
/// reply or no room for it. The stored epoch is taken: it is empty afterwards.
int VrsMain(VirtualStation& virtualStation, const VrsSources& in, std::size_t station,
            std::span<std::uint8_t> reply);

void VrsBaseStation_Initial(VrsBaseStation& base);
/// Generates the virtual epoch of the station's reference pack and leaves its reply frame in the
/// base state, valid until the next call.
void VrsBaseStation_m_process(VirtualStation& station, const VrsSources& in, VrsBaseStation& base,
                              const RequestRecord& request);
/// Saves a reference epoch where the command line asks for it.
void VrsBaseStation_m_save(const VrsSources& in, const VrsObsPack& reference);
/// Appends the epoch of a pack to the day's observation file. 0, or -1 when the file lacks it.
int VrsBaseStation_m_outputObservation(const VrsSources& in, const VrsObsPack& pack);
