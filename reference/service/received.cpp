#include "received.h"

#include "reference/standard/kinds.h"
#include "reference/standard/legacy.h"
#include "reference/standard/orbit.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace ref {

namespace {

constexpr double kRollOverCycles = 1500; // of the phase minus range of the legacy messages
constexpr int kMostCnr = 63;             // dB-Hz, of MSM4

// t moved by whole periods to where it is nearest.
GpsTime nearest(GpsTime t, GpsTime to, double periodS) {
    return t + -periodS * std::round((t - to) / periodS);
}

// The epoch field of a system other than GLONASS, s of its week. The last 20 s of the field's range
// stand for times below zero; nothing for others beyond a week.
std::optional<double> secondsOfWeek(std::uint32_t field) {
    const double s = field * 1e-3;
    constexpr double rangeS = 1073741.824; // 2^30 ms
    if (s > kWeekS && s < rangeS - 20 - 1e-4)
        return std::nullopt;
    return s > kWeekS ? s - rangeS : s;
}

// Whether the message says which whole ambiguity its ranges have.
bool hasWholeRanges(int legacyType) {
    return legacyType % 2 == 0;
}

// DF416 and DF034 from the time of day alone: the day that it counts from.
std::uint32_t glonassField(std::uint32_t tod, GpsTime time) {
    const auto moscowMs = std::llround((utcOf(time) + kMoscowS) * 1000);
    const auto day = static_cast<std::uint32_t>((moscowMs - tod) / 86400000 % 7);
    return day << 27 | tod;
}

// Systems other than the message's own, and satellites that cannot be told, have no MSM id in it.
bool belongs(const Cell& c, char system) {
    return c.system == system && c.id >= 1 && c.id <= (system == 'G' ? 32 : 24);
}

// MSM has no id for the cross-correlated P(Y) of 1002 and 1004.
std::string msmSignal(const std::string& signal) {
    return signal == "2D" ? "2W" : signal;
}

std::optional<double> inMs(const std::optional<double>& m) {
    return m ? std::optional(*m / kMsM) : std::nullopt;
}

ReceivedMessage fromLegacy(const Msm& m, GpsTime time) {
    ReceivedMessage out;
    out.legacy = true;
    out.cells = static_cast<int>(m.cells.size());
    RawMsm& raw = out.raw;
    raw.type = msmBase(m.system) + 4;
    raw.station = m.station;
    raw.epochField = m.system == 'R' ? glonassField(m.epochField, time) : m.epochField;
    raw.more = m.more;
    raw.smoothed = m.smoothed;
    raw.smoothing = m.smoothing;
    std::map<std::pair<int, int>, Cell> grid;
    for (const Cell& c : m.cells) {
        if (!belongs(c, m.system) || (!c.pseudorangeM && !c.phaseRangeM))
            continue;
        const std::pair pair(c.id, signalId(m.system, msmSignal(c.signal)));
        out.pairs.insert(pair);
        if (hasWholeRanges(m.type))
            grid.try_emplace(pair, c);
    }
    std::set<int> signals;
    for (const auto& [key, c] : grid) {
        const auto& [id, signal] = key;
        signals.insert(signal);
        if (raw.satellites.empty() || raw.satellites.back().id != id)
            raw.satellites.push_back({.id = id, .ms = 0});
        RawMsm::Cell& cell = raw.cells.emplace_back();
        cell.id = id;
        cell.signal = signal;
        cell.lock = lockIndicator(4, legacyLockS(c.lock));
        cell.cnr = std::min(kMostCnr, static_cast<int>(std::lround(c.cnr)));
        const int channel = m.system == 'R' ? c.info - 7 : 0;
        const double wavelengthM = kLightSpeed / frequencyHz(m.system, c.signal, channel);
        out.whole.push_back({inMs(c.pseudorangeM), inMs(c.phaseRangeM), std::nullopt,
                             kRollOverCycles * wavelengthM / kMsM});
    }
    raw.signals.assign(signals.begin(), signals.end());
    return out;
}

} // namespace

std::optional<Msm> headOf(const Frame& f) {
    if (!isMsm(f.type) && !isLegacy(f.type))
        return std::nullopt;
    Msm m;
    m.type = f.type;
    m.msm = isMsm(f.type) ? f.type % 10 : 0;
    m.system = isMsm(f.type) ? msmSystem(f.type) : f.type >= 1009 ? 'R' : 'G';
    const std::size_t timeBits = f.type >= 1009 && f.type <= 1012 ? 27 : 30;
    BitSource b(f.body);
    if (b.left() < 24 + timeBits + 1)
        return std::nullopt;
    b.u(12);
    b.u(12, m.station);
    b.u(static_cast<int>(timeBits), m.epochField);
    b.flag(m.more);
    return m;
}

std::optional<GpsTime> timeNear(const Msm& m, GpsTime near) {
    if (m.system == 'R') {
        const double tod = (m.epochField & 0x7FFFFFF) * 1e-3; // without the day of week
        const double days = std::round((utcOf(near) - (tod - kMoscowS)) / 86400);
        return gpsTimeOf(tod - kMoscowS + days * 86400);
    }
    const std::optional<double> s = secondsOfWeek(m.epochField);
    if (!s)
        return std::nullopt;
    return nearest(GpsTime{} + (*s + (m.system == 'C' ? kBdtLagS : 0)), near, kWeekS);
}

std::vector<WholeCell> wholeCells(const RawMsm& m) {
    const MsmForm& f = msmForm(m.type % 10);
    std::vector<WholeCell> out;
    for (const RawMsm::Cell& c : m.cells) {
        const RawMsm::Satellite& s = m.satellite(c.id);
        WholeCell& w = out.emplace_back();
        const double roughMs = s.ms + s.part / 1024.0;
        if (s.ms != 255 && c.range != f.rangeNone())
            w.rangeMs = roughMs + std::ldexp(c.range, f.rangeExp);
        if (s.ms != 255 && c.phase != f.phaseNone())
            w.phaseMs = roughMs + std::ldexp(c.phase, f.phaseExp);
        if (f.rates && s.rate != -8192 && c.rate != kRateNone)
            w.rateMps = s.rate + c.rate * 1e-4;
    }
    return out;
}

std::optional<ReceivedMessage> received(const Frame& f, GpsTime time) {
    try {
        if (isLegacy(f.type))
            return fromLegacy(readLegacy(f.body), time);
        ReceivedMessage m;
        m.raw = readRawMsm(f.body);
        m.whole = wholeCells(m.raw);
        m.cells = static_cast<int>(m.raw.cells.size());
        for (const RawMsm::Cell& c : m.raw.cells)
            m.pairs.emplace(c.id, c.signal);
        return m;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

} // namespace ref
