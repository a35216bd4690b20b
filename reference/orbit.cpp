#include "orbit.h"

#include "msm.h"

#include <complex>
#include <numbers>

namespace ref {

namespace {

struct Earth {
    double gm, rate; // m^3/s^2, rad/s
};

// QZSS deliberately takes the GM of GPS and the rotation rate of BeiDou.
Earth earthOf(char system) {
    const bool gps = system == 'G' || system == 'J';
    const bool beidou = system == 'C' || system == 'J';
    return {gps ? 3.986005e14 : 3.986004418e14, beidou ? 7.292115e-5 : kEarthRate};
}

// GPS second of week minus a reference of the system's week, to the nearest week.
double since(const Kepler& k, GpsTime t, double reference) {
    return std::remainder(t.sow - (k.system == 'C' ? kBdtLagS : 0) - reference, kWeekS);
}

double since(const Glonass& g, GpsTime t) {
    return std::remainder(t.sow - kLeapS + kMoscowS - g.tb * 900.0, 86400);
}

// Newton-Raphson on Kepler's equation.
double eccentricAnomaly(const Kepler& k, GpsTime t) {
    const double a = k.sqrtA * k.sqrtA;
    const double n = std::sqrt(earthOf(k.system).gm / a) / a + k.deltaN;
    const double m = std::remainder(k.m0 + n * since(k, t, k.toe), 2 * std::numbers::pi);
    double anomaly = m;
    for (int i = 0; i < 20; ++i)
        anomaly -= (anomaly - k.e * std::sin(anomaly) - m) / (1 - k.e * std::cos(anomaly));
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

Vec3 position(const Kepler& k, GpsTime t) {
    const double tk = since(k, t, k.toe);
    const double rate = earthOf(k.system).rate;
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
    if (k.system == 'C' && k.id <= 5)
        r = turnAxes(0, -5 * std::numbers::pi / 180, r); // geostationary: BDS-SIS-ICD 5.2.4.12
    return turnAxes(2, rate * tk, r);
}

double clockOffset(const Kepler& k, GpsTime t) {
    const double dt = since(k, t, k.toc);
    return k.af0 + k.af1 * dt + k.af2 * dt * dt;
}

double relativityS(const Kepler& k, GpsTime t) {
    return -2 * std::sqrt(earthOf(k.system).gm) * k.sqrtA * k.e * std::sin(eccentricAnomaly(k, t)) /
           (kLightSpeed * kLightSpeed);
}

// Integrated in the axes that the Earth has at tb, held fixed, where Runge-Kutta-Nystroem of
// fourth order applies (the force has no velocity in it). The broadcast lunisolar acceleration is
// constant in the rotating axes. Steps of 5 s or less: the error stays below 1e-6 m over 2 h.
Vec3 position(const Glonass& g, GpsTime t) {
    const double dt = since(g, t);
    const auto force = [&g](double s, const Vec3& r) {
        return attraction(r) + turnAxes(2, -kGlonassRate * s, g.acc);
    };
    Vec3 r = g.pos;
    Vec3 v = g.vel + Vec3{-kGlonassRate * r[1], kGlonassRate * r[0], 0};
    const int steps = static_cast<int>(std::abs(dt) / 5) + 1;
    const double h = dt / steps;
    for (int i = 0; i < steps; ++i) {
        const Vec3 k1 = force(i * h, r);
        const Vec3 k2 = force((i + 0.5) * h, r + (h / 2) * v + (h * h / 8) * k1);
        const Vec3 k3 = force((i + 1) * h, r + h * v + (h * h / 2) * k2);
        r = r + h * v + (h * h / 6) * (k1 + 2 * k2);
        v = v + (h / 6) * (k1 + 4 * k2 + k3);
    }
    // PZ-90.02 to WGS 84, km
    return 1000 * (turnAxes(2, kGlonassRate * dt, r) + Vec3{8e-6, 1e-6, 1e-6});
}

double clockOffset(const Glonass& g, GpsTime t) {
    return -g.taun + g.gamn * since(g, t);
}

void Navigation::take(const Frame& f) {
    if (f.type == 1020) {
        const Glonass g = readGlonass(f.body);
        glonass[satName('R', g.slot)] = g;
    } else if (f.type == 1019 || f.type == 1042 || (f.type >= 1044 && f.type <= 1046)) {
        const Kepler k = readKepler(f.body);
        kepler[satName(k.system, k.id)] = k;
    }
}

SatFn Navigation::satellite(const std::string& sat) const {
    if (sat.at(0) == 'R')
        return [g = glonass.at(sat)](GpsTime t) { return position(g, t); };
    return [k = kepler.at(sat)](GpsTime t) { return position(k, t); };
}

} // namespace ref
