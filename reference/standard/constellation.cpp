#include "constellation.h"

#include "msm.h"

#include <algorithm>
#include <chrono>
#include <numbers>

namespace ref {

namespace {

constexpr double kTurn = 2 * std::numbers::pi;
constexpr int kChannels[] = {1,  -4, 5, 6,  1, -4, 5, 6, -2, -7, 0, -1,
                             -2, -7, 0, -1, 4, -3, 3, 2, 4,  -3, 3, 2};

// clang-format off
// Satellites of a system from the first one on, spread over planes. With a longitude (degrees) they
// keep it: geosynchronous, the axis follows from the rotation of the Earth.
struct Shell { char system; int first, count, planes; double axisM, e, tiltDeg, argDeg, lonDeg; };
constexpr Shell kShells[] = {
    {'G',  2, 31, 6, 26560e3, 0.009,  55.0,  40, 0}, {'R',  1, 24, 3, 25510e3, 0.001, 64.8, 20, 0},
    {'E',  5, 24, 3, 29600e3, 0.0004, 56.0,  70, 0},
    {'C',  1,  1, 1, 0, 0.0004, 5, 0, 140},  {'C', 2, 1, 1, 0, 0.0003, 5, 0, 80},
    {'C',  3,  1, 1, 0, 0.0002, 5, 0, 110.5}, {'C', 4, 1, 1, 0, 0.0005, 5, 0, 160},
    {'C',  5,  1, 1, 0, 0.0006, 5, 0, 58.75},
    {'C',  6,  3, 3, 0, 0.005, 54.5, 190, 118}, {'C', 9, 2, 2, 0, 0.003, 54.8, 170, 95},
    {'C', 11,  4, 3, 27906e3, 0.002, 55.3, 10, 0}, {'C', 16, 1, 1, 0, 0.004, 55.0, 180, 112},
    {'C', 19, 18, 3, 27906e3, 0.0008, 55.0,  30, 0}, {'C', 38, 3, 3, 0, 0.002, 55.2, 175, 110},
    {'C', 59,  1, 1, 0, 0.0003, 5, 0, 140},   {'C', 60, 1, 1, 0, 0.0002, 5, 0, 80},
    {'C', 61,  1, 1, 0, 0.0004, 5, 0, 110.5}, {'C', 62, 1, 1, 0, 0.0005, 5, 0, 144.5},
    {'C', 63,  1, 1, 0, 0.0003, 5, 0, 58.75},
    {'J',  1,  2, 2, 0, 0.075, 41.0, 270, 135}, {'J', 4, 1, 1, 0, 0.075, 40.5, 270, 139},
    {'J',  7,  1, 1, 0, 0.0002, 0.1, 30, 127}};

struct Geostationary { int id; double lonDeg; };
constexpr Geostationary kSbas[] = {{9, 143.5}, {18, 129.0}, {17, 145.0}}; // PRN 128, 137, 136
constexpr double kGeostationaryM = 42164.17e3;

// How long a set stands, how long after its start the reference time is, and the steps in which its
// message counts that time.
struct Refresh { char system; double everyS, referenceS, stepS; };
constexpr Refresh kRefresh[] = {
    {'G', 7200, 7200, 16}, {'R', 1800, 900, 900}, {'E', 600, 0, 60}, {'C', 3600, 0, 8},
    {'J', 3600, 3600, 16}};
// clang-format on

const Refresh& refreshOf(char system) {
    for (const Refresh& r : kRefresh)
        if (r.system == system)
            return r;
    throw std::out_of_range(std::string("no ephemerides of system ") + system);
}

// The system's time minus GPS time, s; sets begin at full intervals of it.
double systemShift(char system, GpsTime t) {
    return system == 'C' ? -kBdtLagS : system == 'R' ? kMoscowS - leapS(t) : 0;
}

int setAt(char system, GpsTime t) {
    return static_cast<int>(
        std::floor((t - GpsTime{} + systemShift(system, t)) / refreshOf(system).everyS));
}

// A value for every satellite and purpose, spread over -1..1.
double spread(char system, int id, int purpose) {
    return std::remainder(id * 0.618 + system * 0.377 + purpose * 0.239, 1.0) * 2;
}

// -pi..pi in a signed field of semicircles, which cannot hold pi itself.
double wrapped(double angle) {
    return std::min(std::remainder(angle, kTurn), kTurn / 2 * (1 - 1e-9));
}

double rounded(double value, double step) {
    return std::round(value / step) * step;
}

// A slow swing: value, its rate and half its acceleration at a time.
struct Swing {
    double value, rate, half;
};
Swing swing(double rateAmplitude, double periodS, double phase, double total) {
    const double w = kTurn / periodS;
    return {rateAmplitude / w * std::sin(w * total + phase),
            rateAmplitude * std::cos(w * total + phase),
            -rateAmplitude * w / 2 * std::sin(w * total + phase)};
}

// Elements at toe, given in s of the system's time since the GPS epoch. Angles advance with rates
// that the message can carry exactly, so that successive sets describe one orbit.
Kepler elements(const Shell& s, int id, double toeTotal) {
    Kepler k;
    k.system = s.system;
    k.id = id;
    const bool bdt = s.system == 'C';
    const bool stays = s.axisM == 0;
    const bool geo = bdt && isGeostationary(id);
    const double rate = bdt ? 7.292115e-5 : kEarthRate;
    const double gm = s.system == 'G' || s.system == 'J' ? 3.986005e14 : 3.986004418e14;
    const double step = std::ldexp(3.1415926535898, -43); // of deltaN and nodeDot
    const GpsTime toe = GpsTime{} + toeTotal;             // GPS or BDT week and second
    const int plane = (id - s.first) % s.planes;
    // the plane of the geostationary ones, tilted by 5 degrees, has its node opposite to the X axis
    const double node = geo ? kTurn / 2 : kTurn * plane / s.planes + 0.3;
    k.perigee = wrapped(s.argDeg * kDegree);
    k.sqrtA =
        rounded(std::sqrt(stays ? std::cbrt(gm / (rate * rate)) : s.axisM), std::ldexp(1.0, -19));
    const double motion = std::sqrt(gm) / std::pow(k.sqrtA, 3);
    k.nodeDot = rounded(geo ? 1e-11 : -8e-9, step);
    k.deltaN = rounded(stays ? rate - k.nodeDot - motion
                       // a motion of its own would in years bunch those of a plane
                       : s.system == 'R' ? 0
                                         : 1e-9 * spread(s.system, id, 1),
                       step);
    if (geo) {
        // Equatorial once the tilt is undone, so only the sum of the angles counts. The node is
        // that of the axes at toe; the perigee stands still among the stars.
        k.m0 = wrapped((motion + k.deltaN) * toeTotal);
        k.perigee = wrapped(s.lonDeg * kDegree - node - k.m0);
        k.node = wrapped(node + rate * toe.sow);
    } else {
        const double start =
            stays ? s.lonDeg * kDegree - node - k.perigee : kTurn * (id - s.first) / s.count;
        k.m0 = wrapped(start + (motion + k.deltaN) * toeTotal);
        k.node = wrapped(node + k.nodeDot * toeTotal + rate * (toe.sow - toeTotal));
    }
    k.type = s.system == 'G' ? 1019 : bdt ? 1042 : s.system == 'J' ? 1044 : 1045 + id % 2;
    k.week = bdt ? toe.week - 1356 : s.system == 'E' ? toe.week - 1024 : toe.week % 1024;
    k.toe = k.toc = toe.sow;
    k.ura = 2;
    k.e = s.e;
    const Swing tilt = swing(3e-11, 86400, id, toeTotal);
    k.i0 = s.tiltDeg * kDegree + tilt.value;
    k.idot = tilt.rate;
    const Swing clock = swing(3e-12, 864000, 2.0 * id, toeTotal);
    k.af0 = 2e-4 * spread(s.system, id, 9) + clock.value;
    k.af1 = clock.rate;
    k.af2 = clock.half;
    // clang-format off
    const std::pair<double*, double> rest[] = {
        {&k.crc, 200}, {&k.crs, 90}, {&k.cuc, 5e-6}, {&k.cus, 8e-6}, {&k.cic, 1e-7},
        {&k.cis, 2e-7}, {&k.tgd[0], 1e-8}, {&k.tgd[1], 2e-8}};
    // clang-format on
    for (int i = 1; const auto& [field, size] : rest) // in the axes of toe: small for the geo ones
        *field = (geo ? 0.01 : 1) * size * spread(s.system, id, ++i);
    return k;
}

const Shell& shellOf(char system, int id) {
    for (const Shell& s : kShells)
        if (s.system == system && id >= s.first && id < s.first + s.count)
            return s;
    throw std::out_of_range("no satellite " + satName(system, id));
}

int idOf(const std::string& sat) {
    return std::stoi(sat.substr(1));
}

// s since the GPS epoch, in the system's time, at which set n has its reference time.
double referenceTotal(char system, int set) {
    const Refresh& r = refreshOf(system);
    return set * r.everyS + r.referenceS;
}

// N4 and NT of the GLONASS ICD: four-year interval from 1996 on, day in it, by Moscow time.
void setDate(Glonass& g, double moscowTotal) {
    using namespace std::chrono;
    const sys_days day =
        sys_days{1980y / January / 6} + days(static_cast<int>(std::floor(moscowTotal / 86400)));
    const int interval = (static_cast<int>(year_month_day(day).year()) - 1996) / 4;
    g.n4 = interval + 1;
    g.nt = static_cast<int>((day - sys_days{year(1996 + 4 * interval) / January / 1}).count()) + 1;
}

} // namespace

std::vector<std::string> Constellation::satellites(std::string_view systems) {
    std::vector<std::string> names;
    for (const char system : systems) {
        for (const Shell& s : kShells)
            for (int i = 0; s.system == system && i < s.count; ++i)
                names.push_back(satName(system, s.first + i));
        for (const Geostationary& g : kSbas)
            if (system == 'S')
                names.push_back(satName('S', g.id));
    }
    return names;
}

int Constellation::channel(const std::string& sat) {
    return kChannels[shellOf('R', idOf(sat)).system == 'R' ? idOf(sat) - 1 : 0];
}

Glonass Constellation::glonassAt(const std::string& sat, double moscowTotal, const SatFn& path) {
    Glonass g;
    g.slot = idOf(sat);
    g.channel = channel(sat);
    const GpsTime tb = gpsTimeOf(moscowTotal - kMoscowS);
    const Kepler clock = elements(shellOf('R', g.slot), g.slot, tb - GpsTime{});
    const SatFn orbit = path ? path : [&clock](GpsTime t) { return position(clock, t); };
    g.tb = static_cast<int>(std::fmod(moscowTotal, 86400) / 900);
    g.tkHour = std::max(0, g.tb - 1) / 4; // of the set's first frame
    g.tkMinute = std::max(0, g.tb - 1) % 4 * 15;
    g.pos = 1e-3 * orbit(tb);
    g.vel = 1e-3 * (orbit(tb + 0.5) - orbit(tb + -0.5));
    for (int i = 0; double& a : g.acc.v)
        a = 3e-9 * spread('R', g.slot, ++i);
    g.taun = -clock.af0;
    g.gamn = clock.af1;
    g.m = 1;
    setDate(g, moscowTotal);
    return readGlonass(writeGlonass(g));
}

Constellation::Broadcast Constellation::keplerAt(const std::string& sat, double toeTotal,
                                                 int issue) {
    Kepler k = elements(shellOf(sat.at(0), idOf(sat)), idOf(sat), toeTotal);
    k.iode = k.iodc = issue;
    k = readKepler(writeKepler(k));
    return {k, 0, [k](GpsTime t) { return position(k, t); }};
}

// The state at tb continues the integration of the set before, where there is one.
Glonass Constellation::glonass(const std::string& sat, int set) {
    const auto [held, fresh] = integrated_.try_emplace({sat, set});
    if (!fresh)
        return held->second;
    const auto before = integrated_.find({sat, set - 1});
    const SatFn path = before != integrated_.end() ? trajectory(before->second) : SatFn{};
    return held->second = glonassAt(sat, referenceTotal('R', set), path);
}

Constellation::Broadcast Constellation::make(const std::string& sat, int set) {
    const char system = sat.at(0);
    Broadcast b;
    if (system == 'R') {
        const Glonass g = glonass(sat, set);
        b = {g, 0, trajectory(g)};
    } else {
        const int issues = system == 'E' ? 1024 : system == 'C' ? 24 : 256;
        b = keplerAt(sat, referenceTotal(system, set), set % issues);
    }
    b.set = set;
    return b;
}

Constellation::Broadcast Constellation::aged(const std::string& sat, GpsTime t, double ageS) {
    const char system = sat.at(0);
    const double total = t - GpsTime{} + systemShift(system, t) - ageS;
    const double stepS = refreshOf(system).stepS;
    const double reference = std::floor(total / stepS) * stepS;
    if (system != 'R')
        return keplerAt(sat, reference, static_cast<int>(reference / stepS) % 24);
    const Glonass g = glonassAt(sat, reference, {});
    return {g, 0, trajectory(g)};
}

const Constellation::Broadcast& Constellation::broadcast(const std::string& sat, GpsTime t) {
    const int set = setAt(sat.at(0), t);
    const auto [held, fresh] = current_.try_emplace(sat);
    if (fresh || held->second.set != set)
        held->second = make(sat, set);
    return held->second;
}

Constellation::State Constellation::state(const std::string& sat, GpsTime t) {
    for (const Geostationary& g : kSbas)
        if (sat == satName('S', g.id)) {
            const Vec3 at = turnAxes(2, -g.lonDeg * kDegree, {kGeostationaryM, 0, 0});
            return {[at](GpsTime) { return at; }, [](GpsTime) { return 0.0; }};
        }
    const Broadcast& b = broadcast(sat, t);
    if (const Kepler* const k = std::get_if<Kepler>(&b.ephemeris))
        return {b.position, [k](GpsTime at) { return clockOffset(*k, at) + relativityS(*k, at); }};
    const Glonass* const g = &std::get<Glonass>(b.ephemeris);
    return {b.position, [g](GpsTime at) { return clockOffset(*g, at); }};
}

Navigation Constellation::navigation(GpsTime t) {
    Navigation nav;
    for (const std::string& sat : satellites("GRECJ")) {
        const Broadcast& b = broadcast(sat, t);
        if (const Kepler* const k = std::get_if<Kepler>(&b.ephemeris))
            nav.kepler[sat] = *k;
        else
            nav.glonass[sat] = std::get<Glonass>(b.ephemeris);
    }
    return nav;
}

} // namespace ref
