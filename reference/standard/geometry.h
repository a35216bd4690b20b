/// Geometry on WGS 84: Earth-centred Earth-fixed metres, radians unless a name says degrees.
#pragma once

#include <cmath>
#include <cstddef>
#include <functional>
#include <numbers>

namespace ref {

struct Vec3 {
    double v[3];
    double& operator[](std::size_t i) { return v[i]; }
    double operator[](std::size_t i) const { return v[i]; }
    Vec3 operator+(const Vec3& b) const { return {v[0] + b[0], v[1] + b[1], v[2] + b[2]}; }
    Vec3 operator-(const Vec3& b) const { return {v[0] - b[0], v[1] - b[1], v[2] - b[2]}; }
    friend Vec3 operator*(double k, const Vec3& a) { return {k * a[0], k * a[1], k * a[2]}; }
    friend double dot(const Vec3& a, const Vec3& b) {
        return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
    }
    friend double norm(const Vec3& a) { return std::sqrt(dot(a, a)); }
};

/// Coordinates of a fixed vector after the axes turned by the angle (rad) about the axis 0..2.
Vec3 turnAxes(int axis, double angle, const Vec3& a);

constexpr double kLightSpeed = 299792458.0;    // m/s
constexpr double kMsM = kLightSpeed / 1000;    // m per ms of range
constexpr double kEarthRate = 7.2921151467e-5; // rad/s
constexpr double kDegree = std::numbers::pi / 180;
constexpr double kWeekS = 604800.0;

struct GpsTime {
    int week = 0;
    double sow = 0;                          ///< s of week
    GpsTime operator+(double seconds) const; ///< keeps sow in 0..604800
    double operator-(GpsTime b) const { return (week - b.week) * kWeekS + (sow - b.sow); }
};

struct Geodetic {
    double lat = 0, lon = 0; ///< rad, longitude in -pi..pi
    double heightM = 0;
};

Geodetic toGeodetic(const Vec3& xyz);
Vec3 toXyz(const Geodetic& g);

struct Direction {
    double elevationDeg = 0, azimuthDeg = 0; ///< azimuth in 0..360
};
Direction direction(const Vec3& from, const Vec3& to);

/// Satellite position at a GPS time of transmission, in the Earth-fixed frame of that instant.
using SatFn = std::function<Vec3(GpsTime)>;

struct Signal {
    double rangeM = 0; ///< of the signal received at the epoch
    double delayS = 0; ///< its light time
    Vec3 sat{};        ///< the satellite at transmission, frame of transmission
};
Signal receive(const SatFn& satellite, const Vec3& at, GpsTime epoch);

struct RangeChange {
    double deltaM = 0; ///< range at the virtual point minus range at the reference
    Direction direction;
    double rangeRefM = 0;
};

/// Change of range between two points that see the satellite at one transmit time, the one that
/// belongs to the virtual point. The satellite vector is turned into the frame of reception. The
/// first-order cross term (omega/c)(Sx Vy - Sy Vx) in its place changes a range by up to 0.15 mm
/// (0.3 mm for geosynchronous orbits), the same at both points: deltaM changes by less than 1e-7 m.
/// The elevation is that of the satellite in the frame of transmission.
RangeChange rangeChange(const SatFn& satellite, const Vec3& reference, const Vec3& virtualAt,
                        GpsTime epoch);

} // namespace ref
