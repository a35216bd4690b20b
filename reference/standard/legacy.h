/// RTCM 10403.x legacy observations: 1001 to 1004 of GPS, 1009 to 1012 of GLONASS.
#pragma once

#include "msm.h"

namespace ref {

/// The message as an Msm with msm = 0; the epoch field of GLONASS is ms of the Moscow day. L1 comes
/// before L2. 1001, 1003, 1009 and 1011 have ranges modulo their ambiguity and no CNR.
/// std::invalid_argument for another type, std::out_of_range for a body too short.
Msm readLegacy(const Bytes& body);

/// The least time of lock (s) that an indicator of these messages states.
int legacyLockS(int indicator);

/// 1004 (GPS) or 1012 (GLONASS) of the satellites that have a range on L1, 31 at most, with one
/// signal a carrier; empty without any. The cells stand satellite by satellite, L1 first. The epoch
/// field may be that of an MSM. std::out_of_range for a range that the fields cannot hold.
Bytes writeLegacy(char system, int station, std::uint32_t epochField, bool more,
                  const std::vector<Cell>& cells);

} // namespace ref
