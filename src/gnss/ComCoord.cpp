#include "gnss/ComCoord.h"

#include <algorithm>
#include <cmath>

namespace {

struct Ellipsoid {
    double a;  // semi-major axis, m
    double e2; // first eccentricity squared
};

Ellipsoid ellipsoid(double a, double b) {
    if (a == 0.0 || b == 0.0) {
        a = 6378137.0;
        b = 298.257223563;
    }
    if (b <= 6e6)
        b = a - a / b;
    return {a, (a * a - b * b) / (a * a)};
}

// Points near the Earth's centre need not converge; a position anywhere near the surface takes
// fewer than ten passes.
constexpr int kMostPasses = 100;

double longitude(double x, double y) {
    double lon = std::atan(y / x);
    if (lon < 0.0) {
        if (y > 0.0)
            lon += kPi;
        else if (y < 0.0)
            lon += 2.0 * kPi;
    } else if (y < 0.0) {
        lon += kPi;
    }
    return lon;
}

} // namespace

bool usable(const Vector3& xyz) {
    return std::all_of(xyz.begin(), xyz.end(),
                       [](double x) { return std::isfinite(x) && x != 0.0; });
}

Vector3 blhxyz(const Vector3& blh, double a, double b) {
    const Ellipsoid el = ellipsoid(a, b);
    const double sinB = std::sin(blh[0]);
    const double cosB = std::cos(blh[0]);
    const double n = el.a / std::sqrt(1.0 - el.e2 * sinB * sinB);
    return {(n + blh[2]) * cosB * std::cos(blh[1]), (n + blh[2]) * cosB * std::sin(blh[1]),
            ((1.0 - el.e2) * n + blh[2]) * sinB};
}

Vector3 xyzblh(const Vector3& xyz, double scale, double a, double b, double dx, double dy,
               double dz) {
    const Ellipsoid el = ellipsoid(a, b);
    const double x = xyz[0] * scale + dx;
    const double y = xyz[1] * scale + dy;
    const double z = xyz[2] * scale + dz;
    const double p = std::sqrt(x * x + y * y);
    double h = std::sqrt(x * x + y * y + z * z) - el.a;
    double lat = std::atan(z / p / (1.0 - el.e2 * el.a / (h + el.a)));
    double n = 1.0;
    double dLat = 1.0;
    double dH = 1.0;
    for (int pass = 0; pass < kMostPasses && (n * dLat > 0.0001 || dH > 0.0001); ++pass) {
        const double lastLat = lat;
        const double lastH = h;
        const double sinB = std::sin(lat);
        n = el.a / std::sqrt(1.0 - el.e2 * sinB * sinB);
        h = p / std::cos(lat) - n;
        lat = std::atan(z / p / (1.0 - el.e2 * n / (h + n)));
        dLat = std::fabs(lastLat - lat);
        dH = std::fabs(lastH - h);
    }
    return {lat, longitude(x, y), h};
}

Matrix3 rot_enu2xyz(double lat, double lon) {
    const double x1 = lat - kPi / 2.0;
    const double x2 = -kPi / 2.0 - lon;
    const double c1 = std::cos(x1);
    const double s1 = std::sin(x1);
    const double c2 = std::cos(x2);
    const double s2 = std::sin(x2);
    return {c2, s2 * c1, s2 * s1, -s2, c2 * c1, c2 * s1, 0.0, -s1, c1};
}
