#include "orbit.h"

#include "kinds.h"
#include "msm.h"

#include <complex>
#include <map>
#include <memory>
#include <numbers>

namespace ref {

namespace {

// m^3/s^2
double gmOf(char system) {
    return system == 'G' || system == 'J' ? 3.986005e14 : 3.986004418e14;
}

// GPS second of week minus a reference of the system's week, to the nearest week.
double since(const Kepler& k, GpsTime t, double reference) {
    return std::remainder(t.sow - (k.system == 'C' ? kBdtLagS : 0) - reference, kWeekS);
}

double since(const Glonass& g, GpsTime t) {
    return std::remainder(t.sow - leapS(t) + kMoscowS - g.tb * 900.0, 86400);
}

// Newton-Raphson on Kepler's equation.
double eccentricAnomaly(const Kepler& k, GpsTime t) {
    const double a = k.sqrtA * k.sqrtA;
    const double n = std::sqrt(gmOf(k.system) / a) / a + k.deltaN;
    const double m = std::remainder(k.m0 + n * since(k, t, k.toe), 2 * std::numbers::pi);
    double anomaly = m;
    double step = 1;
    for (int i = 0; i < 20 && std::abs(step) > 1e-16; ++i) {
        step = (anomaly - k.e * std::sin(anomaly) - m) / (1 - k.e * std::cos(anomaly));
        anomaly -= step;
    }
    return anomaly;
}

constexpr double kGlonassRate = 7.292115e-5; // rad/s

// km/s^2 in a frame that does not rotate: central mass and flattening, both symmetric about z.
Vec3 attraction(const Vec3& r) {
    constexpr double mu = 398600.4418, ae = 6378.136, c20 = -0.00108262575;
    const double d = norm(r);
    const double flat = 1.5 * c20 * (ae / d) * (ae / d);
    const double z2 = 5 * (r[2] / d) * (r[2] / d);
    const double xy = flat * (1 - z2) - 1;
    return mu / (d * d * d) * Vec3{r[0] * xy, r[1] * xy, r[2] * (flat * (3 - z2) - 1)};
}

} // namespace

double earthRate(char system) {
    return system == 'C' ? 7.292115e-5 : kEarthRate;
}

Vec3 position(const Kepler& k, GpsTime t) {
    return position(k, t, earthRate(k.system));
}

Vec3 position(const Kepler& k, GpsTime t, double rate) {
    const double tk = since(k, t, k.toe);
    const double anomaly = eccentricAnomaly(k, t);
    // complex plane of the orbit: perifocal direction, then counted from the node
    std::complex<double> plane(std::cos(anomaly) - k.e,
                               std::sqrt(1 - k.e * k.e) * std::sin(anomaly));
    const double a = k.sqrtA * k.sqrtA;
    const double radius = a * std::abs(plane);
    plane *= std::polar(1.0, k.perigee) / std::abs(plane);
    const std::complex<double> twice = plane * plane;
    const auto harmonic = [&twice](double c, double s) {
        return c * twice.real() + s * twice.imag();
    };
    plane *= std::polar(radius + harmonic(k.crc, k.crs), harmonic(k.cuc, k.cus));
    const double inclination = k.i0 + k.idot * tk + harmonic(k.cic, k.cis);
    // axes of the Earth at toe, then those of the Earth at t
    Vec3 r = turnAxes(0, -inclination, {plane.real(), plane.imag(), 0});
    r = turnAxes(2, -(k.node + k.nodeDot * tk - rate * k.toe), r);
    if (k.system == 'C' && isGeostationary(k.id)) // BDS-SIS-ICD-B1I 3.0, 5.2.4.12
        r = turnAxes(0, -5 * std::numbers::pi / 180, r);
    return turnAxes(2, rate * tk, r);
}

double clockOffset(const Kepler& k, GpsTime t) {
    const double dt = since(k, t, k.toc);
    return k.af0 + k.af1 * dt + k.af2 * dt * dt;
}

double relativityS(const Kepler& k, GpsTime t) {
    return -2 * std::sqrt(gmOf(k.system)) * k.sqrtA * k.e * std::sin(eccentricAnomaly(k, t)) /
           (kLightSpeed * kLightSpeed);
}

namespace {

// Position (km) and velocity (km/s) in the axes that the Earth has at tb, held fixed, s after tb.
struct Motion {
    double s = 0;
    Vec3 r{}, v{};
};

Motion atTb(const Glonass& g) {
    return {0, g.pos, g.vel + Vec3{-kGlonassRate * g.pos[1], kGlonassRate * g.pos[0], 0}};
}

// Runge-Kutta-Nystroem of fourth order applies in fixed axes (the force has no velocity in it). The
// broadcast lunisolar acceleration is constant in the rotating axes. Steps of 5 s or less: the
// error stays below 1e-6 m over 2 h.
Motion integrate(const Glonass& g, Motion m, double until) {
    const auto force = [&g](double s, const Vec3& r) {
        return attraction(r) + turnAxes(2, -kGlonassRate * s, g.acc);
    };
    const int steps = static_cast<int>(std::abs(until - m.s) / 5) + 1;
    const double h = (until - m.s) / steps;
    for (int i = 0; i < steps; ++i, m.s += h) {
        const Vec3 k1 = force(m.s, m.r);
        const Vec3 k2 = force(m.s + 0.5 * h, m.r + (h / 2) * m.v + (h * h / 8) * k1);
        const Vec3 k3 = force(m.s + h, m.r + h * m.v + (h * h / 2) * k2);
        m.r = m.r + h * m.v + (h * h / 6) * (k1 + 2 * k2);
        m.v = m.v + (h / 6) * (k1 + 4 * k2 + k3);
    }
    m.s = until;
    return m;
}

// PZ-90.02 to WGS 84, km; m, in the axes of the Earth at that instant.
Vec3 earthFixed(const Motion& m) {
    return 1000 * (turnAxes(2, kGlonassRate * m.s, m.r) + Vec3{8e-6, 1e-6, 1e-6});
}

} // namespace

Vec3 position(const Glonass& g, GpsTime t) {
    return earthFixed(integrate(g, atTb(g), since(g, t)));
}

SatFn trajectory(const Glonass& g) {
    constexpr double spacingS = 30;
    const auto held = std::make_shared<std::map<int, Motion>>();
    held->emplace(0, atTb(g));
    return [g, held](GpsTime t) {
        const double s = since(g, t);
        const int target = static_cast<int>(s / spacingS);
        const int way = target < 0 ? -1 : 1;
        for (int k = way; k * way <= target * way; k += way)
            if (!held->contains(k))
                held->emplace(k, integrate(g, held->at(k - way), k * spacingS));
        return earthFixed(integrate(g, held->at(target), s));
    };
}

double clockOffset(const Glonass& g, GpsTime t) {
    return -g.taun + g.gamn * since(g, t);
}

void Navigation::take(const Frame& f) {
    if (f.type == 1020) {
        const Glonass g = readGlonass(f.body);
        glonass[satName('R', g.slot)] = g;
    } else if (isEphemeris(f.type)) {
        const Kepler k = readKepler(f.body);
        kepler[satName(k.system, k.id)] = k;
    }
}

SatFn Navigation::satellite(const std::string& sat) const {
    if (sat.at(0) == 'R')
        return trajectory(glonass.at(sat));
    const double rate = sat[0] == 'J' ? qzssEarthRate : earthRate(sat[0]);
    return [k = kepler.at(sat), rate](GpsTime t) { return position(k, t, rate); };
}

} // namespace ref
