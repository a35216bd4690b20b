#include "sky.h"

#include <algorithm>
#include <numbers>

namespace ref {

namespace {

constexpr double kTurn = 2 * std::numbers::pi;
constexpr double kDegree = kTurn / 360;
constexpr double kDayM = 42164170; // one sidereal day
constexpr int kChannels[] = {1,  -4, 5, 6,  1, -4, 5, 6, -2, -7, 0, -1,
                             -2, -7, 0, -1, 4, -3, 3, 2, 4,  -3, 3, 2};

// clang-format off
// Satellites of a system from the first one on, spread over planes; longitude (degrees) of those
// that keep one, else 0.
struct Shell { char system; int first, count, planes; double axisM, e, tiltDeg, argDeg, lonDeg; };
constexpr Shell kShells[] = {
    {'G',  1, 30, 6, 26560e3, 0.009,  55.0,  40, 0}, {'R',  1, 24, 3, 25510e3, 0.001, 64.8, 20, 0},
    {'E',  1, 24, 3, 29600e3, 0.0004, 56.0,  70, 0}, {'C', 11,  4, 3, 27906e3, 0.002, 55.3, 10, 0},
    {'C', 19, 18, 3, 27906e3, 0.0008, 55.0,  30, 0},
    {'C',  1,  1, 1, kDayM, 0.0004, 5, 0, 140},  {'C', 2, 1, 1, kDayM, 0.0003, 5, 0, 80},
    {'C',  3,  1, 1, kDayM, 0.0002, 5, 0, 110.5}, {'C', 4, 1, 1, kDayM, 0.0005, 5, 0, 160},
    {'C',  5,  1, 1, kDayM, 0.0006, 5, 0, 58.75},
    {'C',  6,  3, 3, kDayM, 0.005, 54.5, 190, 118}, {'C', 9, 2, 2, kDayM, 0.003, 54.8, 170, 95},
    {'C', 38,  3, 3, kDayM, 0.002, 55.2, 175, 110}, {'J', 1, 3, 3, kDayM, 0.075, 41.0, 270, 135}};
// clang-format on

// A value for every satellite and purpose, spread over -1..1.
double spread(char system, int id, int purpose) {
    return std::remainder(id * 0.618 + system * 0.377 + purpose * 0.239, 1.0) * 2;
}

// -pi..pi in a signed field of semicircles, which cannot hold pi itself.
double wrapped(double angle) {
    return std::min(std::remainder(angle, kTurn), kTurn / 2 * (1 - 1e-9));
}

// Elements with every field filled, toe in s since the GPS epoch. Nodes are counted in the axes
// that the Earth had then.
Kepler elements(const Shell& s, int index, double toeTotal) {
    Kepler k;
    k.system = s.system;
    k.id = s.first + index;
    const bool bdt = s.system == 'C';
    const bool stays = s.lonDeg != 0;
    const bool geo = bdt && k.id <= 5;
    const double rate = bdt || s.system == 'J' ? 7.292115e-5 : kEarthRate;
    const double gm = s.system == 'G' || s.system == 'J' ? 3.986005e14 : 3.986004418e14;
    const double axisM = stays ? std::cbrt(gm / (rate * rate)) : s.axisM;
    const GpsTime toe = GpsTime{} + (toeTotal - (bdt ? kBdtLagS : 0));
    const int plane = index % s.planes;
    // the plane of the geostationary ones, tilted by 5 degrees, has its node opposite to the X axis
    const double node = geo ? kTurn / 2 : kTurn * plane / s.planes + 0.3;
    k.perigee = wrapped(s.argDeg * kDegree);
    k.m0 = stays ? s.lonDeg * kDegree - node - k.perigee
                 : kTurn * (index - plane + 0.3 * plane) / s.count;
    if (!geo)
        k.m0 += std::sqrt(gm / axisM) / axisM * toeTotal;
    k.m0 = wrapped(k.m0);
    k.node = wrapped(node + rate * (toe.sow - (geo ? 0 : toeTotal)));
    k.nodeDot = geo ? 1e-11 : -8e-9;
    k.type = s.system == 'G' ? 1019 : bdt ? 1042 : s.system == 'J' ? 1044 : 1045 + k.id % 2;
    k.week = bdt ? toe.week - 1356 : s.system == 'E' ? toe.week - 1024 : toe.week % 1024;
    k.toe = k.toc = toe.sow;
    k.iode = k.iodc = static_cast<int>(toe.sow / 3600) % 32;
    k.ura = 2;
    k.sqrtA = std::sqrt(axisM);
    k.e = s.e;
    k.i0 = s.tiltDeg * kDegree;
    // clang-format off
    const std::pair<double*, double> rest[] = {
        {&k.deltaN, 1e-9}, {&k.idot, 2e-10}, {&k.crc, 200}, {&k.crs, 90}, {&k.cuc, 5e-6},
        {&k.cus, 8e-6}, {&k.cic, 1e-7}, {&k.cis, 2e-7}, {&k.af0, 2e-4}, {&k.af1, 5e-12},
        {&k.tgd[0], 1e-8}, {&k.tgd[1], 2e-8}};
    // clang-format on
    for (int i = 0; const auto& [field, size] : rest)
        *field = size * spread(k.system, k.id, ++i);
    return k;
}

Glonass glonassState(const Shell& s, int index, GpsTime t) {
    const double moscow = std::fmod((t + (kMoscowS - kLeapS)).sow, 86400);
    Glonass g;
    g.slot = s.first + index;
    g.channel = kChannels[index];
    g.tb = 2 * static_cast<int>(moscow / 1800) + 1;
    g.tkHour = g.tb / 4;
    g.tkMinute = g.tb % 4 * 15;
    const GpsTime tb = t + (g.tb * 900.0 - moscow);
    const Kepler orbit = elements(s, index, tb - GpsTime{});
    g.pos = 1e-3 * position(orbit, tb);
    g.vel = 1e-3 * (position(orbit, tb + 0.5) - position(orbit, tb + -0.5));
    for (int i = 0; double& a : g.acc.v)
        a = 3e-9 * spread('R', g.slot, ++i);
    g.taun = orbit.af0;
    g.gamn = 1e-11 * spread('R', g.slot, 4);
    g.m = 1;
    return readGlonass(writeGlonass(g));
}

// Simple terms of the right sign: the ionosphere delays the code and advances the phase.
Cell observed(const std::string& sat, const std::string& signal, int channel, double rangeM,
              double elevationDeg) {
    Cell c;
    c.sat = sat;
    c.system = sat[0];
    c.id = std::stoi(sat.substr(1));
    c.signal = signal;
    const double slant = 1 / std::sin(elevationDeg * kDegree);
    const double hz = frequencyHz(c.system, signal, channel);
    const double ionosphereM = 3.5 * slant * std::pow(1575.42e6 / hz, 2);
    const double cycles = std::round(700 * spread(c.system, c.id, signal[0] + signal[1]));
    c.pseudorangeM = rangeM + 2.3 * slant + ionosphereM;
    c.phaseRangeM = rangeM + 2.3 * slant - ionosphereM + cycles * kLightSpeed / hz;
    c.lock = 12;
    c.cnr = std::round(30 + 20 / slant + signal[0] % 4);
    c.info = c.system == 'R' ? channel + 7 : 0;
    return c;
}

} // namespace

Navigation Sky::navigation(GpsTime t) const {
    Navigation nav;
    const double hour = std::round((t - GpsTime{}) / 3600) * 3600;
    for (const Shell& s : kShells)
        for (int i = 0; i < s.count; ++i) {
            const std::string sat = satName(s.system, s.first + i);
            // full hours of BDT for C: toe comes in steps of 8 s
            if (s.system == 'R')
                nav.glonass[sat] = glonassState(s, i, t);
            else
                nav.kepler[sat] = readKepler(
                    writeKepler(elements(s, i, hour + (s.system == 'C' ? kBdtLagS : 0))));
        }
    return nav;
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

std::vector<Cell> Sky::observe(GpsTime t) const {
    const Navigation nav = navigation(t);
    std::vector<Cell> cells;
    const auto add = [&](const std::string& sat, double clockS, int channel) {
        const SatFn at = nav.satellite(sat);
        const Signal now = receive(at, site, t);
        const double elevationDeg = direction(site, now.sat).elevationDeg;
        if (elevationDeg < maskDeg || systems.find(sat[0]) == std::string::npos)
            return;
        for (const std::string& signal : signals.at(sat[0])) {
            // 137.5 m of receiver clock
            cells.push_back(observed(sat, signal, channel,
                                     now.rangeM - kLightSpeed * clockS + 137.5, elevationDeg));
            cells.back().rateMps =
                receive(at, site, t + 0.5).rangeM - receive(at, site, t + -0.5).rangeM;
        }
    };
    for (const auto& [sat, k] : nav.kepler)
        add(sat, clockOffset(k, t) + relativityS(k, t), 0);
    for (const auto& [sat, g] : nav.glonass)
        add(sat, clockOffset(g, t), g.channel);
    return cells;
}

std::vector<Bytes> Sky::epochFrames(GpsTime t, int msm) const {
    const std::vector<Cell> all = observe(t);
    std::vector<Msm> messages;
    for (const char system : systems) {
        const std::size_t perSat = signals.at(system).size();
        std::size_t room = 0;
        for (const Cell& c : all) {
            if (c.system != system)
                continue;
            if (room == 0) {
                messages.push_back({0, station, system, msm, epochField(system, t), true});
                room = 64 / perSat * perSat;
            }
            messages.back().cells.push_back(c);
            --room;
        }
    }
    std::vector<Bytes> frames;
    for (Msm& m : messages) {
        m.more = &m != &messages.back();
        frames.push_back(frame(writeMsm(m)));
    }
    return frames;
}

} // namespace ref
