#pragma once

#include "gnss/ComTime.h"
#include "orbit/Kepler.h"
#include "orbit/OrbitState.h"
#include "orbit/Rnxeph.h"

#include <array>
#include <string_view>

/// RnxephUtils: satellite position, velocity and clock from the stored broadcast ephemerides.
/// Earth-centred Earth-fixed, m and m/s; clock in s; GPS time of transmission (BDT for BeiDou).
/// Kepler orbits: IS-GPS-200 20.3.3.4.3, BDS ICD 5.2.4.12. GLONASS: ICD 5.1, A.3.1.2.

/// What orbits are computed from, and the epoch that judges the age of an ephemeris.
struct OrbitSource {
    const Session& session;
    const EphemerisStore& store;
    MjdTime epoch;
    OrbitRules rules = OrbitRules::departures;
};

/// Age above which an ephemeris is not used, s.
inline constexpr double kMaxEphemerisAgeS = 7200.0;

/// Position of a configured Keplerian satellite at a GPS week and second of week. 1, or 0 with a
/// line where there is no ephemeris of the last two hours. `mode`: three letters, 'y' or 'n';
/// "ynn" asks for the clock only. The slot used goes to `ephemerisIndex`.
int BrdUtils_m_brd2xyz(const OrbitSource& in, std::string_view mode, std::size_t satellite,
                       int week, OrbitState& position, double& clock, int& ephemerisIndex,
                       double secondOfWeek);
/// The same for a GLONASS satellite.
int BrdUtils_m_gls2xyz(const OrbitSource& in, std::string_view mode, std::size_t satellite,
                       int week, OrbitState& position, double& clock, int& ephemerisIndex,
                       double secondOfWeek);

/// The one place where a satellite's state is asked for: position and velocity of a configured one
/// at a time of transmission (GPS time, BeiDou's too). 1, or 0 with a line where there is no
/// ephemeris of the last two hours. The slot used goes to `ephemerisIndex`.
int VrsBaseStation_v_readOrbit(const OrbitSource& in, std::size_t satellite, int mjd,
                               OrbitState& position, int& ephemerisIndex, double sod);
