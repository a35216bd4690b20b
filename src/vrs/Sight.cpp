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

constexpr double kAlmostS = 1e-7;
constexpr double kMostRate = 1e-4; // of a light time; no satellite's is a tenth of it

/// The ranges from one look at the satellite at an almost right transmit time: it goes on in a
/// straight line. In kAlmostS gravity bends that by less than 1e-14 m, and the light time to the
/// moved satellite is right to 1e-12 s, as the last pass of an iteration leaves it.
bool settle(double lightTimeS, std::span<SightPoint> points, OrbitState& state) {
    const double early =
        lightTimeS - rangeTo(state, points[0].xyz, points[0].rotation) / kSpeedOfLight;
    if (!(std::fabs(early) < kAlmostS &&
          std::fabs(lightTimeRate(state, points[0].xyz)) < kMostRate))
        return false;
    for (std::size_t i = 0; i < 3; ++i)
        state[i] += early * state[3 + i];
    for (SightPoint& p : points) {
        p.rangeM = rangeTo(state, p.xyz, p.rotation);
        p.lightTimeS = p.rangeM / kSpeedOfLight;
    }
    return true;
}

} // namespace

double lightTimeRate(const OrbitState& s, const Vector3& point) {
    const Vector3 sight{s[0] - point[0], s[1] - point[1], s[2] - point[2]};
    return (sight[0] * s[3] + sight[1] * s[4] + sight[2] * s[5]) /
           (std::sqrt(sight[0] * sight[0] + sight[1] * sight[1] + sight[2] * sight[2]) *
            kSpeedOfLight);
}

LightTime solveLightTime(const OrbitSource& in, std::size_t satellite, VrsObsPack& pack,
                         std::span<SightPoint> points, OrbitState& state, double forecastS) {
    const auto look = [&](double lightTimeS) {
        const MjdTime t = timinc(pack.mjd, pack.sod, -lightTimeS);
        return VrsBaseStation_v_readOrbit(in, satellite, t.mjd, state,
                                          pack.ephemerisIndex[satellite], t.sod) != 0;
    };
    if (forecastS > 0.0) {
        if (!look(forecastS))
            return LightTime::noOrbit;
        if (settle(forecastS, points, state))
            return LightTime::found;
    }
    int passes = 0;
    bool moving = true;
    while (moving && passes < kMostPasses) {
        if (!look(points[0].lightTimeS))
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
