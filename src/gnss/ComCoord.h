#pragma once

#include <array>
#include <cmath>
#include <cstddef>

/// Com, coordinates: Earth-centred X, Y, Z (m) and geodetic latitude, longitude (rad), height (m).
/// Ellipsoid (a, b): semi-major axis and semi-minor axis, or the inverse flattening where b is
/// not above 6e6; 0 for either takes WGS 84.

using Vector3 = std::array<double, 3>;
/// Row-major.
using Matrix3 = std::array<double, 9>;

inline constexpr double kPi = 3.141592653589793;
inline constexpr double kSpeedOfLight = 299792458.0; // m/s

/// Whether a place can be computed with: no coordinate is 0 or no number.
bool usable(const Vector3& xyz);
Vector3 blhxyz(const Vector3& blh, double a, double b);
/// Scales by `scale` and shifts by (dx, dy, dz) first.
Vector3 xyzblh(const Vector3& xyz, double scale, double a, double b, double dx, double dy,
               double dz);
/// Turns local east-north-up axes into Earth-centred ones; its transpose turns back.
Matrix3 rot_enu2xyz(double lat, double lon);
/// C (n x l) = A (n x m) * B (m x l), row-major.
template <std::size_t n, std::size_t m, std::size_t l>
constexpr std::array<double, n * l> matmpy(const std::array<double, n * m>& a,
                                           const std::array<double, m * l>& b) {
    std::array<double, n * l> c{};
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < l; ++j)
            for (std::size_t k = 0; k < m; ++k)
                c[i * l + j] += a[i * m + k] * b[k * l + j];
    return c;
}

/// T (m x n) = transpose of A (n x m), row-major.
template <std::size_t n, std::size_t m>
constexpr std::array<double, n * m> transpose(const std::array<double, n * m>& a) {
    std::array<double, n * m> t{};
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < m; ++j)
            t[j * n + i] = a[i * m + j];
    return t;
}

template <std::size_t n>
constexpr double dot(const std::array<double, n>& a, const std::array<double, n>& b) {
    double sum = 0.0;
    for (std::size_t i = 0; i < n; ++i)
        sum += a[i] * b[i];
    return sum;
}

/// Euclidean distance of two n-vectors.
template <std::size_t n>
double distance(const std::array<double, n>& a, const std::array<double, n>& b) {
    std::array<double, n> d{};
    for (std::size_t i = 0; i < n; ++i)
        d[i] = a[i] - b[i];
    return std::sqrt(dot(d, d));
}
