#include "ctl/simulate/Source.h"

#include "ctl/simulate/Encode.h"
#include "reference/service/predict.h"
#include "reference/standard/ephemeris.h"
#include "reference/standard/frame.h"
#include "reference/standard/legacy.h"
#include "reference/standard/station.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace ctl::simulate {

namespace {

constexpr double kStationMessagesS = 10;      // 1006, 1033
constexpr double kOtherStationMessagesS = 30; // 1005, 1007, 1008, 1013, 1230
constexpr double kLateS = 10;                 // without ephemerides at the start
constexpr std::size_t kRotation = 3;          // ephemerides an epoch
constexpr std::size_t kSpoiltAtOnce = 4;
// Around the 7200 s at which an ephemeris is too old, so that some pass it while in use.
constexpr std::array<double, 4> kOldS{7150, 7190, 7195, 9000};
constexpr long kMisbehaviour = 25; // epochs
// East, north, up of the station.
constexpr ref::Vec3 kOtherStationM{8000, 6000, 100};

struct EphemerisWriter {
    ref::Bytes operator()(const ref::Kepler& k) const { return ref::writeKepler(k); }
    ref::Bytes operator()(const ref::Glonass& g) const { return ref::writeGlonass(g); }
};

bool everyS(ref::GpsTime t, double periodS) {
    return std::remainder(t.sow, periodS) > -5e-4 && std::remainder(t.sow, periodS) < 5e-4;
}

std::optional<ref::Vec3> referencePoint(const ref::Frame& f) {
    try {
        if (f.type == 1005 || f.type == 1006)
            return ref::read1005(f.body).xyzM;
    } catch (const std::exception&) { // too short: sent, without a position
    }
    return std::nullopt;
}

} // namespace

SimulatedStation::SimulatedStation(const StationOptions& options)
    : options_(options), sky_(options.siteM),
      other_(ref::virtualPoint(options.siteM, kOtherStationM)) {
    for (ref::Sky* const sky : {&sky_, &other_}) {
        sky->systems = options.systems;
        sky->signals = ref::tracking(options.tracking);
        sky->seed = options.seed;
        sky->noise = options.noise;
    }
    other_.station = sky_.station + 1;
    std::string withEphemerides = options.systems;
    std::erase(withEphemerides, 'S');
    satellites_ = ref::Constellation::satellites(withEphemerides);
    if (options.ephemerides == EphemerisOrder::late)
        withheldUntil_ = std::lround(kLateS * options.rateHz);
    if (options.silentAtStart)
        withheldUntil_ = std::max(withheldUntil_, kMisbehaviour);
}

// Epochs stand at multiples of the interval, in whole milliseconds.
ref::GpsTime SimulatedStation::timeOf(long epoch) const {
    const double ms = std::round(static_cast<double>(epoch - firstOf_) / options_.rateHz * 1000);
    ref::GpsTime t = options_.start + ms / 1000;
    t.sow = std::round(t.sow * 1000) / 1000;
    return t.sow < ref::kWeekS ? t : ref::GpsTime{t.week + 1, 0};
}

std::optional<ref::GpsTime> SimulatedStation::nextTime() const {
    return timeOf(epoch_);
}

void SimulatedStation::skipTo(ref::GpsTime t) {
    if (t - timeOf(epoch_) <= 0)
        return;
    firstOf_ = epoch_;
    options_.start = t;
}

ref::Bytes SimulatedStation::ephemeris(const ref::Constellation::Broadcast& b) const {
    return ref::frame(std::visit(EphemerisWriter{}, b.ephemeris));
}

void SimulatedStation::addStationMessages(std::vector<ref::Bytes>& out, ref::GpsTime t) const {
    const auto add = [&](std::initializer_list<int> types) {
        for (const int type : types)
            out.push_back(stationFrame(type, sky_.station, options_.siteM, t));
    };
    if (everyS(t, kStationMessagesS))
        add({1006, 1033});
    if (everyS(t, kOtherStationMessagesS))
        add({1005, 1007, 1008, 1013, 1230});
}

std::vector<ref::Bytes> SimulatedStation::greeting(ref::GpsTime t) {
    std::vector<ref::Bytes> out;
    for (const int type : {1006, 1033})
        out.push_back(stationFrame(type, sky_.station, options_.siteM, t));
    // what a service on an earlier connection has had, one that starts now has not
    const bool all = options_.ephemerides == EphemerisOrder::before && epoch_ >= withheldUntil_;
    for (const std::string& sat : satellites_)
        if (all || sentSet_.contains(sat)) {
            const auto& b = sky_.constellation.broadcast(sat, t);
            sentSet_[sat] = b.set;
            out.push_back(ephemeris(b));
        }
    return out;
}

// Old sets first, where asked for. Then what is new: all of it, or a few satellites in view, in
// turn.
void SimulatedStation::addEphemerides(std::vector<ref::Bytes>& out, ref::GpsTime t) {
    if (epoch_ < withheldUntil_)
        return;
    for (const auto& [sat, ageS] : spoilt_) {
        out.push_back(ephemeris(ref::Constellation::aged(sat, t, ageS)));
        sentSet_.erase(sat); // the current one comes when it is due again
    }
    const bool old = epoch_ < currentAgainAt_;
    spoilt_.clear();
    const auto send = [&](const std::string& sat) {
        const auto& b = sky_.constellation.broadcast(sat, t);
        sentSet_[sat] = b.set;
        out.push_back(ephemeris(b));
    };
    const auto fresh = [&](const std::string& sat) {
        const auto sent = sentSet_.find(sat);
        if (sent == sentSet_.end())
            return !old;
        return sent->second != sky_.constellation.broadcast(sat, t).set;
    };
    if (options_.ephemerides == EphemerisOrder::before) {
        for (const std::string& sat : satellites_)
            if (fresh(sat))
                send(sat);
        return;
    }
    std::size_t room = kRotation;
    for (const std::string& sat : inView_)
        if (room > 0 && sentSet_.contains(sat) && fresh(sat)) {
            send(sat);
            --room;
        }
    for (std::size_t i = 0; i < inView_.size() && room > 0 && !old; ++i, --room)
        send(inView_[turn_++ % inView_.size()]);
}

std::vector<ref::Bytes> SimulatedStation::messagesOf(ref::Sky& sky, ref::GpsTime t,
                                                     std::vector<std::string>& seen) const {
    std::vector<ref::Bytes> out;
    const auto see = [&](const std::vector<ref::Cell>& cells) {
        for (const ref::Cell& c : cells)
            if (c.system != 'S' && (seen.empty() || seen.back() != c.sat))
                seen.push_back(c.sat);
    };
    if (options_.msm != 0) {
        for (ref::Msm& m : sky.epoch(t, options_.msm)) {
            m.epochField = options_.quirks.epochField(m.system, t);
            see(m.cells);
            out.push_back(ref::frame(ref::writeMsm(m)));
        }
        return out;
    }
    const std::vector<ref::Cell> cells = sky.observe(t, false);
    see(cells);
    const auto messageOf = [&](char system, bool more) {
        const std::uint32_t epoch = options_.quirks.epochField(system, t);
        return ref::writeLegacy(system, sky.station, epoch, more, cells);
    };
    const ref::Bytes glonass = messageOf('R', false);
    const ref::Bytes gps = messageOf('G', !glonass.empty());
    for (const ref::Bytes& message : {gps, glonass})
        if (!message.empty())
            out.push_back(ref::frame(message));
    return out;
}

std::vector<ref::Bytes> SimulatedStation::observations(ref::GpsTime t) {
    std::vector<std::string> seen;
    std::vector<ref::Bytes> own = messagesOf(sky_, t, seen);
    inView_ = std::move(seen);
    if (!options_.quirks.has(Quirk::twoStations) || own.empty())
        return own;
    std::vector<std::string> unused;
    std::vector<ref::Bytes> out;
    auto next = own.begin();
    for (ref::Bytes& message : messagesOf(other_, t, unused)) {
        if (next + 1 < own.end())
            out.push_back(std::move(*next++));
        out.push_back(std::move(message));
    }
    std::move(next, own.end(), std::back_inserter(out));
    return out;
}

std::optional<EpochFrames> SimulatedStation::next() {
    EpochFrames e;
    e.time = timeOf(epoch_);
    std::vector<ref::Bytes> observed = observations(e.time);
    addStationMessages(e.frames, e.time);
    addEphemerides(e.frames, e.time);
    e.observations = observed.size();
    std::move(observed.begin(), observed.end(), std::back_inserter(e.frames));
    ++epoch_;
    return e;
}

void SimulatedStation::misbehave(FaultPlan& plan, long epoch) {
    if (plan.due(Fault::noEphemerides, epoch))
        withheldUntil_ = epoch_ + kMisbehaviour;
    if (plan.due(Fault::oldEphemerides, epoch) && !inView_.empty()) {
        for (std::size_t i = 0; i < kSpoiltAtOnce; ++i)
            spoilt_.emplace_back(inView_[plan.pick(inView_.size())],
                                 kOldS[plan.pick(kOldS.size())]);
        currentAgainAt_ = epoch_ + kMisbehaviour;
    }
    if (plan.due(Fault::receiverClockJump, epoch))
        sky_.clockJumpS += sky_.clockJumpS > 0 ? -1e-3 : 1e-3;
}

Recording::Recording(const std::string& path, ref::GpsTime near) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error(path + " cannot be read");
    const ref::Bytes bytes{std::istreambuf_iterator<char>(file), {}};
    EpochFrames epoch;
    ref::GpsTime time = near;
    ref::Navigation navigation;
    std::size_t from = 0; // what is broken between good frames is sent with the next one
    for (const ref::Frame& f : ref::goodFrames(bytes)) {
        const std::size_t to = f.offset + f.bytes.size();
        epoch.frames.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(from),
                                  bytes.begin() + static_cast<std::ptrdiff_t>(to));
        from = to;
        if (!siteM)
            siteM = referencePoint(f);
        try {
            navigation.take(f);
        } catch (const std::exception&) { // too short: sent, without a satellite
        }
        const std::optional<ref::Msm> head = ref::headOf(f);
        if (!head)
            continue;
        if (ref::datesEpochs(head->system))
            time = ref::timeNear(*head, time).value_or(time);
        ++epoch.observations;
        if (head->more)
            continue;
        epoch.time = time;
        epochs_.push_back(std::exchange(epoch, {}));
    }
    for (const auto& [sat, k] : navigation.kepler)
        satellites.insert(sat);
    for (const auto& [sat, g] : navigation.glonass)
        satellites.insert(sat);
    if (epochs_.empty())
        throw std::runtime_error(path + " holds no complete epoch of observations");
    epoch.frames.emplace_back(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.end());
    std::move(epoch.frames.begin(), epoch.frames.end(), std::back_inserter(epochs_.back().frames));
}

std::optional<EpochFrames> Recording::next() {
    if (at_ == epochs_.size())
        return std::nullopt;
    return epochs_[at_++];
}

std::optional<ref::GpsTime> Recording::nextTime() const {
    return at_ == epochs_.size() ? std::nullopt : std::optional(epochs_[at_].time);
}

} // namespace ctl::simulate
