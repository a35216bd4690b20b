#pragma once

#include "gnss/ComTime.h"
#include "orbit/Rnxeph.h"

#include <array>
#include <string_view>

/// RnxephUtils: satellite position, velocity and clock from the stored broadcast ephemerides.
/// Earth-centred Earth-fixed, m and m/s; clock in s; GPS time of transmission (BDT for BeiDou).
/// Kepler orbits: IS-GPS-200 20.3.3.4.3, BDS ICD 5.2.4.12. GLONASS: ICD 5.1, A.3.1.2.

/// X, Y, Z and their rates.
using OrbitState = std::array<double, 6>;

/// What orbits are computed from, and the epoch that judges the age of an ephemeris.
struct OrbitSource {
    const Session& session;
    const EphemerisStore& store;
    MjdTime epoch;
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

/// Position and velocity of a configured satellite at a time of transmission (GPS time, BeiDou's
/// too). False, with a line, where there is no ephemeris of the last two hours. The slot used goes
/// to `ephemerisIndex`.
bool satelliteState(const OrbitSource& in, std::size_t satellite, MjdTime t, OrbitState& state,
                    int& ephemerisIndex);
/// The same of one record, at a GPS time (BDT for BeiDou).
OrbitState keplerState(const GPSEPH& record, WeekTime t);
OrbitState glonassState(const GLSEPH& record, MjdTime t);

/// Kepler orbit of one record; -1 when no position was computed (clock only). BeiDou's clock
/// depends on the carriers of the session.
int BrdUtils_m_geph2xyz(const Session& session, const GPSEPH& record, std::string_view mode,
                        int week, OrbitState& position, double& clock, double secondOfWeek);
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
