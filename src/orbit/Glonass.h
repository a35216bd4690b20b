#pragma once

#include "gnss/ComTime.h"
#include "orbit/OrbitState.h"
#include "orbit/Rnxeph.h"

#include <array>
#include <string_view>

/// Glonass: orbits integrated from the state of one record (GLONASS ICD 5.1, A.3.1.2).
/// Earth-centred Earth-fixed, m and m/s; clock in s.

/// Position and velocity at a GPS time.
OrbitState glonassState(const GLSEPH& record, MjdTime t);
/// GLONASS orbit of one record; -1 when no position was computed (clock only).
int BrdUtils_m_reph2xyz(const GLSEPH& record, std::string_view mode, int mjd, OrbitState& position,
                        double& clock, double sod);

// GLONASS integration; states in km and km/s.
OrbitState BrdUtils_glsinit(const GLSEPH& record);
/// Derivatives of the state.
OrbitState BrdUtils_glsfright(const OrbitState& state, const std::array<double, 3>& acceleration);
/// One classical Runge-Kutta step of fourth order.
OrbitState BrdUtils_glsrkf4(const OrbitState& state, const std::array<double, 3>& acceleration,
                            double step);
/// Turns a position (km) from PZ-90 to WGS 84, in place. Before MJD 54362 the type names the
/// transformation ("MCC", "RUS", "LMU", "MIT"); an unknown one ends the process.
void BrdUtils_pz902wgs84(int mjd, double sod, OrbitState& state, std::string_view type);
