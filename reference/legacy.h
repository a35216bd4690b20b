/// RTCM 10403.x legacy observations with ambiguity and CNR: 1002, 1004, 1010, 1012.
#pragma once

#include "msm.h"

namespace ref {

/// The message as an Msm with msm = 0; the epoch field of GLONASS is ms of the Moscow day. L1 comes
/// before L2. std::invalid_argument for another type, std::out_of_range for a body too short.
Msm readLegacy(const Bytes& body);

} // namespace ref
