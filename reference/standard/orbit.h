/// Satellite position (ECEF, m) and clock offset (s) at a GPS time of transmission.
/// Elements: IS-GPS-200 20.3.3.4.3, BDS-SIS-ICD 5.2.4.12. GLONASS ICD 5.1, A.3.1.2.
#pragma once

#include "ephemeris.h"
#include "frame.h"
#include "utc.h"

#include <map>

namespace ref {

constexpr double kBdtLagS = 14;    // GPS time - BDT
constexpr double kMoscowS = 10800; // GLONASS time - UTC

/// Of BeiDou: C01 to C05 and C59 to C63.
constexpr bool isGeostationary(int id) {
    return id <= 5 || id >= 59;
}

/// Rotation rate of the Earth that the ephemerides of a system are made for, rad/s.
double earthRate(char system);

/// Times are taken nearest to the ephemeris: within half a week, GLONASS half a day.
Vec3 position(const Kepler& k, GpsTime t);
Vec3 position(const Kepler& k, GpsTime t, double earthRate);
Vec3 position(const Glonass& g, GpsTime t);
/// position(g, t) with a memory of the states that it went through.
SatFn trajectory(const Glonass& g);

/// Satellite clock minus system time, broadcast polynomial only: no group delay. GLONASS clock
/// terms hold the relativistic effect.
double clockOffset(const Kepler& k, GpsTime t);
double clockOffset(const Glonass& g, GpsTime t);
/// To be added to the clock offset: -2 sqrt(GM a) e sin E / c^2.
double relativityS(const Kepler& k, GpsTime t);

/// The ephemerides of a stream; the later message of a satellite wins.
class Navigation {
public:
    void take(const Frame& f); ///< other messages are ignored
    /// std::out_of_range for a satellite without ephemeris. The result may outlive this object.
    SatFn satellite(const std::string& sat) const;
    double qzssEarthRate = earthRate('J'); ///< rad/s
    std::map<std::string, Kepler> kepler;
    std::map<std::string, Glonass> glonass;
};

} // namespace ref
