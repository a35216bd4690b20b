#include "vrs/Sight.h"

#include "gnss/ComTime.h"

#include <algorithm>
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

constexpr double kForecastS = 60.0; // ahead, at most
constexpr int kMostLooks = 2;       // at forecasts
constexpr double kMostRate = 1e-4;  // of a light time; no satellite's is a tenth of it
// A change of the light time on its way that surely keeps the iteration going.
constexpr double kMovingS = 1.01 * kConvergedS;
constexpr double kUnsureS = 1e-14; // of what the iteration looks at last

/// Ranges and light times from a look at the satellite; false where one has no sense.
bool measure(std::span<SightPoint> points, const OrbitState& state) {
    bool near = true; // not so for not-a-number either
    for (SightPoint& p : points) {
        p.rangeM = rangeTo(state, p.xyz, p.rotation);
        const double lightTimeS = p.rangeM / kSpeedOfLight;
        p.deltaS = p.lightTimeS - lightTimeS;
        p.lightTimeS = lightTimeS;
        near = near && lightTimeS < kMaxLightTimeS;
    }
    return near;
}

/// Whether the light time changes so much on its way that the iteration looks three times.
bool looksThrice(double lightTimeS, double rate) {
    return std::fabs(rate) < kMostRate && std::fabs(rate * lightTimeS) > kMovingS;
}

/// The light time (s) at which the iteration looks last, to kUnsureS, from what was seen near it; 0
/// where that is not sure. It looks at the time of reception, at the light time that it finds
/// there, and once more.
double lastLook(double lookedS, double foundS, double rate) {
    return looksThrice(foundS, rate) ? foundS + rate * (lookedS - foundS - rate * lookedS) : 0.0;
}

} // namespace

double lightTimeRate(const OrbitState& s, const SightPoint& p) {
    const Vector3 sight{s[0] - p.xyz[0], s[1] - p.xyz[1], s[2] - p.xyz[2]};
    return ((sight[0] * s[3] + sight[1] * s[4] + sight[2] * s[5]) /
                std::sqrt(sight[0] * sight[0] + sight[1] * sight[1] + sight[2] * sight[2]) +
            kRotationPerMetre * (s[3] * p.rotation[1] - s[4] * p.rotation[0])) /
           kSpeedOfLight;
}

void LightTimes::add(MjdTime t, double lightTimeS, double rate) {
    const double sinceS = timdif(t.mjd, seen_[0].t.mjd, t.sod, seen_[0].t.sod);
    count_ = count_ > 0 && sinceS > 0.0 && sinceS <= kForecastS ? 2 : 1;
    seen_[1] = seen_[0];
    seen_[0] = {t, lightTimeS, rate / (1.0 + rate)};
}

double LightTimes::at(MjdTime t) const {
    const auto& [now, before] = seen_;
    const double sinceS = timdif(t.mjd, now.t.mjd, t.sod, now.t.sod);
    if (count_ == 0 || !(sinceS > 0.0 && sinceS <= kForecastS) ||
        !looksThrice(now.lightTimeS, now.rate)) // else the iteration is as quick
        return 0.0;
    double forecastS = now.lightTimeS + now.rate * sinceS;
    if (count_ == 2) { // Hermite's polynomial by divided differences
        const double stepS = timdif(now.t.mjd, before.t.mjd, now.t.sod, before.t.sod);
        const double slope = (now.lightTimeS - before.lightTimeS) / stepS;
        const double bend = (now.rate - slope) / stepS;
        const double bendBefore = (slope - before.rate) / stepS;
        forecastS += sinceS * sinceS * (bend + (sinceS + stepS) * (bend - bendBefore) / stepS);
    }
    return forecastS > 0.0 && forecastS < kMaxLightTimeS ? forecastS : 0.0;
}

LightTime solveLightTime(const OrbitSource& in, std::size_t satellite, VrsObsPack& pack,
                         std::span<SightPoint> points, OrbitState& state, LightTimes& history) {
    const MjdTime received{pack.mjd, pack.sod};
    const auto transmitted = [&](double lightTimeS) {
        return timinc(received.mjd, received.sod, -lightTimeS);
    };
    const auto instant = [&](double lightTimeS) { // as an orbit takes it
        const MjdTime t = transmitted(lightTimeS);
        return mjd2wksow(t.mjd, t.sod);
    };
    const auto look = [&](double lightTimeS) {
        const MjdTime t = transmitted(lightTimeS);
        return VrsBaseStation_v_readOrbit(in, satellite, t.mjd, state,
                                          pack.ephemerisIndex[satellite], t.sod) != 0;
    };

    double lookS = history.at(received);
    for (int looks = 0; looks < kMostLooks && lookS > 0.0 && lookS < kMaxLightTimeS; ++looks) {
        if (!look(lookS))
            return LightTime::noOrbit;
        if (!measure(points, state))
            break;
        const double rate = lightTimeRate(state, points[0]);
        const double lastS = lastLook(lookS, points[0].lightTimeS, rate);
        const WeekTime looked = instant(lookS);
        if (instant(lastS - kUnsureS) == looked && instant(lastS + kUnsureS) == looked) {
            history.add(received, lastS, rate);
            return LightTime::found;
        }
        lookS = lastS;
    }

    for (SightPoint& p : points)
        p.lightTimeS = 0.0;
    int passes = 0;
    bool moving = true;
    while (moving && passes < kMostPasses) {
        lookS = points[0].lightTimeS;
        if (!look(lookS))
            return LightTime::noOrbit;
        if (!measure(points, state))
            return LightTime::notConverged;
        moving = std::any_of(points.begin(), points.end(),
                             [](const SightPoint& p) { return std::fabs(p.deltaS) > kConvergedS; });
        ++passes;
    }
    if (passes >= kSuspectPasses)
        return LightTime::notConverged;
    history.add(received, lookS, lightTimeRate(state, points[0]));
    return LightTime::found;
}

Vector3 localSight(const OrbitState& satellite, const Vector3& point, const Matrix3& fromLocal) {
    const Vector3 sight{satellite[0] - point[0], satellite[1] - point[1], satellite[2] - point[2]};
    return matmpy<3, 3, 1>(transpose<3, 3>(fromLocal), sight);
}

double elevationOf(const Vector3& local) {
    const double horizontal = std::sqrt(local[0] * local[0] + local[1] * local[1]);
    return std::atan(local[2] / horizontal);
}
