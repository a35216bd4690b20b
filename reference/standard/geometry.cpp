#include "geometry.h"

#include <numbers>

namespace ref {

namespace {

constexpr double kMajorM = 6378137.0;
constexpr double kMinorM = kMajorM * (1 - 1 / 298.257223563);

// Range of a signal that left the satellite at s; light time and range settle together.
double turnedRange(const Vec3& s, const Vec3& at) {
    double range = norm(s - at);
    for (int i = 0; i < 4; ++i)
        range = norm(turnAxes(2, kEarthRate * range / kLightSpeed, s) - at);
    return range;
}

} // namespace

Vec3 turnAxes(int axis, double angle, const Vec3& a) {
    const auto i = static_cast<std::size_t>(axis);
    const std::size_t j = (i + 1) % 3;
    const std::size_t k = (i + 2) % 3;
    Vec3 out = a;
    out[j] = std::cos(angle) * a[j] + std::sin(angle) * a[k];
    out[k] = std::cos(angle) * a[k] - std::sin(angle) * a[j];
    return out;
}

GpsTime GpsTime::operator+(double seconds) const {
    const double weeks = std::floor((sow + seconds) / kWeekS);
    return {week + static_cast<int>(weeks), sow + seconds - weeks * kWeekS};
}

// Newton on the reduced latitude beta of the foot point: the line from the point to
// (a cos beta, b sin beta) is normal to the ellipse.
Geodetic toGeodetic(const Vec3& xyz) {
    const double p = std::hypot(xyz[0], xyz[1]);
    const double z = xyz[2];
    const double focus2 = kMajorM * kMajorM - kMinorM * kMinorM;
    double beta = std::atan2(kMajorM * z, kMinorM * p);
    for (int i = 0; i < 6; ++i) {
        const double s = std::sin(beta);
        const double c = std::cos(beta);
        beta -= (kMajorM * p * s - kMinorM * z * c - focus2 * s * c) /
                (kMajorM * p * c + kMinorM * z * s - focus2 * (c * c - s * s));
    }
    const double lat = std::atan2(kMajorM * std::sin(beta), kMinorM * std::cos(beta));
    const double height = (p - kMajorM * std::cos(beta)) * std::cos(lat) +
                          (z - kMinorM * std::sin(beta)) * std::sin(lat);
    return {lat, std::atan2(xyz[1], xyz[0]), height};
}

Vec3 toXyz(const Geodetic& g) {
    const double beta = std::atan2(kMinorM * std::sin(g.lat), kMajorM * std::cos(g.lat));
    const double p = kMajorM * std::cos(beta) + g.heightM * std::cos(g.lat);
    return {p * std::cos(g.lon), p * std::sin(g.lon),
            kMinorM * std::sin(beta) + g.heightM * std::sin(g.lat)};
}

Direction direction(const Vec3& from, const Vec3& to) {
    const Geodetic g = toGeodetic(from);
    const Vec3 e{-std::sin(g.lon), std::cos(g.lon), 0};
    const Vec3 u{std::cos(g.lat) * std::cos(g.lon), std::cos(g.lat) * std::sin(g.lon),
                 std::sin(g.lat)};
    const Vec3 n{u[1] * e[2] - u[2] * e[1], u[2] * e[0] - u[0] * e[2], u[0] * e[1] - u[1] * e[0]};
    const Vec3 d = to - from;
    const double azimuth = std::atan2(dot(d, e), dot(d, n)) / kDegree;
    return {std::asin(dot(d, u) / norm(d)) / kDegree, azimuth < 0 ? azimuth + 360 : azimuth};
}

Signal receive(const SatFn& satellite, const Vec3& at, GpsTime epoch) {
    Signal s;
    for (int i = 0; i < 5; ++i) {
        s.sat = satellite(epoch + -s.delayS);
        s.rangeM = turnedRange(s.sat, at);
        s.delayS = s.rangeM / kLightSpeed;
    }
    return s;
}

RangeChange rangeChange(const SatFn& satellite, const Vec3& reference, const Vec3& virtualAt,
                        GpsTime epoch) {
    const Signal s = receive(satellite, virtualAt, epoch);
    const double rangeRef = turnedRange(s.sat, reference);
    return {s.rangeM - rangeRef, direction(virtualAt, s.sat), rangeRef};
}

} // namespace ref
