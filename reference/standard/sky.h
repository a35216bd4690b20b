/// What one station receives from the constellations: the observations of every epoch, as a
/// receiver would make them from signals that follow the broadcast ephemerides exactly.
#pragma once

#include "constellation.h"
#include "msm.h"

namespace ref {

/// Signals tracked by system, each in the order of its message's signal ids.
using Tracking = std::map<char, std::vector<std::string>>;

/// A named set: full, pilot, combined, single; std::out_of_range for another name.
const Tracking& tracking(const std::string& name);

class Sky {
public:
    explicit Sky(const Vec3& siteM) : site(siteM) {}

    Vec3 site;
    int station = 1;
    double maskDeg = 3;            ///< satellites below it are not observed
    std::string systems = "GRECJ"; ///< in the order sent
    Tracking signals = {{'G', {"1C", "2W", "5Q"}},       {'R', {"1C", "1P", "2P"}},
                        {'E', {"1X", "6X", "7X", "5X"}}, {'S', {"1C", "5I"}},
                        {'J', {"1C", "2X", "5Q"}},       {'C', {"2I", "6I", "7I"}}};
    std::uint64_t seed = 1; ///< of slips, drop-outs, ambiguities and noise
    bool noise = false;
    double clockJumpS = 0; ///< added to the receiver's clock

    /// The ephemerides broadcast at t.
    Navigation navigation(GpsTime t) const { return constellation.navigation(t); }
    /// One frame per satellite: 1019, 1020, 1042, 1044, 1045 (even Galileo numbers) or 1046.
    std::vector<Bytes> ephemerisFrames(GpsTime t) const;

    /// What the receiver measures: ranges with clocks, troposphere and ionosphere, phases with
    /// whole cycles that jump when a satellite slips or comes back, lock times. Remembers what it
    /// tracks; times go forward. Rates only where asked for.
    std::vector<Cell> observe(GpsTime t, bool rates);
    /// The epoch in the messages of MSM 4 to 7: at most 64 cells each, the multiple-message bit on
    /// all but the last.
    std::vector<Msm> epoch(GpsTime t, int msm);
    std::vector<Bytes> epochFrames(GpsTime t, int msm);

    mutable Constellation constellation;

private:
    struct SignalTrack {
        double lockedFrom = 0; // s since the GPS epoch
        double cycles = 0;
    };
    struct Track {
        double seen = 0, lookAgain = 0, goneUntil = 0; // s since the GPS epoch
        std::map<std::string, SignalTrack> signals;
    };
    bool outOfSight(const std::string& sat, Track& track, double total, double elevationDeg);
    Cell measure(const std::string& sat, const std::string& signal, SignalTrack& track,
                 const Direction& direction, double total);

    std::map<std::string, Track> tracks_;
    bool started_ = false;
};

} // namespace ref
