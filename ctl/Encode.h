#pragma once

#include "reference/standard/ephemeris.h"
#include "reference/standard/msm.h"

#include <vector>

/// Encode: what the simulated sky says, as frames in the message layouts of rtcm/.

namespace ctl::simulate {

/// 1019, 1042, 1044, 1045 or 1046 by its type; 1020.
ref::Bytes ephemerisFrame(const ref::Kepler& k);
ref::Bytes ephemerisFrame(const ref::Glonass& g);

/// MSM4 to MSM7, as the message says. std::out_of_range for a value that its field cannot hold.
ref::Bytes msmFrame(const ref::Msm& m);

/// 1004 (GPS) or 1012 (GLONASS) of the satellites that have a signal on L1; empty without any.
/// The epoch field may be that of an MSM. std::out_of_range for a range that the fields cannot
/// hold.
ref::Bytes legacyFrame(char system, int station, std::uint32_t epochField, bool more,
                       const std::vector<ref::Cell>& cells);

/// A station's descriptions of itself: 1005, 1006, 1007, 1008, 1013, 1033, 1230.
ref::Bytes stationFrame(int type, int station, const ref::Vec3& siteM, ref::GpsTime t);

} // namespace ctl::simulate
