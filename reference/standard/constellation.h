/// Nominal constellations and what their satellites broadcast. Orbits and clocks run on smoothly;
/// every satellite describes its own in sets that are refreshed as in life, each rounded to what
/// its message carries. Everything follows from the time, nothing is random.
#pragma once

#include "orbit.h"

#include <memory>
#include <variant>

namespace ref {

/// 31 GPS, 24 GLONASS (three planes of eight evenly spaced), 24 Galileo, 41 BeiDou (geostationary
/// C01 to C05 and C59 to C63, inclined, medium),
/// 4 QZSS (J07 geostationary) and, without ephemerides, 3 SBAS satellites.
class Constellation {
public:
    /// Satellites of the systems named by their letters, in that order.
    static std::vector<std::string> satellites(std::string_view systems);
    /// Frequency channel of a GLONASS satellite.
    static int channel(const std::string& sat);

    struct Broadcast {
        std::variant<Kepler, Glonass> ephemeris;
        int set = 0; ///< number of the set since the GPS epoch; a new one is new data
        SatFn position;
    };
    /// What the satellite broadcasts at a time; std::out_of_range for SBAS and unknown names.
    const Broadcast& broadcast(const std::string& sat, GpsTime t);
    /// A set whose reference time lies that long before t (GLONASS up to 15 min longer, others up
    /// to 60 s), as nobody broadcasts it.
    static Broadcast aged(const std::string& sat, GpsTime t, double ageS);

    /// Position and clock (s, with the relativistic term) of a satellite; the clock lives as long
    /// as the set that is current at t.
    struct State {
        SatFn position;
        std::function<double(GpsTime)> clockS;
    };
    State state(const std::string& sat, GpsTime t);

    /// All broadcast sets at a time.
    Navigation navigation(GpsTime t);

private:
    Glonass glonass(const std::string& sat, int set);
    Broadcast make(const std::string& sat, int set);
    static Glonass glonassAt(const std::string& sat, double moscowTotal, const SatFn& path);
    static Broadcast keplerAt(const std::string& sat, double toeTotal, int issue);

    std::map<std::string, Broadcast> current_;
    std::map<std::pair<std::string, int>, Glonass> integrated_; // by set
};

} // namespace ref
