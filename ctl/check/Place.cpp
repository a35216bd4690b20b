#include "ctl/check/Place.h"

#include "base/Findings.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

namespace ctl::check {

namespace {

// The shore of the Dead Sea lies 415 m below the ellipsoid, the highest summit 8820 m above it.
constexpr double kLowestM = -500.0;
constexpr double kHighestM = 9000.0;
// Between them nearly all stations stand; the sea lies up to 106 m below the ellipsoid.
constexpr double kUsuallyLowestM = -120.0;
constexpr double kUsuallyHighestM = 3000.0;
constexpr double kSameM = 100.0;
constexpr double kDegree = kPi / 180.0;

struct Order {
    std::array<std::size_t, 3> from;
    const char* words;
};
constexpr std::array<Order, 6> kOrders{{{{0, 1, 2}, ""},
                                        {{1, 0, 2}, "X and Y exchanged"},
                                        {{2, 1, 0}, "X and Z exchanged"},
                                        {{0, 2, 1}, "Y and Z exchanged"},
                                        {{1, 2, 0}, "X, Y and Z taken in the order Y Z X"},
                                        {{2, 0, 1}, "X, Y and Z taken in the order Z X Y"}}};

Vector3 ordered(const Vector3& xyz, const Order& order) {
    return {xyz[order.from[0]], xyz[order.from[1]], xyz[order.from[2]]};
}

/// "the sign of Y", "the signs of X and Z"; bit i of the mask stands for coordinate i.
std::string signsText(unsigned mask) {
    std::string names;
    int count = 0;
    for (std::size_t i = 0; i < 3; ++i)
        if (mask >> i & 1U) {
            names += (names.empty() ? "" : " and ") + std::string(1, "XYZ"[i]);
            ++count;
        }
    return (count > 1 ? "the signs of " : "the sign of ") + names + " turned";
}

Vector3 scaled(const Vector3& xyz, double by) {
    return {xyz[0] * by, xyz[1] * by, xyz[2] * by};
}

} // namespace

Place placeOf(const Vector3& xyz) {
    const Vector3 blh = xyzblh(xyz, 1.0, 0.0, 0.0, 0.0, 0.0, 0.0);
    return {blh[0] / kDegree, std::remainder(blh[1] / kDegree, 360.0), blh[2]};
}

bool onSurface(const Place& place) {
    return place.heightM >= kLowestM && place.heightM <= kHighestM; // false for no number
}

bool usuallyThere(const Place& place) {
    return place.heightM >= kUsuallyLowestM && place.heightM <= kUsuallyHighestM;
}

std::string shortText(const Place& p) {
    return text("%.1f %c %.1f %c", std::fabs(p.latitudeDeg), p.latitudeDeg < 0.0 ? 'S' : 'N',
                std::fabs(p.longitudeDeg), p.longitudeDeg < 0.0 ? 'W' : 'E');
}

std::string longText(const Place& p) {
    return text("%.5f %c, %.5f %c, height %.1f m", std::fabs(p.latitudeDeg),
                p.latitudeDeg < 0.0 ? 'S' : 'N', std::fabs(p.longitudeDeg),
                p.longitudeDeg < 0.0 ? 'W' : 'E', p.heightM);
}

std::string mendedToSurface(const Vector3& xyz) {
    if (const Place p = placeOf(scaled(xyz, 1000.0)); onSurface(p))
        return "are they kilometres? As metres they land at " + shortText(p);
    if (std::fabs(xyz[0]) <= 90.0 && std::fabs(xyz[1]) <= 360.0 && onSurface({0, 0, xyz[2]})) {
        const Vector3 meant = blhxyz({xyz[0] * kDegree, xyz[1] * kDegree, xyz[2]}, 0.0, 0.0);
        return text("are they latitude, longitude and height? Then write %.4f %.4f %.4f", meant[0],
                    meant[1], meant[2]);
    }
    // Exchanging X and Y changes no height.
    for (const std::size_t i : {std::size_t{2}, std::size_t{3}})
        if (const Place p = placeOf(ordered(xyz, kOrders[i])); usuallyThere(p))
            return text("with %s it lands at %s", kOrders[i].words, shortText(p).c_str());
    return {};
}

std::string mendedTowards(const Vector3& xyz, const Vector3& meant) {
    for (const Order& order : kOrders)
        for (unsigned mask = 0; mask < 8; ++mask) {
            Vector3 tried = ordered(xyz, order);
            for (std::size_t i = 0; i < 3; ++i)
                tried[i] = mask >> i & 1U ? -tried[i] : tried[i];
            if ((mask == 0 && !*order.words) || !(distance(tried, meant) <= kSameM))
                continue;
            const std::string signs = mask ? signsText(mask) : "";
            return order.words + std::string(*order.words && mask ? ", and " : "") + signs;
        }
    return {};
}

} // namespace ctl::check
