#include "check.h"
#include "configured.h"
#include "orbit/Glonass.h"
#include "orbit/Kepler.h"
#include "orbit/RnxephUtils.h"

#include <algorithm>
#include <cmath>

namespace {

// Seven-parameter transformations from PZ-90 to WGS 84 as published: shift (m), difference of
// scale, small turn (rad) of the position vector.
TEST(Pz90, TurnsByThePublishedParametersOfEveryGroup) {
    const struct {
        const char* type;
        int mjd;
        double sod;
        std::array<double, 3> shiftM;
        double scale;
        std::array<double, 3> turn;
    } cases[] = {
        {"MCC", 54361, 86399.5, {-0.47, -0.51, -1.56}, 22e-9, {-0.076e-6, -0.017e-6, 1.728e-6}},
        {"RUS", 54361, 86399.5, {-1.1, -0.3, -0.9}, -0.12e-6, {0, 0, 0.82e-6}},
        {"by LMU", 50000, 86399.5, {0, 0, 0}, 0, {0, 0, 1.6e-6}},
        {"MIT", 50000, 86399.5, {0, 2.5, 0}, 0, {0, 0, 1.9e-6}},
        {"MIT RUS", 50000, 86399.5, {-1.1, -0.3, -0.9}, -0.12e-6, {0, 0, 0.82e-6}}, // in this order
        {"none", 54362, 0.0, {0.008, 0.001, 0.001}, 0, {0, 0, 0}}};                 // of PZ-90.02
    const std::array<double, 3> km{12345.678, -9876.543, 20123.456};
    for (const auto& c : cases) {
        OrbitState s{km[0], km[1], km[2], 1.0, 2.0, 3.0};
        BrdUtils_pz902wgs84(c.mjd, c.sod, s, c.type);
        for (std::size_t i = 0; i < 3; ++i) {
            const std::size_t j = (i + 1) % 3, k = (i + 2) % 3;
            const double turnedM = (c.turn[j] * km[k] - c.turn[k] * km[j]) * 1000.0;
            EXPECT_NEAR((s[i] - km[i]) * 1000.0, c.shiftM[i] + c.scale * km[i] * 1000.0 + turnedM,
                        1e-5)
                << c.type << i;
            EXPECT_EQ(s[i + 3], 1.0 + static_cast<double>(i));
        }
    }
    OrbitState s{};
    check::expectFatal([&] { BrdUtils_pz902wgs84(54361, 0.0, s, "WGS"); },
                       "***ERROR(pz902wgs84): unknown transformation type WGS!\n");
}

GPSEPH record(const std::string& cprn) {
    GPSEPH r;
    r.cprn = cprn;
    r.week = 2009;
    r.toe = 345600;
    r.tocMjd = 58311;
    r.type = 7.0;
    r.deltaA = -1234.5;
    r.Adot = 0.05;
    r.deln = 3e-9;
    r.ndot = -2e-13;
    r.M0 = 0.4;
    r.e = 0.004;
    r.omega = 0.7;
    r.i0 = 0.95;
    return r;
}

/// The orbit for the independent solver, by its whole axis.
ref::Kepler independent(const GPSEPH& r, double axisM, double deltaN) {
    ref::Kepler k;
    k.system = r.cprn[0];
    k.id = std::stoi(r.cprn.substr(1));
    k.toe = r.toe;
    k.sqrtA = std::sqrt(axisM);
    k.deltaN = deltaN;
    k.m0 = r.M0;
    k.e = r.e;
    k.perigee = r.omega;
    k.i0 = r.i0;
    return k;
}

OrbitState stateAt(const GPSEPH& r, double sow) {
    OrbitState s{};
    double clockS = 0.0;
    const Session none; // it matters to the clock alone
    EXPECT_EQ(BrdUtils_m_geph2xyz(none, r, "yyy", 2009, s, clockS, sow), 1);
    return s;
}

TEST(AxisByDifference, GivesTheOrbitOfTheWholeAxis) {
    const struct {
        const char* cprn;
        double axisM; // 0: by its root, 26.5e6 m
        double type = 7.0;
    } cases[] = {{"C37", 27906100.0}, {"C38", 42162200.0}, {"C40", 42162200.0}, {"C41", 27906100.0},
                 {"C58", 27906100.0}, {"C59", 42162200.0}, {"C63", 42162200.0}, {"C05", 27906100.0},
                 {"G30", 0.0},        {"C30", 0.0, 6.0}};
    testing::internal::CaptureStdout(); // none is configured
    for (const auto& c : cases) {
        GPSEPH r = record(c.cprn);
        r.type = c.type;
        r.sqrtA = std::sqrt(26.5e6);
        for (const double tk : {-1800.0, 0.0, 1800.0}) {
            const double sow = r.toe + tk;
            const OrbitState s = stateAt(r, sow);
            // Deliberate: the mean motion, too, is that of the axis at tk.
            ref::Kepler k = c.axisM > 0.0 ? independent(r, c.axisM + r.deltaA + r.Adot * tk,
                                                        r.deln + 0.5 * r.ndot * tk)
                                          : independent(r, 26.5e6, r.deln);
            if (ref::isGeostationary(k.id) && k.id > 5)
                k.id = 58; // deliberate: without the tilt of geostationary satellites
            const ref::GpsTime t{2009, sow + (k.system == 'C' ? 14.0 : 0.0)};
            EXPECT_LT(norm(ref::position(k, t) - ref::Vec3{s[0], s[1], s[2]}), 1e-3)
                << c.cprn << ' ' << tk;
            const OrbitState before = stateAt(r, sow - 0.5), after = stateAt(r, sow + 0.5);
            for (std::size_t i = 0; i < 3; ++i)
                EXPECT_NEAR(s[i + 3], after[i] - before[i], 1e-4) << c.cprn << ' ' << tk;
        }
    }
    testing::internal::GetCapturedStdout();
}

// Kepler's equation is not solved to its end: E := M + e sin E, twelve times from M. What that
// leaves over is the exact orbit of another mean anomaly.
TEST(EccentricOrbit, ComesFromTwelveStepsOfKeplersEquation) {
    GPSEPH r = record("E14");
    r.sqrtA = std::sqrt(27977600.0);
    r.e = 0.3;
    double farthestM = 0.0;
    for (r.M0 = -3.0; r.M0 < 3.1; r.M0 += 0.5) {
        double anomaly = r.M0;
        for (int step = 0; step < 12; ++step)
            anomaly = r.M0 + r.e * std::sin(anomaly);
        ref::Kepler k = independent(r, 27977600.0, r.deln);
        const ref::Vec3 whole = ref::position(k, {2009, r.toe});
        k.m0 = anomaly - r.e * std::sin(anomaly);
        const OrbitState s = stateAt(r, r.toe);
        const ref::Vec3 got{s[0], s[1], s[2]};
        EXPECT_LT(norm(ref::position(k, {2009, r.toe}) - got), 1e-3) << r.M0;
        farthestM = std::max(farthestM, norm(whole - got));
        const OrbitState before = stateAt(r, r.toe - 0.5), after = stateAt(r, r.toe + 0.5);
        for (std::size_t i = 0; i < 3; ++i)
            EXPECT_NEAR(s[i + 3], after[i] - before[i], 0.01) << r.M0;
    }
    EXPECT_GT(farthestM, 0.1);
}

// The clock is that of B3; what is observed is the combination of the first two carriers.
TEST(BdsClock, IsFreedOfTheGroupDelayOfTheFirstTwoCarriers) {
    const struct {
        const char* carriers;
        double mhz1, mhz2, delayS; // of 7e-9 s and 4e-9 s
    } cases[] = {{"BDS:B1_B2b", 1561.098, 1207.14, 3e-9},    {"BDS:B1_B3", 1561.098, 1268.52, 7e-9},
                 {"BDS:B3_B1", 1268.52, 1561.098, 3e-9},     {"BDS:B1c_B3", 1575.42, 1268.52, 3e-9},
                 {"BDS:B1c_B2a_B3", 1575.42, 1176.45, 3e-9}, {"BDS:B1", 0, 1, 0}};
    for (const auto& c : cases) {
        const Configured configured({"C06"}, c.carriers);
        GPSEPH r = record("C06");
        r.af0 = 1e-4;
        r.tgd1 = 7e-9;
        r.tgd2 = 4e-9;
        double clockS = 0.0;
        OrbitState s{};
        BrdUtils_m_geph2xyz(configured.record, r, "ynn", 2009, s, clockS, 0.0);
        const double squares = std::pow(c.mhz1, 2) / (std::pow(c.mhz1, 2) - std::pow(c.mhz2, 2));
        EXPECT_NEAR(clockS, 1e-4 - squares * c.delayS, 1e-17) << c.carriers;
    }
}

TEST(BdsRecord, OfASatelliteThatIsNotConfiguredIsReported) {
    const Configured configured({"C06", "G05"});
    for (const std::string cprn : {"C06", "C07", "G07"}) {
        GPSEPH r = record(cprn);
        r.tgd1 = 1e-8;
        double clockS = 0.0;
        OrbitState s{};
        testing::internal::CaptureStdout();
        EXPECT_EQ(BrdUtils_m_geph2xyz(configured.record, r, "ynn", 2009, s, clockS, 0.0), -1);
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  cprn == "C07" ? "*****ERRROR(RnxephUtils): isat == -1 ! eph->cprn = C07 \n" : "");
        EXPECT_EQ(clockS != 0.0, cprn[0] == 'C') << "the group delay is taken all the same";
    }
}

} // namespace
