/// Whether a service can answer a satellite at a time, and how much farther it is from the virtual
/// station: by the ephemerides that the stream has brought, and the service's limits.
#pragma once

#include "reference/standard/frame.h"
#include "reference/standard/orbit.h"

#include <map>
#include <set>
#include <string>

namespace ref {

/// What becomes of a satellite of the epoch; the judge knows of one that is missing.
enum class Fate { answered, low, noEphemeris, oldEphemeris, noPhase, noSignal, missing };
const char* name(Fate fate);

class Answerable {
public:
    Answerable(const Vec3& site, const Vec3& virtualAt) : site_(site), virtualAt_(virtualAt) {}
    /// Takes an ephemeris; its satellite. Throws for one that the service refuses.
    std::string take(const Frame& f);

    struct Look {
        Fate fate = Fate::noEphemeris;
        bool uncertain = false; ///< too close to the elevation limit to say, or unknown
        bool unknown = false;   ///< an ephemeris may serve that the stream has not brought
        Direction direction;    ///< from the virtual station
        double changeM = 0;     ///< of the range
    };
    Look look(const std::string& sat, GpsTime t) const;
    /// Derivative of the change of range, m/s, for a satellite with an ephemeris.
    double changeRateMps(const std::string& sat, GpsTime t) const;
    /// Frequency channel by the ephemeris of a GLONASS satellite; 0 without one.
    int channel(int slot) const;

private:
    double ageS(const std::string& sat, GpsTime t) const;

    Vec3 site_, virtualAt_;
    Navigation navigation_;
    std::map<std::string, SatFn> orbits_;
};

} // namespace ref
