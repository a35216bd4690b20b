#include "msm.h"

#include "orbit.h"

#include <algorithm>
#include <map>
#include <set>

namespace ref {

namespace {

constexpr double kMsM = kLightSpeed / 1000; // m per ms of range

// clang-format off
// MSM systems in order of their message numbers 107x, 108x, ...; their signals from id 1 on, "--"
// unassigned. From id 17 on those of C are not the standard's: a service has a table of its own.
constexpr std::string_view kSystems = "GRESJCI";
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

// DF400/405, DF401/406, DF402/407, DF403/408: widths, and exponents of their units (ms, ms, dB-Hz).
struct Form { int range, rangeExp, phase, phaseExp, lock, cnr, cnrExp; bool rates; };
constexpr Form kForms[] = {
    {15, -24, 22, -29,  4,  6,  0, false}, {15, -24, 22, -29,  4,  6,  0, true},
    {20, -29, 24, -31, 10, 10, -4, false}, {20, -29, 24, -31, 10, 10, -4, true}};
// clang-format on

std::size_t systemIndex(char letter) {
    const std::size_t at = kSystems.find(letter);
    if (at == std::string_view::npos)
        throw std::invalid_argument(std::string("no MSM of system ") + letter);
    return at;
}

const Form& formOf(int msm) {
    if (msm < 4 || msm > 7)
        throw std::invalid_argument("not one of MSM4 to MSM7");
    return kForms[msm - 4];
}

struct Rough {
    int ms = 255, part = 0, info = 0; // part in 2^-10 ms
    std::optional<double> rate;
    std::optional<double> rangeM() const {
        return ms == 255 ? std::nullopt : std::optional((ms + part / 1024.0) * kMsM);
    }
};
using Roughs = std::map<int, Rough>; // by satellite id

// Between whole values and those that a message sends beside the rough ones (sign -1).
void addRough(std::vector<Cell>& cells, const Roughs& sats, double sign) {
    const auto add = [sign](std::optional<double>& a, const std::optional<double>& b) {
        a = a && b ? std::optional(*a + sign * *b) : std::nullopt;
    };
    for (Cell& c : cells) {
        const Rough& r = sats.at(c.id);
        add(c.pseudorangeM, r.rangeM());
        add(c.phaseRangeM, r.rangeM());
        add(c.rateMps, r.rate);
        c.info = r.info;
    }
}

// The first value of a satellite decides.
Roughs roughsOf(const std::vector<Cell>& cells) {
    Roughs sats;
    for (const Cell& c : cells) {
        Rough& r = sats[c.id];
        if (r.ms == 255 && c.pseudorangeM) {
            const auto steps = static_cast<int>(std::lround(*c.pseudorangeM / kMsM * 1024));
            if (steps < 0 || steps >= 255 * 1024)
                throw std::out_of_range("rough range not in 0..255 ms");
            r.ms = steps / 1024;
            r.part = steps % 1024;
        }
        if (!r.rate && c.rateMps)
            r.rate = std::round(*c.rateMps);
        r.info = c.info;
    }
    return sats;
}

template <class Io> void header(Io& io, Msm& m) {
    io.u(12, m.station);    // DF003
    io.u(30, m.epochField); // DF004 and its like
    io.flag(m.more);        // DF393
    io.u(3, m.iods);        // DF409
    io.fixed(15, 0);        // DF001, 411, 412, 417, 418
}

template <class Io> void body(Io& io, const Form& f, Roughs& sats, std::vector<Cell>& cells) {
    const auto all = [](auto& list, auto field) { std::for_each(list.begin(), list.end(), field); };
    // clang-format off
    all(sats, [&](auto& s) { io.u(8, s.second.ms); });                                // DF397
    if (f.rates)
        all(sats, [&](auto& s) { io.u(4, s.second.info); });                          // DF419
    all(sats, [&](auto& s) { io.u(10, s.second.part); });                             // DF398
    if (f.rates)
        all(sats, [&](auto& s) { io.orNone(14, s.second.rate, 1.0); });               // DF399
    all(cells, [&](Cell& c) { io.orNone(f.range, c.pseudorangeM, std::ldexp(kMsM, f.rangeExp)); });
    all(cells, [&](Cell& c) { io.orNone(f.phase, c.phaseRangeM, std::ldexp(kMsM, f.phaseExp)); });
    all(cells, [&](Cell& c) { io.u(f.lock, c.lock); });
    all(cells, [&](Cell& c) { io.flag(c.half); });                                    // DF420
    all(cells, [&](Cell& c) { io.u(f.cnr, c.cnr, std::ldexp(1.0, f.cnrExp)); });
    if (f.rates)
        all(cells, [&](Cell& c) { io.orNone(15, c.rateMps, 1e-4); });                 // DF404
    // clang-format on
}

Cell blankCell(char system, int id, const std::string& signal) {
    Cell c;
    c.system = system;
    c.id = id;
    c.signal = signal;
    c.sat = satName(system, id);
    return c;
}

std::vector<int> takeMask(BitSource& b, int width) {
    std::vector<int> ids;
    for (int id = 1; id <= width; ++id)
        if (b.u(1) == 1)
            ids.push_back(id);
    return ids;
}

} // namespace

std::string signalOf(char system, int signalId) {
    const std::string_view list = kSignals[systemIndex(system)];
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

Msm readMsm(const Bytes& bytes) {
    Msm m = readOverfullMsm(bytes);
    if (m.sats.size() * m.signals.size() > kMostPairs)
        throw std::out_of_range("more than 64 pairs of satellite and signal");
    return m;
}

Msm readOverfullMsm(const Bytes& bytes) {
    BitSource io(bytes);
    Msm m;
    io.u(12, m.type);
    m.msm = m.type % 10;
    const Form& f = formOf(m.msm);
    const int row = m.type / 10 - 107;
    if (row < 0 || row >= static_cast<int>(kSystems.size()))
        throw std::invalid_argument("no MSM: type " + std::to_string(m.type));
    m.system = kSystems[static_cast<std::size_t>(row)];
    header(io, m);
    m.sats = takeMask(io, 64);
    for (const int id : takeMask(io, 32))
        m.signals.push_back(signalOf(m.system, id));
    Roughs sats;
    std::size_t bits = 0;
    for (const int id : m.sats) {
        sats[id] = {};
        for (const std::string& signal : m.signals)
            if (bits++ < kMostPairs && io.u(1) == 1)
                m.cells.push_back(blankCell(m.system, id, signal));
    }
    if (bits > kMostPairs) {
        const std::size_t perSat = f.rates ? 36 : 18;
        const int cellBits = f.range + f.phase + f.lock + 1 + f.cnr + (f.rates ? 15 : 0);
        const auto perCell = static_cast<std::size_t>(cellBits);
        const std::size_t left = io.left() - std::min(io.left(), perSat * sats.size());
        while (m.cells.size() < left / perCell)
            m.cells.push_back(blankCell(m.system, m.sats.back(), ""));
    }
    body(io, f, sats, m.cells);
    addRough(m.cells, sats, 1);
    m.exact = io.exact();
    return m;
}

Bytes writeMsm(Msm m) {
    std::map<std::pair<int, int>, Cell> grid; // by satellite id, signal id
    std::set<int> signals;
    for (const Cell& c : m.cells) {
        const int signal = signalId(m.system, c.signal);
        grid[{c.id, signal}] = c;
        signals.insert(signal);
    }
    m.cells.clear();
    for (const auto& [key, c] : grid)
        m.cells.push_back(c);
    Roughs sats = roughsOf(m.cells);
    if (sats.size() * signals.size() > kMostPairs)
        throw std::out_of_range("more than 64 cells");
    BitString io;
    io.fixed(12, 1070 + 10 * static_cast<int>(systemIndex(m.system)) + m.msm);
    header(io, m);
    for (int id = 1; id <= 64; ++id)
        io.flag(sats.count(id) != 0);
    for (int id = 1; id <= 32; ++id)
        io.flag(signals.count(id) != 0);
    for (const auto& [id, rough] : sats)
        for (const int signal : signals)
            io.flag(grid.count({id, signal}) != 0);
    addRough(m.cells, sats, -1);
    body(io, formOf(m.msm), sats, m.cells);
    return io.bytes();
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
    const double shift = system == 'C' ? -kBdtLagS : system == 'R' ? kMoscowS - kLeapS : 0;
    const auto ms = static_cast<std::uint32_t>(std::lround((t + shift).sow * 1000)) % 604800000u;
    // DF416 and DF034: day of week, time of day
    return system == 'R' ? (ms / 86400000u << 27) + ms % 86400000u : ms;
}

} // namespace ref
