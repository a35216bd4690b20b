#include "answerable.h"

#include "reference/standard/kinds.h"
#include "reference/standard/msm.h"

#include <array>
#include <cmath>

namespace ref {

namespace {

constexpr double kOldestS = 7200;
constexpr double kLowestDeg = 5;
constexpr double kMostLightTimeS = 1; // an orbit that is farther has no sense

// Highest satellite numbers that a service knows; a message of another one is malformed to it.
constexpr std::pair<char, int> kHighest[] = {{'G', 32}, {'R', 27}, {'E', 36}, {'C', 63}, {'J', 10}};

// Name of an ephemeris' satellite; std::out_of_range for one that does not exist.
std::string nameOf(char system, int id) {
    for (const auto& [letter, highest] : kHighest)
        if (letter == system && id >= 1 && id <= highest)
            return satName(system, id);
    throw std::out_of_range("no such satellite");
}

} // namespace

const char* name(Fate fate) {
    static constexpr std::array names{
        "answered", "below 5 degrees",    "no ephemeris", "ephemeris too old",
        "no phase", "no signal to carry", "missing"};
    return names[static_cast<std::size_t>(fate)];
}

std::string Answerable::take(const Frame& f) {
    std::string sat;
    if (f.type == 1020) {
        sat = nameOf('R', readGlonass(f.body).slot);
    } else {
        const Kepler k = readKepler(f.body);
        sat = nameOf(k.system, k.id);
    }
    navigation_.take(f);
    orbits_[sat] = navigation_.satellite(sat);
    return sat;
}

// Of the clock's reference time against the epoch; BDT is compared as it stands.
double Answerable::ageS(const std::string& sat, GpsTime t) const {
    if (sat[0] != 'R')
        return std::remainder(navigation_.kepler.at(sat).toc - t.sow, kWeekS);
    const double tod = std::fmod(t.sow - leapS(t) + kMoscowS, 86400.0);
    return std::remainder(navigation_.glonass.at(sat).tb * 900.0 - tod, 86400.0);
}

Answerable::Look Answerable::look(const std::string& sat, GpsTime t) const {
    Look l;
    const auto orbit = orbits_.find(sat);
    if (orbit == orbits_.end())
        return l;
    const RangeChange c = rangeChange(orbit->second, site_, virtualAt_, t);
    if (!(c.rangeRefM < kLightSpeed * kMostLightTimeS))
        return l; // not a number, or no orbit of the Earth
    l.direction = c.direction;
    l.changeM = c.deltaM;
    l.fate = std::abs(ageS(sat, t)) > kOldestS       ? Fate::oldEphemeris
             : l.direction.elevationDeg < kLowestDeg ? Fate::low
                                                     : Fate::answered;
    l.uncertain =
        l.fate != Fate::oldEphemeris && std::abs(l.direction.elevationDeg - kLowestDeg) < 1e-4;
    return l;
}

double Answerable::changeRateMps(const std::string& sat, GpsTime t) const {
    const SatFn& orbit = orbits_.at(sat);
    return rangeChange(orbit, site_, virtualAt_, t + 0.5).deltaM -
           rangeChange(orbit, site_, virtualAt_, t + -0.5).deltaM;
}

int Answerable::channel(int slot) const {
    const auto held = navigation_.glonass.find(satName('R', slot));
    return held == navigation_.glonass.end() ? 0 : held->second.channel;
}

} // namespace ref
