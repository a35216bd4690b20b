#include "predict.h"

#include "reference/standard/census.h"
#include "reference/standard/kinds.h"
#include "reference/standard/legacy.h"
#include "reference/standard/station.h"
#include "slots.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace ref {

namespace {

constexpr double kOldestS = 7200;
constexpr double kLowestDeg = 5;
constexpr double kPresent = 1e6; // m and cycles; what is smaller counts as absent

// t moved by whole periods to where it is nearest.
GpsTime nearest(GpsTime t, GpsTime to, double periodS) {
    return t + -periodS * std::round((t - to) / periodS);
}

// Highest satellite numbers that a service knows; a message of another one is malformed to it.
constexpr std::pair<char, int> kHighest[] = {{'G', 32}, {'R', 27}, {'E', 36}, {'C', 63}, {'J', 10}};

// Name of an ephemeris' satellite; std::out_of_range for one that does not exist.
std::string nameOf(char system, int id) {
    for (const auto& [letter, highest] : kHighest)
        if (letter == system && id >= 1 && id <= highest)
            return satName(system, id);
    throw std::out_of_range("no such satellite");
}

// The whole message; nothing where its contents do not fit.
std::optional<Msm> contentsOf(const Frame& f) {
    try {
        return isMsm(f.type) ? readMsm(f.body) : readLegacy(f.body);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

bool sameTime(GpsTime a, GpsTime b) {
    return std::abs(a - b) <= 1e-9;
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

// A station message to its end; std::out_of_range where the message is shorter.
void readStationMessage(const Frame& f) {
    BitSource in(f.body);
    std::string text;
    in.u(24); // DF002, DF003
    if (f.type <= 1006) {
        read1005(f.body);
    } else if (f.type == 1033) {
        read1033(f.body);
    } else if (f.type == 1230) {
        in.u(4);
        for (auto mask = in.u(4); mask != 0; mask &= mask - 1) // DF422: a bias for each bit
            in.u(16);
    } else { // 1007, 1008
        in.text(text);
        in.u(8);
        if (f.type == 1008)
            in.text(text);
    }
}

} // namespace

Vec3 virtualPoint(const Vec3& reference) {
    Geodetic g = toGeodetic(reference);
    g.lat += 4.7088369190215936e-05;
    return toXyz(g);
}

const char* name(Fate fate) {
    static constexpr std::array names{
        "answered", "below 5 degrees",    "no ephemeris", "ephemeris too old",
        "no phase", "no signal to carry", "missing"};
    return names[static_cast<std::size_t>(fate)];
}

std::optional<Msm> headOf(const Frame& f) {
    if (!isMsm(f.type) && !isLegacy(f.type))
        return std::nullopt;
    Msm m;
    m.type = f.type;
    m.msm = isMsm(f.type) ? f.type % 10 : 0;
    m.system = isMsm(f.type) ? "GRESJCI"[f.type / 10 - 107] : f.type >= 1009 ? 'R' : 'G';
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
        return nearest(GpsTime{} + (tod - kMoscowS + kLeapS), near, 86400);
    }
    const std::optional<double> s = secondsOfWeek(m.epochField);
    if (!s)
        return std::nullopt;
    return nearest(GpsTime{} + (*s + (m.system == 'C' ? kBdtLagS : 0)), near, kWeekS);
}

Predictor::Predictor(Expectation e)
    : expectation(std::move(e)), virtualAt(virtualPoint(expectation.siteM)),
      time_(expectation.near) {}

std::vector<Expected> Predictor::take(std::span<const std::uint8_t> piece) {
    std::vector<Expected> out;
    for (const Frame& f : cutter_.take(piece)) {
        const std::size_t before = out.size();
        if (const auto head = observationHead(f); head && !head->more)
            ++ended_;
        try {
            message(f, out);
        } catch (const std::exception&) {
            continue; // contents that do not fit their message: dropped
        }
        for (std::size_t i = before; i < out.size(); ++i)
            out[i].end = f.offset + f.bytes.size();
    }
    return out;
}

void Predictor::restart() {
    cutter_.forget();
    startAfresh();
}

// While an epoch is being collected, a message of another station is dropped, and the next one
// accepted whatever its station.
bool Predictor::otherStation(const Frame& f) {
    const auto station = static_cast<int>(BitSource(f.body).u(24) & 0xFFF); // DF003
    const bool other = station_ != 0 && station_ != station;
    station_ = other ? 0 : station;
    return other;
}

void Predictor::message(const Frame& f, std::vector<Expected>& out) {
    if (isEphemeris(f.type)) {
        std::string sat;
        if (f.type == 1020) {
            sat = nameOf('R', readGlonass(f.body).slot);
        } else {
            const Kepler k = readKepler(f.body);
            sat = nameOf(k.system, k.id);
        }
        navigation_.take(f);
        orbits_[sat] = navigation_.satellite(sat);
        forward(f, out);
    } else if (isStation(f.type)) {
        readStationMessage(f);
        if (!otherStation(f))
            forward(f, out);
    } else if (isMsm(f.type) || isLegacy(f.type)) {
        if (!observations(f))
            return;
        Expected reply;
        reply.time = *collecting_;
        if (expectation.values)
            for (const auto& [sat, columns] : epoch_)
                reply.satellites.push_back(satellite(sat, columns));
        reply.observed = std::move(epoch_);
        out.push_back(std::move(reply));
        startAfresh();
    }
}

// Whether the message ends an epoch that is to be answered. One that is refused does so, too;
// unless it is another station's, or its time says that it belongs to another epoch, which leaves
// the one being collected without end.
bool Predictor::observations(const Frame& f) {
    const std::optional<Msm> head = headOf(f);
    if (!head)
        return false; // what it says of its epoch is not known
    const std::optional<GpsTime> t = timeNear(*head, time_);
    if (t && otherStation(f))
        return false;
    const std::optional<Msm> m = t ? contentsOf(f) : std::nullopt;
    if (m) {
        collect(*m, *t);
    } else if (collecting_ && t && datesEpochs(head->system) && !sameTime(*t, *collecting_)) {
        forgetEpoch();
        return false;
    }
    return collecting_ && !head->more;
}

// After whatever it passes on, the service decodes as if nothing had been before.
void Predictor::forward(const Frame& f, std::vector<Expected>& out) {
    out.push_back({0, f.type, f.bytes, {}, {}, {}});
    startAfresh();
}

void Predictor::startAfresh() {
    forgetEpoch();
    station_ = 0;
}

void Predictor::forgetEpoch() {
    epoch_.clear();
    collecting_.reset();
    dated_ = false;
}

void Predictor::collect(const Msm& m, GpsTime t) {
    if (!datesEpochs(m.system)) {
        if (!dated_)
            collecting_ = t;
        return; // a service may keep such observations, but sends none
    }
    if (collecting_ && !sameTime(t, *collecting_))
        epoch_.clear();
    collecting_ = time_ = t;
    dated_ = true;
    std::vector<std::string> signals = m.signals;
    if (m.msm == 0) // two places, taken as they come
        for (const Cell& c : m.cells)
            if (std::find(signals.begin(), signals.end(), c.signal) == signals.end())
                signals.push_back(c.signal);
    const std::vector<std::string> order = m.msm == 0 ? signals : storedSignals(m.system, signals);
    for (const Cell& c : m.cells)
        if (expectation.satellites.contains(c.sat))
            store(c, order);
}

// Places a cell in its carrier's column; the order decides between two.
void Predictor::store(const Cell& c, const std::vector<std::string>& order) {
    const auto rank = std::find(order.begin(), order.end(), c.signal);
    const auto bands = expectation.bands.find(c.system);
    if (rank == order.end() || bands == expectation.bands.end() ||
        bands->second.find(c.signal[0]) == std::string::npos)
        return;
    Columns& columns = epoch_[c.sat];
    const auto held = columns.find(c.signal[0]);
    if (held == columns.end() || std::find(order.begin(), order.end(), held->second.signal) <= rank)
        columns[c.signal[0]] = c;
}

// Of the clock's reference time against the epoch; BDT is compared as it stands.
double Predictor::ageS(const std::string& sat) const {
    if (sat[0] != 'R')
        return std::remainder(navigation_.kepler.at(sat).toc - time_.sow, kWeekS);
    const double tod = std::fmod(time_.sow - kLeapS + kMoscowS, 86400.0);
    return std::remainder(navigation_.glonass.at(sat).tb * 900.0 - tod, 86400.0);
}

ExpectedSatellite Predictor::satellite(const std::string& sat, const Columns& columns) const {
    ExpectedSatellite s;
    s.sat = sat;
    const auto orbit = orbits_.find(sat);
    if (orbit != orbits_.end()) {
        const RangeChange c = rangeChange(orbit->second, expectation.siteM, virtualAt, time_);
        s.direction = c.direction;
        s.changeM = c.deltaM;
    }
    const bool phase = std::any_of(columns.begin(), columns.end(),
                                   [](const auto& c) { return c.second.phaseRangeM.has_value(); });
    if (!phase)
        s.fate = Fate::noPhase;
    else if (orbit == orbits_.end())
        s.fate = Fate::noEphemeris;
    else if (std::abs(ageS(sat)) > kOldestS)
        s.fate = Fate::oldEphemeris;
    else if (s.direction.elevationDeg < kLowestDeg)
        s.fate = Fate::low;
    s.uncertain = (s.fate == Fate::answered || s.fate == Fate::low) &&
                  std::abs(s.direction.elevationDeg - kLowestDeg) < 1e-4;
    if (s.fate != Fate::answered && !s.uncertain)
        return s;
    const int channel = sat[0] == 'R' ? expectation.channels.at(columns.begin()->second.id) : 0;
    const std::set<std::string>& carried = expectation.carried.at(sat[0]);
    for (const auto& [digit, c] : columns) {
        if (!carried.contains(c.signal) || !c.pseudorangeM || !c.phaseRangeM)
            continue;
        const double wavelengthM = kLightSpeed / frequencyHz(c.system, c.signal, channel);
        const ExpectedCell cell{*c.pseudorangeM + s.changeM, *c.phaseRangeM + s.changeM,
                                wavelengthM, c.cnr};
        if (std::abs(cell.pseudorangeM) > kPresent &&
            std::abs(cell.phaseRangeM) / wavelengthM > kPresent)
            s.cells[c.signal] = cell;
    }
    if (s.cells.empty() && s.fate == Fate::answered)
        s.fate = Fate::noSignal;
    return s;
}

} // namespace ref
