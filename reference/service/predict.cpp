#include "complete.h"

#include "reference/standard/census.h"
#include "reference/standard/kinds.h"
#include "reference/standard/legacy.h"
#include "slots.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace ref {

namespace {

constexpr double kPresent = 1e6; // m and cycles; what is smaller counts as absent

// What a service says of itself.
const Text1033 kUnnamed{kVirtualStation, "GPPNULLANTENNA", 0, "", "", "", "KRV VRS"};

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

// A station message to its end; std::out_of_range where the message is shorter.
void readStationMessage(const Frame& f) {
    if (f.type <= 1006) {
        read1005(f.body);
    } else if (f.type == 1033) {
        read1033(f.body);
    } else if (f.type != 1230) {
        readAntenna(f.body);
    } else {
        BitSource in(f.body);
        in.u(28);
        for (auto mask = in.u(4); mask != 0; mask &= mask - 1) // DF422: a bias for each bit
            in.u(16);
    }
}

} // namespace

Vec3 virtualPoint(const Vec3& reference, const std::optional<Vec3>& offsetM) {
    Geodetic g = toGeodetic(reference);
    if (offsetM) // turned from the axes of the place to those of the Earth
        return reference + turnAxes(2, -(g.lon + std::numbers::pi / 2),
                                    turnAxes(0, g.lat - std::numbers::pi / 2, *offsetM));
    g.lat += 4.7088369190215936e-05;
    return toXyz(g);
}

Predictor::Predictor(Expectation e)
    : expectation(std::move(e)), virtualAt(virtualPoint(expectation.siteM, expectation.offsetM)),
      answerable_(expectation.siteM, virtualAt), named_(kUnnamed) {}

std::vector<Expected> Predictor::take(std::span<const std::uint8_t> piece) {
    std::vector<Expected> out;
    for (const Frame& f : cutter_.take(piece))
        take(f, out);
    return out;
}

void Predictor::take(const Frame& f, std::vector<Expected>& out) {
    const std::size_t before = out.size();
    if (const auto head = observationHead(f); head && !head->more)
        ++ended_;
    try {
        message(f, out);
    } catch (const std::exception&) {
        return; // contents that do not fit their message: dropped
    }
    for (std::size_t i = before; i < out.size(); ++i)
        out[i].end = f.offset + f.bytes.size();
}

void Predictor::restart() {
    cutter_.forget();
    forgetEpoch();
}

// What the plain stream says of the station itself, the virtual one says there.
void Predictor::forward(const Frame& f, std::vector<Expected>& out) {
    Expected e;
    e.type = f.type;
    e.frame = f.bytes;
    if (expectation.output == Output::rtcm3 && isStation(f.type)) {
        if (f.type != 1230)
            return;
        BitSource in(f.body);
        BitString body;
        body.u(12, in.u(12)).u(12, kVirtualStation);
        for (in.u(12); in.left() > 0;)
            body.u(1, in.u(1));
        e.frame = frame(body.bytes());
    }
    out.push_back(std::move(e));
}

void Predictor::note(const Frame& f) {
    readStationMessage(f);
    if (f.type == 1006)
        antennaHeightM_ = read1005(f.body).heightM;
    if (f.type <= 1006 || f.type == 1230 || expectation.answer == Answer::specified)
        return;
    const Text1033 t = f.type == 1033 ? read1033(f.body) : readAntenna(f.body);
    named_.antenna = t.antenna;
    named_.setup = t.setup;
    if (f.type != 1007)
        named_.antennaSerial = t.antennaSerial;
    if (f.type != 1033)
        return;
    named_.receiver = t.receiver;
    named_.firmware = t.firmware;
    named_.receiverSerial = t.receiverSerial;
}

Answerable::Look Predictor::look(const std::string& sat, GpsTime t) const {
    Answerable::Look l = answerable_.look(sat, t);
    l.unknown = expectation.warm && l.fate == Fate::noEphemeris;
    l.uncertain = l.uncertain || l.unknown || (expectation.omits && l.fate == Fate::answered);
    return l;
}

void Predictor::forgetStation() {
    named_ = kUnnamed;
    antennaHeightM_.reset();
}

Expected Predictor::answerAt(GpsTime time) const {
    Expected e;
    e.time = time;
    e.equipment = named_;
    e.antennaHeightM = antennaHeightM_;
    return e;
}

SpecifiedPredictor::SpecifiedPredictor(Expectation e)
    : Predictor(std::move(e)), time_(expectation.near) {}

void SpecifiedPredictor::forgetEpoch() {
    dropEpoch();
    station_ = 0;
}

// While an epoch is being collected, a message of another station is dropped, and the next one
// accepted whatever its station.
bool SpecifiedPredictor::otherStation(const Frame& f) {
    const auto station = static_cast<int>(BitSource(f.body).u(24) & 0xFFF); // DF003
    const bool other = station_ != 0 && station_ != station;
    station_ = other ? 0 : station;
    return other;
}

void SpecifiedPredictor::message(const Frame& f, std::vector<Expected>& out) {
    // After whatever it passes on, the service decodes as if nothing had been before.
    if (isEphemeris(f.type)) {
        const std::string sat = answerable_.take(f);
        forward(f, out);
        out.back().sat = sat;
        forgetEpoch();
    } else if (isStation(f.type)) {
        readStationMessage(f);
        if (otherStation(f))
            return;
        note(f);
        forward(f, out);
        forgetEpoch();
    } else if (isMsm(f.type) || isLegacy(f.type)) {
        if (!observations(f))
            return;
        Expected reply = answerAt(*collecting_);
        if (expectation.values)
            for (const auto& [sat, columns] : epoch_)
                reply.satellites.push_back(satellite(sat, columns));
        for (const auto& [sat, n] : cells_)
            reply.brought[sat[0]].received += n;
        for (const ExpectedSatellite& s : reply.satellites)
            if (s.fate == Fate::answered || s.fate == Fate::noSignal)
                reply.brought[s.sat[0]].answerable += cells_[s.sat];
        reply.observed = std::move(epoch_);
        if (expectation.output == Output::rtcm3) { // whose epochs are their messages
            const auto sent = [](const ExpectedSatellite& s) {
                return (s.fate == Fate::answered || s.fate == Fate::noSignal) && !s.uncertain;
            };
            reply.certain = std::any_of(reply.satellites.begin(), reply.satellites.end(), sent);
        }
        out.push_back(std::move(reply));
        forgetEpoch();
    }
}

// Whether the message ends an epoch that is to be answered. One that is refused does so, too;
// unless it is another station's, or its time says that it belongs to another epoch, which leaves
// the one being collected without end.
bool SpecifiedPredictor::observations(const Frame& f) {
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
        dropEpoch();
        return false;
    }
    return collecting_ && !head->more;
}

void SpecifiedPredictor::dropEpoch() {
    epoch_.clear();
    cells_.clear();
    collecting_.reset();
    dated_ = false;
}

void SpecifiedPredictor::collect(const Msm& m, GpsTime t) {
    if (!datesEpochs(m.system)) {
        if (!dated_)
            collecting_ = t;
        return; // a service may keep such observations, but sends none
    }
    if (collecting_ && !sameTime(t, *collecting_)) {
        epoch_.clear();
        cells_.clear();
    }
    collecting_ = time_ = t;
    dated_ = true;
    std::vector<std::string> signals = m.signals;
    if (m.msm == 0) // two places, taken as they come
        for (const Cell& c : m.cells)
            if (std::find(signals.begin(), signals.end(), c.signal) == signals.end())
                signals.push_back(c.signal);
    const std::vector<std::string> order = m.msm == 0 ? signals : storedSignals(m.system, signals);
    for (const Cell& c : m.cells) {
        ++cells_[c.sat];
        if (expectation.satellites.contains(c.sat))
            store(c, order);
    }
}

// Places a cell in its carrier's column; the order decides between two.
void SpecifiedPredictor::store(const Cell& c, const std::vector<std::string>& order) {
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

// The configured one, else that of the ephemeris.
int SpecifiedPredictor::channelOf(int slot) const {
    const auto configured = expectation.channels.find(slot);
    return configured != expectation.channels.end() ? configured->second
                                                    : answerable_.channel(slot);
}

ExpectedSatellite SpecifiedPredictor::satellite(const std::string& sat,
                                                const Columns& columns) const {
    ExpectedSatellite s{look(sat, time_), sat, {}};
    const bool phase = std::any_of(columns.begin(), columns.end(),
                                   [](const auto& c) { return c.second.phaseRangeM.has_value(); });
    if (!phase) {
        s.fate = Fate::noPhase;
        s.uncertain = s.unknown = false;
    }
    if (s.fate != Fate::answered && !s.uncertain)
        return s;
    const int channel = sat[0] == 'R' ? channelOf(columns.begin()->second.id) : 0;
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

std::unique_ptr<Predictor> predictorFor(const Expectation& e) {
    if (e.answer == Answer::complete)
        return std::make_unique<CompletePredictor>(e);
    return std::make_unique<SpecifiedPredictor>(e);
}

} // namespace ref
