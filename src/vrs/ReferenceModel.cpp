#include "vrs/ReferenceModel.h"

#include "base/Print.h"
#include "vrs/Sight.h"

#include <algorithm>
#include <cmath>
#include <span>

namespace {

constexpr int kEphemerisWanted = -2; // marks a satellite whose ephemeris is to be chosen

/// Range and direction of one observed satellite; range 0 where there are none.
void modelSatellite(const OrbitSource& in, VrsObsPack& pack, std::size_t satellite,
                    const Matrix3& fromLocal) {
    pack.ephemerisIndex[satellite] = kEphemerisWanted;
    SightPoint station{pack.xyz, pack.xyz};
    OrbitState state{};
    LightTimes none;
    switch (solveLightTime(in, satellite, pack, std::span(&station, 1), state, none)) {
    case LightTime::noOrbit:
        return;
    case LightTime::notConverged:
        print(Lasting{Cause::noConvergence, satellite},
              "***WARN(BaseStation): %s position not convergence! ddelay=%14.13lf\n",
              in.session.satelliteNames[satellite].c_str(), -station.deltaS);
        return;
    case LightTime::found:
        break;
    }
    const Vector3 local = localSight(state, pack.xyz, fromLocal);
    pack.referenceRange[satellite] = station.rangeM;
    pack.azimuth[satellite] = std::atan2(local[0], local[1]);
    pack.elevation[satellite] = elevationOf(local);
}

} // namespace

void VrsBaseStation_m_gnssModel(const OrbitSource& in, VrsObsPack& pack) {
    pack.ranged = pack.modelled = true;
    pack.elevation.fill(0.0);
    pack.azimuth.fill(0.0);
    pack.referenceRange.fill(0.0);
    const Vector3 blh = xyzblh(pack.xyz, 1.0, 0.0, 0.0, 0.0, 0.0, 0.0);
    const Matrix3 fromLocal = rot_enu2xyz(blh[0], blh[1]);
    for (std::size_t i = 0; i < in.session.satelliteNames.size(); ++i)
        if (pack.obs.has(i))
            modelSatellite(in, pack, i, fromLocal);
}

int VrsBaseStation_CountSat(const EphemerisStore& store, int system) {
    const auto kepler = std::span(store.kepler).first(static_cast<std::size_t>(store.keplerCount));
    const auto glonass =
        std::span(store.glonass).first(static_cast<std::size_t>(store.glonassCount));
    const auto count = system == kCountGlonass
                           ? std::count_if(glonass.begin(), glonass.end(),
                                           [](const GLSEPH& r) { return r.mjd != 0; })
                           : std::count_if(kepler.begin(), kepler.end(),
                                           [](const GPSEPH& r) { return r.tocMjd != 0; });
    return static_cast<int>(count);
}
