/// A generated stream of all systems: nominal orbits, their broadcast ephemerides and the
/// observations of one station. Everything follows from the time; nothing is random.
#pragma once

#include "msm.h"
#include "orbit.h"

namespace ref {

class Sky {
public:
    explicit Sky(const Vec3& siteM) : site(siteM) {}

    Vec3 site;
    int station = 1;
    double maskDeg = 3;            ///< satellites below it are not observed
    std::string systems = "GRECJ"; ///< in the order sent
    std::map<char, std::vector<std::string>> signals = {{'G', {"1C", "2W", "5Q"}},
                                                        {'R', {"1C", "1P", "2P"}},
                                                        {'E', {"1X", "5X", "6X", "7X"}},
                                                        {'C', {"2I", "6I", "7I"}},
                                                        {'J', {"1C", "2X", "5Q"}}};

    /// The ephemerides valid at t as their messages carry them: nearest hour; GLONASS the middle
    /// of the half hour. Orbits of successive sets differ by up to a few kilometres.
    Navigation navigation(GpsTime t) const;
    /// One frame per satellite: 1019, 1020, 1042, 1044, 1045 (odd Galileo numbers) or 1046.
    std::vector<Bytes> ephemerisFrames(GpsTime t) const;
    /// What the station sees: ranges with clocks, ionosphere, troposphere, whole-cycle offsets.
    std::vector<Cell> observe(GpsTime t) const;
    /// The epoch as MSM4..7, multiple-message bit on all messages but the last.
    std::vector<Bytes> epochFrames(GpsTime t, int msm) const;
};

} // namespace ref
