#pragma once

#include "gnss/GTime.h"
#include "orbit/OrbitState.h"
#include "orbit/Rnxeph.h"

#include <string_view>

/// Kepler: orbits by the Keplerian elements of one record (IS-GPS-200 20.3.3.4.3, BDS ICD
/// 5.2.4.12). Earth-centred Earth-fixed, m and m/s; clock in s.

/// Departures are what the service has always computed: QZSS turns with the Earth of BeiDou, and
/// C59 to C63 are taken as others.
enum class OrbitRules : bool { departures, standards };

/// Position and velocity at a GPS time (BDT for BeiDou).
OrbitState keplerState(const GPSEPH& record, WeekTime t, OrbitRules rules);
/// Kepler orbit of one record; -1 when no position was computed (clock only). BeiDou's clock
/// depends on the carriers of the session.
int BrdUtils_m_geph2xyz(const Session& session, const GPSEPH& record, std::string_view mode,
                        int week, OrbitState& position, double& clock, double secondOfWeek);
