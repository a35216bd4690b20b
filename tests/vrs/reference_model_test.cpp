#include "configured.h"
#include "vrs/ReferenceModel.h"

#include <cmath>

// The station of the pack is not the configured one.
TEST(ReferenceModel, IsTheGeometryOfThePacksOwnStation) {
    const ref::GpsTime now = kNow;
    const FixedClock clock(now);
    const ref::Vec3 station = kSite + ref::Vec3{20000.0, -30000.0, 50000.0};
    ref::Sky sky(kSite);
    const ref::Navigation navigation = asServed(sky.navigation(now));
    Configured c;
    const auto pack = std::make_unique<VrsObsPack>();
    VrsObsPack_Initial(*pack);
    pack->xyz = {station[0], station[1], station[2]};
    const MjdTime day = wksow2mjd(now.week, now.sow);
    testing::internal::CaptureStdout();
    for (const ref::Bytes& f : sky.ephemerisFrames(now))
        c.read(f);
    testing::internal::GetCapturedStdout();
    pack->mjd = c.record.currentMjd = day.mjd;
    pack->sod = c.record.currentSod = day.sod;
    for (std::size_t i = 0; i < c.record.satelliteNames.size(); ++i)
        if (const std::string& name = c.record.satelliteNames[i];
            navigation.kepler.contains(name) || navigation.glonass.contains(name))
            pack->obs.slot(i, 0).phase = 1e8;
    c.store.kepler[1].sqrtA = 0.0; // G02: no orbit at all
    c.store.kepler[2].tocMjd = 0;  // G03: no ephemeris
    for (auto* const values : {&pack->elevation, &pack->azimuth, &pack->referenceRange})
        values->fill(9.0);

    testing::internal::CaptureStdout();
    VrsBaseStation_m_gnssModel(c.sources().orbits(), *pack);
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(printed.starts_with("***WARN(BaseStation): G02 position not convergence! ddelay="));
    EXPECT_TRUE(printed.ends_with("\n***WARN(RnxephUtils): G03 doesn't have ephemeris!\n"));
    int below = 0, above = 0;
    for (std::size_t i = 0; i < c.record.satelliteNames.size(); ++i) {
        const std::string& name = c.record.satelliteNames[i];
        if (!pack->obs.has(i) || name == "G02" || name == "G03") {
            EXPECT_TRUE(pack->referenceRange[i] == 0.0 && pack->elevation[i] == 0.0 &&
                        pack->azimuth[i] == 0.0)
                << name;
            continue;
        }
        const ref::Signal signal = ref::receive(navigation.satellite(name), station, now);
        const ref::Direction seen = ref::direction(station, signal.sat);
        EXPECT_NEAR(pack->referenceRange[i], signal.rangeM, name[0] == 'R' ? 0.02 : 0.6) << name;
        // 0.6 m of orbit are 2e-6 degrees.
        EXPECT_NEAR(pack->elevation[i] * 180.0 / M_PI, seen.elevationDeg, 2e-6) << name;
        const double off = std::remainder(pack->azimuth[i] * 180.0 / M_PI - seen.azimuthDeg, 360.0);
        EXPECT_NEAR(off * std::cos(pack->elevation[i]), 0.0, 2e-6) << name;
        ++(seen.elevationDeg < 0.0 ? below : above);
    }
    EXPECT_TRUE(below > 20 && above > 20);
}

TEST(CountOfEphemerides, IsThatOfGlonassOrOfTheOthers) {
    Configured c({"G01", "R02", "C06", "R03", "E05"});
    c.store.kepler[0].tocMjd = c.store.kepler[2].tocMjd = c.store.glonass[1].mjd = 58311;
    c.store.kepler[3].tocMjd = 58311; // nobody's
    EXPECT_TRUE(VrsBaseStation_CountSat(c.store, 1) == 1 &&
                VrsBaseStation_CountSat(c.store, 0) == 2 &&
                VrsBaseStation_CountSat(c.store, 2) == 2);
}
