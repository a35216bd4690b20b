#pragma once

#include "reference/standard/bits.h"
#include "reference/standard/geometry.h"

/// Encode: what the simulated station says of itself, as frames.

namespace ctl::simulate {

/// 1005, 1006, 1007, 1008, 1013, 1033, 1230; std::out_of_range for another type.
ref::Bytes stationFrame(int type, int station, const ref::Vec3& siteM, ref::GpsTime t);

} // namespace ctl::simulate
