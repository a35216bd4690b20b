#include "vrs/Sight.h"

#include "common/ComTime.h"
#include "vrs/BaseStation.h"

#include <cmath>

namespace {

/// Earth rotation rate (7.2921151467e-5 rad/s) over the speed of light, 1/m.
constexpr double kRotationPerMetre = 2.4323877909897254e-13;
constexpr double kConvergedS = 1e-9;
// No satellite is a second away; a longer light time comes from an orbit without sense.
constexpr double kMaxLightTimeS = 1.0;
constexpr int kMostPasses = 12;
constexpr int kSuspectPasses = 11; // that many are not trusted, even if the last one stood still

/// Geometric range in the frame of reception, with the Earth-rotation term, m.
double rangeTo(const OrbitState& s, const Vector3& point, const Vector3& rotationPoint) {
    const double dx = s[0] - point[0];
    const double dy = s[1] - point[1];
    const double dz = s[2] - point[2];
    return std::sqrt(dx * dx + dy * dy + dz * dz) +
           kRotationPerMetre * (s[0] * rotationPoint[1] - s[1] * rotationPoint[0]);
}

} // namespace

LightTime solveLightTime(std::size_t satellite, VrsObsPack& pack, std::span<SightPoint> points,
                         OrbitState& state) {
    int passes = 0;
    bool moving = true;
    while (moving && passes < kMostPasses) {
        const MjdTime t = timinc(pack.mjd, pack.sod, -points[0].lightTimeS);
        if (!VrsBaseStation_v_readOrbit(satellite, t.mjd, state, pack.ephemerisIndex[satellite],
                                        t.sod))
            return LightTime::noOrbit;
        moving = false;
        bool near = true; // not so for not-a-number either
        for (SightPoint& p : points) {
            p.rangeM = rangeTo(state, p.xyz, p.rotation);
            const double lightTimeS = p.rangeM / kSpeedOfLight;
            p.deltaS = p.lightTimeS - lightTimeS;
            p.lightTimeS = lightTimeS;
            moving = moving || std::fabs(p.deltaS) > kConvergedS;
            near = near && lightTimeS < kMaxLightTimeS;
        }
        if (!near)
            return LightTime::notConverged;
        ++passes;
    }
    return passes < kSuspectPasses ? LightTime::found : LightTime::notConverged;
}

Vector3 localSight(const OrbitState& satellite, const Vector3& point, const Matrix3& fromLocal) {
    const Vector3 sight{satellite[0] - point[0], satellite[1] - point[1], satellite[2] - point[2]};
    return matmpy<3, 3, 1>(transpose<3, 3>(fromLocal), sight);
}

double elevationOf(const Vector3& local) {
    const double horizontal = std::sqrt(local[0] * local[0] + local[1] * local[1]);
    return std::atan(local[2] / horizontal);
}
