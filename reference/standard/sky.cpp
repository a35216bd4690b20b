#include "sky.h"

#include <algorithm>
#include <numbers>

namespace ref {

namespace {

constexpr double kForgetS = 15;      // a satellite not seen for so long is acquired anew
constexpr double kSlipsPerS = 3e-4;  // of one signal
constexpr double kDropsPerS = 5e-4;  // of one satellite
constexpr double kHalfCycleS = 4;    // until half cycles are resolved
constexpr double kLacks = 2e-3;      // of an observation without its range, as without its phase
constexpr double kMostCycles = 200;  // the legacy messages hold 262 m between phase and range
constexpr double kFastestDegS = 0.1; // no satellite rises faster

std::uint64_t mixed(std::uint64_t x) { // a bijection that spreads every bit (SplitMix64)
    x += 0x9E3779B97F4A7C15u;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9u;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBu;
    return x ^ (x >> 31);
}

// A value in 0..1 for a seed, a text and a time: the same wherever it is asked for.
double chance(std::uint64_t seed, const std::string& text, double total) {
    std::uint64_t h = mixed(seed);
    for (const char c : text)
        h = mixed(h ^ static_cast<unsigned char>(c));
    h = mixed(h ^ static_cast<std::uint64_t>(std::llround(total * 1000)));
    return static_cast<double>(h >> 11) * 0x1p-53;
}

double gaussian(std::uint64_t seed, const std::string& text, double total) {
    const double u = 1 - chance(seed, text + "u", total);
    const double v = chance(seed, text + "v", total);
    return std::sqrt(-2 * std::log(u)) * std::cos(2 * std::numbers::pi * v);
}

// Receiver clock, m: an offset that swings.
double receiverClockM(double total) {
    return 137.5 + 30 * std::sin(total * (2 * std::numbers::pi / 900));
}

double troposphereM(double elevationDeg) {
    const double s = std::sin(elevationDeg * kDegree);
    return 2.3 * 1.001 / std::sqrt(0.002001 + s * s);
}

// On the carrier 1575.42 MHz; a thin shell at 350 km.
double ionosphereM(double elevationDeg) {
    const double c = 0.948 * std::cos(elevationDeg * kDegree);
    return 3.5 / std::sqrt(1 - c * c);
}

// What the receiver says of itself in each message: the same all the time, none of it zero.
void setHead(Msm& m, std::uint64_t seed) {
    m.iods = static_cast<int>(1 + seed % 7);
    m.steering = 1;
    m.externalClock = 2;
    m.smoothed = 1;
    m.smoothing = static_cast<int>(1 + seed % 6);
}

} // namespace

const Tracking& tracking(const std::string& name) {
    // clang-format off
    static const std::map<std::string, Tracking> sets{
        {"full", {{'G', {"1C", "2W", "5Q"}}, {'R', {"1P", "2P"}}, {'E', {"1X", "6X", "7X", "5X"}},
                  {'S', {"1C", "5I"}}, {'J', {"1C", "2X", "5Q"}}, {'C', {"2I", "6I", "7I"}}}},
        {"pilot", {{'G', {"1C", "2W", "2L", "5Q"}}, {'R', {"1C", "2C"}},
                   {'E', {"1C", "6C", "7Q", "8Q", "5Q"}}, {'S', {"1C", "5I"}},
                   {'J', {"1C", "2L", "5Q"}}, {'C', {"2I", "6I", "7I"}}}},
        {"combined", {{'G', {"1C", "2W", "2X", "5X"}}, {'R', {"1C", "1P", "2C", "2P"}},
                      {'E', {"1X", "7X", "8X", "5X"}}, {'S', {"1C", "5X"}},
                      {'J', {"1C", "2X", "5X"}}, {'C', {"2I", "6I", "7I"}}}},
        {"single", {{'G', {"1C"}}, {'R', {"1P"}}, {'E', {"1X"}}, {'S', {"1C"}}, {'J', {"1C"}},
                    {'C', {"2I"}}}}};
    // clang-format on
    return sets.at(name);
}

std::vector<Bytes> Sky::ephemerisFrames(GpsTime t) const {
    std::vector<Bytes> frames;
    const Navigation nav = navigation(t);
    for (const auto& [sat, k] : nav.kepler)
        frames.push_back(frame(writeKepler(k)));
    for (const auto& [sat, g] : nav.glonass)
        frames.push_back(frame(writeGlonass(g)));
    return frames;
}

// Below the mask or in a drop-out; a satellite that comes (back) is acquired.
bool Sky::outOfSight(const std::string& sat, Track& track, double total, double elevationDeg) {
    if (elevationDeg < maskDeg) {
        track.lookAgain = total + (maskDeg - elevationDeg) / kFastestDegS;
        return true;
    }
    const double since = std::min(total - track.seen, kForgetS);
    if (started_ && chance(seed, sat + "drop", total) < kDropsPerS * since)
        track.goneUntil = total + 5 + 25 * chance(seed, sat + "gone", total);
    if (total < track.goneUntil) {
        track.signals.clear();
        track.seen = total;
        return true;
    }
    if (total - track.seen > kForgetS)
        track.signals.clear();
    return false;
}

Cell Sky::measure(const std::string& sat, const std::string& signal, SignalTrack& track,
                  const Direction& direction, double total) {
    Cell c;
    c.sat = sat;
    c.system = sat[0];
    c.id = std::stoi(sat.substr(1));
    c.signal = signal;
    const int channel = c.system == 'R' ? Constellation::channel(sat) : 0;
    const double hz = frequencyHz(c.system, signal, channel);
    const double delayM = ionosphereM(direction.elevationDeg) * std::pow(1575.42e6 / hz, 2);
    const std::string name = sat + signal;
    c.lockS = total - track.lockedFrom;
    c.half = c.lockS < kHalfCycleS;
    c.pseudorangeM = delayM;
    c.phaseRangeM = -delayM + track.cycles * kLightSpeed / hz;
    const double cnr = 28 + 22 * std::sin(direction.elevationDeg * kDegree) + signal[0] % 4;
    c.cnr = std::round(cnr * 16) / 16;
    c.info = c.system == 'R' ? channel + 7 : 0;
    if (noise) {
        *c.pseudorangeM += 0.25 * gaussian(seed, name + "P", total);
        *c.phaseRangeM += 0.002 * gaussian(seed, name + "L", total);
    }
    return c;
}

std::vector<Cell> Sky::observe(GpsTime t, bool rates) {
    std::vector<Cell> cells;
    const double total = t - GpsTime{};
    for (const std::string& sat : Constellation::satellites(systems)) {
        Track& track = tracks_[sat];
        if (total < track.lookAgain)
            continue;
        const Constellation::State now = constellation.state(sat, t);
        const Signal received = receive(now.position, site, t);
        const Direction seen = direction(site, received.sat);
        if (outOfSight(sat, track, total, seen.elevationDeg))
            continue;
        // what all signals have in common, s after the epoch
        const auto common = [&](double s, double rangeM) {
            return rangeM - kLightSpeed * now.clockS(t + s) + receiverClockM(total + s) +
                   troposphereM(
                       direction(site, now.position(t + (s - received.delayS))).elevationDeg);
        };
        const double commonM = common(0, received.rangeM) + kLightSpeed * clockJumpS;
        std::optional<double> rate;
        if (rates)
            rate = common(0.5, receive(now.position, site, t + 0.5).rangeM) -
                   common(-0.5, receive(now.position, site, t + -0.5).rangeM);
        for (const std::string& signal : signals.at(sat[0])) {
            const auto [held, fresh] = track.signals.try_emplace(signal);
            const std::string name = sat + signal;
            const double slips = kSlipsPerS * std::min(total - track.seen, kForgetS);
            if (fresh || chance(seed, name + "slip", total) < slips) {
                // what is tracked at the start has been for some time
                const double before = started_ ? 0 : 2000 * chance(seed, sat + "lock", 0);
                held->second.lockedFrom = total - before;
                held->second.cycles =
                    std::round(kMostCycles * (2 * chance(seed, name + "cycles", total) - 1));
            }
            Cell& c = cells.emplace_back(measure(sat, signal, held->second, seen, total));
            *c.pseudorangeM += commonM;
            *c.phaseRangeM += commonM;
            c.rateMps = rate;
            if (chance(seed, name + "range", total) < kLacks)
                c.pseudorangeM.reset();
            else if (chance(seed, name + "phase", total) < kLacks)
                c.phaseRangeM.reset();
        }
        track.seen = total;
    }
    started_ = true;
    return cells;
}

std::vector<Msm> Sky::epoch(GpsTime t, int msm) {
    const std::vector<Cell> all = observe(t, msm == 5 || msm == 7);
    std::vector<Msm> messages;
    for (const char system : systems) {
        const std::size_t perSat = signals.at(system).size();
        std::size_t room = 0;
        for (const Cell& c : all) {
            if (c.system != system)
                continue;
            if (room == 0) {
                messages.push_back({0, station, system, msm, epochField(system, t), true});
                setHead(messages.back(), seed);
                room = 64 / perSat * perSat;
            }
            messages.back().cells.push_back(c);
            messages.back().cells.back().lock = lockIndicator(msm, c.lockS);
            --room;
        }
    }
    if (!messages.empty())
        messages.back().more = false;
    return messages;
}

std::vector<Bytes> Sky::epochFrames(GpsTime t, int msm) {
    std::vector<Bytes> frames;
    for (const Msm& m : epoch(t, msm))
        frames.push_back(frame(writeMsm(m)));
    return frames;
}

} // namespace ref
