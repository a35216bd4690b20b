#include "msm.h"

#include "orbit.h"

#include <algorithm>
#include <map>
#include <set>

namespace ref {

namespace {

constexpr double kRateM = 1e-4; // m/s per step of DF404

// clang-format off
// Signals of the MSM systems in order of their message numbers, from id 1 on, "--" unassigned. From
// id 17 on those of C are not the standard's: a service has a table of its own.
constexpr std::string_view kSignals[] = {
    "--1C1P1W------2C2P2W--------2S2L2X--------5I5Q5X----------1S1L1X",
    "--1C1P--------2C2P",
    "--1C1A1B1X1Z--6C6A6B6X6Z--7I7Q7X--8I8Q8X--5I5Q5X",
    "--1C--------------------------------------5I5Q5X",
    "--1C------------6S6L6X------2S2L2X--------5I5Q5X----------1S1L1X",
    "--2I2Q2X1I1Q1X6I6Q6X------7I7Q7X5I5Q5X7A7B7C8I8Q8X1A1B1C1X1Y1Z",
    "------------------------------------------5A"};

// Carriers in MHz by band digit, and what a GLONASS channel adds.
struct Carrier { std::string_view systems; char band; double mhz, stepMhz; };
constexpr Carrier kCarriers[] = {
    {"GEJCS", '1', 1575.42, 0}, {"R", '1', 1602, 0.5625}, {"C", '2', 1561.098, 0},
    {"GJ", '2', 1227.60, 0}, {"R", '2', 1246, 0.4375}, {"GEJCSI", '5', 1176.45, 0},
    {"EJ", '6', 1278.75, 0}, {"C", '6', 1268.52, 0}, {"EC", '7', 1207.14, 0},
    {"EC", '8', 1191.795, 0}};
// clang-format on

// m per step of a fine field
double stepM(int exponent) {
    return std::ldexp(kMsM, exponent);
}

std::optional<double> valueOf(int raw, int none, double unit) {
    return raw == none ? std::nullopt : std::optional(raw * unit);
}

std::optional<double> roughM(const RawMsm::Satellite& s) {
    return s.ms == 255 ? std::nullopt : std::optional((s.ms + s.part / 1024.0) * kMsM);
}

std::optional<double> roughRate(const RawMsm::Satellite& s) {
    return s.rate == -8192 ? std::nullopt : std::optional(s.rate * 1.0);
}

std::optional<double> sum(const std::optional<double>& fine, const std::optional<double>& rough) {
    return fine && rough ? std::optional(*fine + *rough) : std::nullopt;
}

// The steps of a fine field; its invalid mark for a value that is absent.
int fineOf(const std::optional<double>& whole, const std::optional<double>& rough, double unit,
           int none) {
    if (!whole || !rough)
        return none;
    const long long steps = std::llround((*whole - *rough) / unit);
    if (steps < none || steps > -(none + 1))
        throw std::out_of_range("signed value wider than its field");
    return static_cast<int>(steps);
}

// The first value of a satellite decides.
RawMsm::Satellite& roughOf(std::vector<RawMsm::Satellite>& satellites, const Cell& c) {
    if (satellites.empty() || satellites.back().id != c.id)
        satellites.push_back({.id = c.id});
    RawMsm::Satellite& s = satellites.back();
    if (s.ms == 255 && c.pseudorangeM) {
        const auto steps = static_cast<int>(std::lround(*c.pseudorangeM / kMsM * 1024));
        if (steps < 0 || steps >= 255 * 1024)
            throw std::out_of_range("rough range not in 0..255 ms");
        s.ms = steps / 1024;
        s.part = steps % 1024;
    }
    if (s.rate == -8192 && c.rateMps)
        s.rate = static_cast<int>(std::lround(*c.rateMps));
    s.info = c.info;
    return s;
}

RawMsm::Cell rawCell(const Cell& c, int signal, const RawMsm::Satellite& s, const MsmForm& f) {
    RawMsm::Cell raw;
    raw.id = c.id;
    raw.signal = signal;
    raw.range = fineOf(c.pseudorangeM, roughM(s), stepM(f.rangeExp), f.rangeNone());
    raw.phase = fineOf(c.phaseRangeM, roughM(s), stepM(f.phaseExp), f.phaseNone());
    raw.lock = c.lock;
    raw.half = c.half ? 1 : 0;
    raw.cnr = static_cast<int>(std::llround(c.cnr / std::ldexp(1.0, f.cnrExp)));
    if (f.rates)
        raw.rate = fineOf(c.rateMps, roughRate(s), kRateM, kRateNone);
    return raw;
}

Cell cellOf(const RawMsm& m, const RawMsm::Cell& raw, const MsmForm& f) {
    const RawMsm::Satellite& s = m.satellite(raw.id);
    Cell c;
    c.system = m.system();
    c.id = raw.id;
    c.sat = satName(c.system, c.id);
    c.signal = raw.signal == 0 ? "" : signalOf(c.system, raw.signal);
    c.pseudorangeM = sum(valueOf(raw.range, f.rangeNone(), stepM(f.rangeExp)), roughM(s));
    c.phaseRangeM = sum(valueOf(raw.phase, f.phaseNone(), stepM(f.phaseExp)), roughM(s));
    if (f.rates)
        c.rateMps = sum(valueOf(raw.rate, kRateNone, kRateM), roughRate(s));
    c.lock = raw.lock;
    c.half = raw.half != 0;
    c.cnr = std::ldexp(raw.cnr, f.cnrExp);
    c.info = s.info;
    return c;
}

Msm interpreted(const RawMsm& raw) {
    Msm m;
    m.type = raw.type;
    m.station = raw.station;
    m.system = raw.system();
    m.msm = raw.type % 10;
    m.epochField = raw.epochField;
    m.more = raw.more;
    m.iods = raw.iods;
    m.reserved = raw.reserved;
    m.steering = raw.steering;
    m.externalClock = raw.externalClock;
    m.smoothed = raw.smoothed;
    m.smoothing = raw.smoothing;
    for (const RawMsm::Satellite& s : raw.satellites)
        m.sats.push_back(s.id);
    for (const int id : raw.signals)
        m.signals.push_back(signalOf(m.system, id));
    for (const RawMsm::Cell& c : raw.cells)
        m.cells.push_back(cellOf(raw, c, msmForm(m.msm)));
    m.exact = raw.exact && raw.reserved == 0 && raw.steering == 0 && raw.externalClock == 0 &&
              raw.smoothed == 0 && raw.smoothing == 0;
    return m;
}

} // namespace

std::string signalOf(char system, int signalId) {
    const std::string_view list = kSignals[static_cast<std::size_t>(msmBase(system) / 10 - 107)];
    const auto at = 2 * static_cast<std::size_t>(signalId - 1);
    const std::string_view name = at < list.size() ? list.substr(at, 2) : "--";
    return std::string(name == "--" ? "" : name);
}

int signalId(char system, std::string_view signal) {
    for (int id = 1; id <= 32; ++id)
        if (!signal.empty() && signalOf(system, id) == signal)
            return id;
    throw std::out_of_range(system + std::string(" has no signal ") + std::string(signal));
}

double frequencyHz(char system, std::string_view signal, int glonassChannel) {
    for (const Carrier& c : kCarriers)
        if (c.systems.find(system) != std::string_view::npos && c.band == signal.at(0))
            return (c.mhz + c.stepMhz * glonassChannel) * 1e6;
    throw std::out_of_range("no carrier for the signal");
}

std::string satName(char system, int id) {
    return system + std::string(id < 10 ? "0" : "") + std::to_string(id);
}

Msm readMsm(const Bytes& body) {
    return interpreted(readRawMsm(body));
}

Msm readOverfullMsm(const Bytes& body) {
    return interpreted(readRawMsm(body, Pairs::more));
}

RawMsm rawOf(const Msm& m) {
    std::map<std::pair<int, int>, Cell> grid; // by satellite id, signal id
    std::set<int> signals;
    for (const Cell& c : m.cells) {
        const int signal = signalId(m.system, c.signal);
        grid[{c.id, signal}] = c;
        signals.insert(signal);
    }
    RawMsm raw;
    raw.type = msmBase(m.system) + m.msm;
    raw.station = m.station;
    raw.epochField = m.epochField;
    raw.more = m.more;
    raw.iods = m.iods;
    raw.reserved = m.reserved;
    raw.steering = m.steering;
    raw.externalClock = m.externalClock;
    raw.smoothed = m.smoothed;
    raw.smoothing = m.smoothing;
    raw.signals.assign(signals.begin(), signals.end());
    for (const auto& [key, c] : grid)
        roughOf(raw.satellites, c);
    for (const auto& [key, c] : grid)
        raw.cells.push_back(rawCell(c, key.second, raw.satellite(c.id), msmForm(m.msm)));
    return raw;
}

Bytes writeMsm(const Msm& m) {
    return writeRawMsm(rawOf(m));
}

// DF402 counts doublings from 32 ms on. DF407 is the time itself up to 64 ms, then 32 steps for
// every doubling.
int lockIndicator(int msm, double lockS) {
    const double ms = std::floor(lockS * 1000 + 1e-6);
    int doublings = 0;
    if (msm < 6) {
        for (double bound = 32; ms >= bound && doublings < 15; bound *= 2)
            ++doublings;
        return doublings;
    }
    while (ms >= std::ldexp(64.0, doublings) && doublings < 20)
        ++doublings;
    return std::min(32 * doublings + static_cast<int>(std::ldexp(ms, -doublings)), 704);
}

std::uint32_t epochField(char system, GpsTime t) {
    const double shift = system == 'C' ? -kBdtLagS : system == 'R' ? kMoscowS - leapS(t) : 0;
    const auto ms = static_cast<std::uint32_t>(std::lround((t + shift).sow * 1000)) % 604800000u;
    // DF416 and DF034: day of week, time of day
    return system == 'R' ? (ms / 86400000u << 27) + ms % 86400000u : ms;
}

} // namespace ref
