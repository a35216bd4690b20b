#include "orbit/Kepler.h"

#include "base/ComText.h"
#include "base/Print.h"
#include "gnss/ComCoord.h"
#include "gnss/ComFreq.h"
#include "gnss/ComTime.h"

#include <algorithm>
#include <cmath>

namespace {

struct OrbitConstants {
    char system;
    double gm;    // m^3/s^2
    double omega; // Earth rotation rate, rad/s
};
constexpr std::array<OrbitConstants, 4> kConstants{{
    {'C', 398600441800000.0, 7.292115e-05},
    {'E', 398600441800000.0, 7.2921151467e-05},
    {'G', 398600500000000.0, 7.2921151467e-05},
    {'J', 398600500000000.0, 7.292115e-05}, // deliberate: GM of GPS, rotation rate of BeiDou
}};
constexpr OrbitConstants kOtherConstants{0, 398600441500000.0, 7.2921151467e-05};

const OrbitConstants& constantsOf(char system) {
    for (const OrbitConstants& k : kConstants)
        if (k.system == system)
            return k;
    return kOtherConstants;
}

/// Whether a record has its semi-major axis by difference, as BDS-SIS-ICD-B1C has it.
bool byDifference(const GPSEPH& record) {
    return record.cprn.starts_with('C') && record.type > 6.0;
}

/// The number in a name such as "C38"; 0 where there is none.
int prnOf(std::string_view cprn) {
    const auto digit = [&](std::size_t i) { return cprn[i] >= '0' && cprn[i] <= '9'; };
    return cprn.size() == 3 && digit(1) && digit(2) ? 10 * (cprn[1] - '0') + cprn[2] - '0' : 0;
}

/// Reference axis of a BDS satellite, m: inclined and geostationary ones, or medium orbits.
double referenceAxis(std::string_view cprn) {
    const int prn = prnOf(cprn);
    const bool high = (prn >= 38 && prn <= 40) || (prn >= 59 && prn <= 63);
    return high ? 42162200.0 : 27906100.0;
}

/// The group-delay term of BeiDou clocks, s: the broadcast clock is B3's, what is observed is the
/// combination of the first two configured frequencies.
double bdsGroupDelay(const Session& session, const GPSEPH& record) {
    const auto satellite = static_cast<std::size_t>(satno(kBds, prnOf(record.cprn)));
    if (session.satelliteIndex[satellite] < 0)
        print(Lasting{Cause::bdsNotConfigured, satellite},
              "*****ERRROR(RnxephUtils): isat == -1 ! eph->cprn = %s \n", record.cprn.c_str());
    const auto& names = session.frequencies[systemIndex('C')];
    if (names.size() < 2)
        return 0.0;
    const double f1 = carrier('C', names[0], 0).value_or(0.0);
    const double f2 = carrier('C', names[1], 0).value_or(0.0);
    if (f1 == f2)
        return 0.0;
    const bool b1b3 = contains(names[0], "L2") && contains(names[1], "L6");
    const double t = b1b3 ? record.tgd1 : record.tgd1 - record.tgd2;
    return f1 * f1 / (f1 * f1 - f2 * f2) * t;
}

/// Eccentric anomaly: twelve times E := M + e sin E, from E = M. A pass that changes nothing ends
/// it, since every further one would do the same. An orbit whose twelve passes surely get there
/// starts near the end of them, by one step of Newton's from M + e sin M / (1 - e cos M).
double eccentricAnomaly(double m, double e) {
    constexpr double surely = 0.03; // to the power of 12: below the last bit of an angle
    double anomaly = m;
    if (e < surely) {
        const double near = m + e * std::sin(m) / (1.0 - e * std::cos(m));
        const double sine = std::sin(near);
        anomaly = near - (near - e * sine - m) / (1.0 - e * std::cos(near));
    }
    for (int pass = 0; pass < 12; ++pass) {
        const double next = m + e * std::sin(anomaly);
        if (next == anomaly)
            break;
        anomaly = next;
    }
    return anomaly;
}

/// Angle in [0, 2 pi) from its sine and cosine.
double angleOf(double sine, double cosine) {
    const double a = std::fabs(std::asin(std::clamp(sine, -1.0, 1.0))); // rounding may pass 1
    if (cosine < 0.0)
        return sine <= 0.0 ? kPi + a : kPi - a;
    return sine < 0.0 ? 2.0 * kPi - a : a;
}

/// A point and its rate.
struct Motion {
    double value;
    double rate;
};

/// Position and velocity in the orbital plane, with the plane's inclination.
struct InPlane {
    Motion x, y, inclination;
};

/// Semi-major axis (m), mean anomaly (rad) and their rates.
struct MeanMotion {
    Motion axis, anomaly;
};

MeanMotion meanMotion(const GPSEPH& r, double gm, double tk) {
    if (!byDifference(r)) {
        const double a = r.sqrtA * r.sqrtA;
        const double n = std::sqrt(gm / (a * a * a)) + r.deln;
        return {{a, 0.0}, {r.M0 + n * tk, n}};
    }
    // Deliberate: the mean motion is that of the axis at the time, not of the axis at toe.
    const double a = referenceAxis(r.cprn) + r.deltaA + r.Adot * tk;
    const double n0 = std::sqrt(gm / (a * a * a));
    const double n = n0 + r.deln + 0.5 * r.ndot * tk;
    const double rate = n + tk * (0.5 * r.ndot - 1.5 * n0 / a * r.Adot);
    return {{a, r.Adot}, {r.M0 + n * tk, rate}};
}

InPlane inPlane(const GPSEPH& r, const MeanMotion& mean, double tk) {
    const double a = mean.axis.value;
    const double anomaly = eccentricAnomaly(mean.anomaly.value, r.e);
    const double sinE = std::sin(anomaly);
    const double cosE = std::cos(anomaly);
    const double shape = 1.0 - r.e * cosE;
    const double root = std::sqrt(1.0 - r.e * r.e);
    const double phi = angleOf(root * sinE / shape, (cosE - r.e) / shape) + r.omega;

    const double sin2 = std::sin(2.0 * phi);
    const double cos2 = std::cos(2.0 * phi);
    const double u = phi + r.cus * sin2 + r.cuc * cos2;
    const double radius = a * shape + r.crs * sin2 + r.crc * cos2;
    const double inclination = r.i0 + r.idot * tk + r.cis * sin2 + r.cic * cos2;

    const double rateE = mean.anomaly.rate / shape;
    const double ratePhi = root * rateE / shape;
    const double rateU = ratePhi * (1.0 + 2.0 * (r.cus * cos2 - r.cuc * sin2));
    const double rateRadius = mean.axis.rate * shape + a * r.e * sinE * rateE +
                              2.0 * ratePhi * (r.crs * cos2 - r.crc * sin2);
    const double rateInclination = r.idot + 2.0 * ratePhi * (r.cis * cos2 - r.cic * sin2);

    const double sinU = std::sin(u);
    const double cosU = std::cos(u);
    const double x = radius * cosU;
    const double y = radius * sinU;
    return {{x, rateRadius * cosU - y * rateU},
            {y, rateRadius * sinU + x * rateU},
            {inclination, rateInclination}};
}

/// Turns the orbital plane by its inclination and the longitude of its node.
OrbitState turned(const InPlane& p, Motion node) {
    const double sinI = std::sin(p.inclination.value);
    const double cosI = std::cos(p.inclination.value);
    const double sinO = std::sin(node.value);
    const double cosO = std::cos(node.value);
    const double across = p.y.value * cosI; // the part of y in the equator
    const double acrossRate = p.y.rate * cosI - p.y.value * sinI * p.inclination.rate;
    OrbitState s{};
    s[0] = p.x.value * cosO - across * sinO;
    s[1] = p.x.value * sinO + across * cosO;
    s[2] = p.y.value * sinI;
    s[3] = p.x.rate * cosO - acrossRate * sinO - s[1] * node.rate;
    s[4] = p.x.rate * sinO + acrossRate * cosO + s[0] * node.rate;
    s[5] = p.y.rate * sinI + p.y.value * cosI * p.inclination.rate;
    return s;
}

/// BDS ICD: the GEO frame, turned by -5 degrees about X, then with the Earth about Z.
OrbitState fromGeoFrame(const OrbitState& s, double omega, double tk) {
    constexpr double cos5 = 0.9961946980917455;
    constexpr double sin5 = 0.08715574274765817;
    const OrbitState tilted{s[0], s[1] * cos5 - s[2] * sin5, s[1] * sin5 + s[2] * cos5,
                            s[3], s[4] * cos5 - s[5] * sin5, s[4] * sin5 + s[5] * cos5};
    const double sinZ = std::sin(omega * tk);
    const double cosZ = std::cos(omega * tk);
    OrbitState out{};
    out[0] = tilted[0] * cosZ + tilted[1] * sinZ;
    out[1] = -tilted[0] * sinZ + tilted[1] * cosZ;
    out[2] = tilted[2];
    out[3] = tilted[3] * cosZ + tilted[4] * sinZ + omega * out[1];
    out[4] = -tilted[3] * sinZ + tilted[4] * cosZ - omega * out[0];
    out[5] = tilted[5];
    return out;
}

/// C01 to C05 and, by BDS-SIS-ICD-B1I 3.0, C59 to C63.
bool usesGeoFrame(const GPSEPH& r, OrbitRules rules) {
    if (!r.cprn.starts_with('C'))
        return false;
    const int prn = prnOf(r.cprn);
    return (prn >= 1 && prn <= 5) || (rules == OrbitRules::standards && prn >= 59 && prn <= 63);
}

char systemOf(const GPSEPH& r) {
    return r.cprn.empty() ? '\0' : r.cprn.front();
}

} // namespace

OrbitState keplerState(const GPSEPH& r, WeekTime t, OrbitRules rules) {
    OrbitConstants k = constantsOf(systemOf(r));
    if (rules == OrbitRules::standards && k.system == 'J')
        k.omega = kOtherConstants.omega; // IS-QZSS-PNT has GPS's
    const double tk = (t.week - r.week) * kSecondsPerWeek + t.sow - r.toe;
    const InPlane plane = inPlane(r, meanMotion(r, k.gm, tk), tk);
    if (usesGeoFrame(r, rules)) {
        const Motion node{r.OMEGA0 + r.OMEGADOT * tk - k.omega * r.toe, r.OMEGADOT};
        return fromGeoFrame(turned(plane, node), k.omega, tk);
    }
    const double rate = r.OMEGADOT - k.omega;
    return turned(plane, {r.OMEGA0 + rate * tk - k.omega * r.toe, rate});
}

int BrdUtils_m_geph2xyz(const Session& session, const GPSEPH& r, std::string_view mode, int week,
                        OrbitState& position, double& clock, double sow) {
    const double dt = (week * 7 + kGpsEpochMjd - r.tocMjd) * kSecondsPerDay + sow - r.tocSod;
    clock = r.af0 + (r.af1 + r.af2 * dt) * dt;
    if (systemOf(r) == 'C')
        clock -= bdsGroupDelay(session, r);
    if (contains(mode, "ynn"))
        return -1;

    position = keplerState(r, {week, sow}, OrbitRules::departures);
    if (!mode.ends_with('y'))
        std::fill(position.begin() + 3, position.end(), 0.0);
    return 1;
}
