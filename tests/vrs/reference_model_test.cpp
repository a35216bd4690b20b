#include "session.h"

#include "intake/StreamObs.h"
#include "vrs/BaseStation.h"

#include <cmath>

namespace {

const ref::GpsTime kNow{2009, 430650};

std::size_t indexOf(const std::string& name) {
    return static_cast<std::size_t>(pointer_string(DLY.satelliteNames, name));
}

/// The ephemerides of a generated sky in the store; a pack whose station is not the configured one.
class ReferenceModel : public testing::Test {
protected:
    void SetUp() override {
        configure();
        StreamObs_m_restart();
        onrtcm = nullptr;
        testing::internal::CaptureStdout();
        for (const ref::Bytes& f : sky.ephemerisFrames(kNow))
            StreamReader(0, f.data(), static_cast<int>(f.size()));
        testing::internal::GetCapturedStdout();
        VrsObsPack_Initial(*pack);
        pack->xyz = {station[0], station[1], station[2]};
        const MjdTime day = wksow2mjd(kNow.week, kNow.sow);
        pack->mjd = DLY.currentMjd = day.mjd;
        pack->sod = DLY.currentSod = day.sod;
    }
    std::string model() {
        testing::internal::CaptureStdout();
        VrsBaseStation_m_gnssModel(*pack);
        return testing::internal::GetCapturedStdout();
    }

    const ref::Vec3 station = kSite + ref::Vec3{20000.0, -30000.0, 50000.0};
    ref::Sky sky{kSite};
    const ref::Navigation navigation = asServed(sky.navigation(kNow));
    const FixedClock clock{kNow};
    std::unique_ptr<VrsObsPack> pack = std::make_unique<VrsObsPack>();
};

} // namespace

TEST_F(ReferenceModel, IsTheGeometryOfThePacksOwnStation) {
    pack->elevation.fill(9.0);
    pack->azimuth.fill(9.0);
    pack->referenceRange.fill(9.0);
    for (const std::string& name : DLY.satelliteNames)
        if (navigation.kepler.contains(name) || navigation.glonass.contains(name))
            pack->obs.row(indexOf(name)).phase[0] = 1e8;
    EXPECT_EQ(model(), "");
    int below = 0, above = 0;
    for (const std::size_t i : pack->obs.written()) {
        const std::string& name = DLY.satelliteNames[i];
        const ref::Signal signal = ref::receive(navigation.satellite(name), station, kNow);
        const ref::Direction seen = ref::direction(station, signal.sat);
        EXPECT_NEAR(pack->referenceRange[i], signal.rangeM, name[0] == 'R' ? 0.02 : 0.6) << name;
        // 0.6 m of orbit are 3e-8 rad.
        EXPECT_NEAR(pack->elevation[i] * 180.0 / M_PI, seen.elevationDeg, 2e-6) << name;
        const double off = std::remainder(pack->azimuth[i] * 180.0 / M_PI - seen.azimuthDeg, 360.0);
        EXPECT_NEAR(off * std::cos(pack->elevation[i]), 0.0, 2e-6) << name;
        ++(seen.elevationDeg < 0.0 ? below : above);
    }
    EXPECT_GT(below, 20);
    EXPECT_GT(above, 20);
    const std::size_t absent = indexOf("C42"); // configured, not observed
    EXPECT_EQ(pack->referenceRange[absent] + pack->elevation[absent] + pack->azimuth[absent], 0.0);
}

TEST_F(ReferenceModel, HasNothingForASatelliteWithoutOrbit) {
    for (const char* const name : {"G02", "G03"})
        pack->obs.row(indexOf(name)).phase[0] = 1e8;
    BRDEPH.kepler[1].sqrtA = 0.0; // G02: no orbit at all
    BRDEPH.kepler[2].tocMjd = 0;  // G03: no ephemeris
    const std::string printed = model();
    EXPECT_TRUE(printed.starts_with("***WARN(BaseStation): G02 position not convergence! ddelay="));
    EXPECT_TRUE(printed.ends_with("\n***WARN(RnxephUtils): G03 doesn't have ephemeris!\n"));
    EXPECT_TRUE(pack->referenceRange[1] == 0.0 && pack->referenceRange[2] == 0.0);
}

TEST(CountOfEphemerides, IsThatOfGlonassOrOfTheOthers) {
    configure({"G01", "R02", "C06", "R03", "E05"});
    EXPECT_TRUE(VrsBaseStation_CountSat(0) == 0 && VrsBaseStation_CountSat(1) == 0);
    BRDEPH.kepler[0].tocMjd = BRDEPH.kepler[2].tocMjd = 58311;
    BRDEPH.glonass[1].mjd = 58311;
    BRDEPH.kepler[3].tocMjd = 58311; // nobody's
    EXPECT_EQ(VrsBaseStation_CountSat(1), 1);
    for (const int other : {0, 2, -1})
        EXPECT_EQ(VrsBaseStation_CountSat(other), 2);
}
