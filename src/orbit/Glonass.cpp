#include "orbit/Glonass.h"

#include "base/ComText.h"
#include "base/Print.h"
#include "gnss/ComCoord.h"
#include "gnss/ComTime.h"

#include <cmath>
#include <string>

namespace {

// PZ-90, km and s.
constexpr double kMu = 398600.4418;
constexpr double kAe = 6378.136;
constexpr double kC20 = -0.00108262575;
constexpr double kOmega = 7.292115e-05;

constexpr double kStepS = 60.0;

/// T + scale * (M * position), T in km.
struct Transformation {
    std::string_view type;
    double scale;
    std::array<double, 3> shiftKm;
    std::array<double, 9> rotation; // row-major
};
// clang-format off
/// PZ-90.02 and its successors, from this day on.
constexpr int kPz9002Mjd = 54362;
constexpr Transformation kPz9002{"", 1.0, {8e-06, 1e-06, 1e-06}, {1, 0, 0, 0, 1, 0, 0, 0, 1}};
/// PZ-90 as determined by several groups, in the order in which the type is tried.
constexpr std::array<Transformation, 4> kPz90{{
    {"MCC", 1.000000022, {-0.00047, -0.00051, -0.00156},
     {1, -1.728e-06, -1.7e-08, 1.728e-06, 1, 7.6e-08, 1.7e-08, -7.6e-08, 1}},
    {"RUS", 0.99999988, {-0.0011, -0.0003, -0.0009}, {1, -8.2e-07, 0, 8.2e-07, 1, 0, 0, 0, 1}},
    {"LMU", 1.0, {0, 0, 0}, {1, -1.6e-06, 0, 1.6e-06, 1, 0, 0, 0, 1}},
    {"MIT", 1.0, {0, 0.0025, 0}, {1, -1.9e-06, 0, 1.9e-06, 1, 0, 0, 0, 1}},
}};
// clang-format on

const Transformation& transformation(int mjd, double sod, std::string_view type) {
    if (timdif(mjd, kPz9002Mjd, sod, 0.0) >= 0.0)
        return kPz9002;
    for (const Transformation& t : kPz90)
        if (contains(type, t.type))
            return t;
    fatal("***ERROR(pz902wgs84): unknown transformation type %s!", std::string(type).c_str());
}

OrbitState moved(const OrbitState& s, const OrbitState& rate, double step) {
    OrbitState out{};
    for (std::size_t i = 0; i < out.size(); ++i)
        out[i] = s[i] + rate[i] * step;
    return out;
}

} // namespace

OrbitState BrdUtils_glsinit(const GLSEPH& r) {
    return {r.posKm[0], r.posKm[1], r.posKm[2], r.velKmps[0], r.velKmps[1], r.velKmps[2]};
}

OrbitState BrdUtils_glsfright(const OrbitState& s, const std::array<double, 3>& acc) {
    const double r2 = s[0] * s[0] + s[1] * s[1] + s[2] * s[2];
    const double r = std::sqrt(r2);
    const double a = -kMu / (r2 * r);
    const double b = 1.5 * kMu * kC20 * kAe * kAe / (r2 * r2 * r);
    const double q = s[2] * s[2] / r2;
    const double equatorial = a + b * (1.0 - 5.0 * q) + kOmega * kOmega;
    return {s[3],
            s[4],
            s[5],
            equatorial * s[0] + 2.0 * kOmega * s[4] + acc[0],
            equatorial * s[1] - 2.0 * kOmega * s[3] + acc[1],
            (a + b * (3.0 - 5.0 * q)) * s[2] + acc[2]};
}

OrbitState BrdUtils_glsrkf4(const OrbitState& s, const std::array<double, 3>& acc, double step) {
    const OrbitState k1 = BrdUtils_glsfright(s, acc);
    const OrbitState k2 = BrdUtils_glsfright(moved(s, k1, step / 2.0), acc);
    const OrbitState k3 = BrdUtils_glsfright(moved(s, k2, step / 2.0), acc);
    const OrbitState k4 = BrdUtils_glsfright(moved(s, k3, step), acc);
    OrbitState out{};
    for (std::size_t i = 0; i < out.size(); ++i)
        out[i] = s[i] + step / 6.0 * (k1[i] + 2.0 * k2[i] + 2.0 * k3[i] + k4[i]);
    return out;
}

void BrdUtils_pz902wgs84(int mjd, double sod, OrbitState& state, std::string_view type) {
    const Transformation& t = transformation(mjd, sod, type);
    const std::array<double, 3> turned =
        matmpy<3, 3, 1>(t.rotation, {state[0], state[1], state[2]});
    for (std::size_t i = 0; i < turned.size(); ++i)
        state[i] = t.shiftKm[i] + t.scale * turned[i];
}

OrbitState glonassState(const GLSEPH& r, MjdTime at) {
    const double dt = timdif(at.mjd, r.mjd, at.sod, r.sod);
    const double rest = dt - std::trunc(dt / kStepS) * kStepS;
    const double step = dt < 0.0 ? -kStepS : kStepS;
    OrbitState s = BrdUtils_glsinit(r);
    if (rest != 0.0)
        s = BrdUtils_glsrkf4(s, r.accKmps2, rest);
    for (double t = rest; std::fabs(dt - t) >= kStepS; t += step)
        s = BrdUtils_glsrkf4(s, r.accKmps2, step);
    BrdUtils_pz902wgs84(at.mjd, at.sod, s, "MCC");
    for (double& value : s)
        value *= 1000.0;
    return s;
}

int BrdUtils_m_reph2xyz(const GLSEPH& r, std::string_view mode, int mjd, OrbitState& position,
                        double& clock, double sod) {
    clock = r.clockBias + r.gamma * timdif(mjd, r.mjd, sod, r.sod);
    if (mode == "ynn")
        return -1;
    position = glonassState(r, {mjd, sod});
    return 1;
}
