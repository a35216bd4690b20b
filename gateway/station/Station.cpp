#include "gateway/station/Station.h"

#include "base/Findings.h"
#include "ctl/simulate/Calendar.h"
#include "ctl/simulate/Simulator.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace gateway {

using namespace std::chrono_literals;

namespace {

constexpr Duration kPlaceLimit = 60s;  // then it is told that none came
constexpr Duration kOwnEphemeris = 3h; // as long the station's own serves
constexpr std::size_t kMostMerged = std::size_t{16} * 1024;

std::string shown(const Vector3& place) {
    return text("%.4f %.4f %.4f", place[0], place[1], place[2]);
}

/// Epochs may be farther apart than silence is long.
Duration silenceOf(const StationSettings& settings) {
    const double intervalS = settings.mostEpochs ? 1.0 / *settings.mostEpochs : 0.0;
    return kSilent + std::chrono::duration_cast<Duration>(std::chrono::duration<double>(intervalS));
}

/// What the sources and the engine need of settings: the rest is as in a file without it.
StationSettings ofStream(StationSettings settings) {
    const StationSettings others;
    settings.identifier = others.identifier;
    settings.access = others.access;
    settings.password = others.password;
    settings.push = others.push;
    settings.guardM = others.guardM;
    settings.mostEpochs = others.mostEpochs;
    return settings;
}

/// As the engine reads it from its deployment.
ref::Vec3 asWritten(const Vector3& m) {
    const auto rounded = [](double x) { return std::round(x * 1e4) / 1e4; };
    return {rounded(m[0]), rounded(m[1]), rounded(m[2])};
}

} // namespace

Station::Station(const StationHost& host, StationSettings settings)
    : host_(host), settings_(std::move(settings)), mountpoint_(host.executor),
      feed_(
          host.executor, settings_.sources, mountpoint_.door,
          [this](Level level, const std::string& text) { sayOf(level, text); },
          [this](const Block& block) { fromFeed(block); }),
      engine_(
          host.executor, [this](Level level, const std::string& text) { sayOf(level, text); },
          [this](Engine::Process process) { return forNewEngine(process); },
          [this](Block block) { fromEngine(std::move(block)); }) {
    mountpoint_.setSilence(silenceOf(settings_));
    if (settings_.ephemerides)
        ephemerides_ = std::make_unique<Feed>(
            host.executor, std::vector{*settings_.ephemerides}, mountpoint_.door,
            [this](Level level, const std::string& text) { sayOf(level, "ephemerides: " + text); },
            [this](const Block& block) { fromEphemerides(block); });
}

bool Station::canTake(const StationSettings& settings) const {
    return ofStream(settings) == ofStream(settings_);
}

void Station::take(StationSettings settings) {
    if (settings.password != settings_.password && mountpoint_.door.taken()) {
        sayOf(Level::notice, "the receiver that pushes is sent away: the password is another one");
        mountpoint_.door.shut();
    }
    settings_ = std::move(settings);
    mountpoint_.setSilence(silenceOf(settings_));
    sayOf(Level::notice, "goes on with changed settings");
}

void Station::stop() {
    feed_.stop();
    if (ephemerides_)
        ephemerides_->stop();
    engine_.stop();
    endAudit();
    mountpoint_.close();
}

bool Station::idle() const {
    return feed_.idle() && engine_.idle() && (!ephemerides_ || ephemerides_->idle());
}

void Station::start() {
    feed_.start();
    if (ephemerides_)
        ephemerides_->start();
    if (settings_.positionM || host_.externalEngine) {
        place_ = settings_.positionM;
        startEngine();
    }
}

void Station::tick(Instant now) {
    feed_.tick(now);
    glanceAt(now);
    if (!engine_.active() && !toldNoPlace_ && firstEpoch_ && now - *firstEpoch_ > kPlaceLimit) {
        toldNoPlace_ = true;
        sayOf(Level::warning, "the stream states no position (1005, 1006): write position = [X, Y, "
                              "Z] for this station");
    }
}

std::optional<ntrip::StreamEntry> Station::tableEntry(Instant now) const {
    const Heard& heard = mountpoint_.heard();
    if (heard.epochs() == 0)
        return std::nullopt;
    ntrip::StreamEntry entry;
    entry.mountpoint = settings_.mountpoint;
    entry.identifier = settings_.identifier;
    entry.generator = "Kestrune";
    entry.authentication = settings_.access.who == Access::Who::anyone ? 'N' : 'B';
    heard.describe(entry);
    if (!mountpoint_.delivers(now) || !moved_.empty()) {
        const auto silent = std::chrono::floor<std::chrono::seconds>(now - *heard.lastEpoch());
        entry.misc = "no data for " + std::to_string(silent.count()) + " s";
        if (!moved_.empty())
            entry.misc += ", the position has moved";
    }
    return entry;
}

void Station::fromFeed(const Block& block) {
    const Instant now = std::chrono::steady_clock::now();
    if (block.kind == Block::Kind::between)
        lookAtPlace();
    if (block.kind == Block::Kind::epoch) {
        firstEpoch_ = firstEpoch_.value_or(now);
        watch_.cameIn(block, now);
    }
    if (!moved_.empty())
        return;
    toEngine(block.bytes, block.kind);
    if (block.kind != Block::Kind::between && !merged_.empty())
        toEngine(std::exchange(merged_, {}), Block::Kind::between);
}

void Station::toEngine(Bytes block, Block::Kind kind) {
    const auto shared = std::make_shared<const Bytes>(std::move(block));
    if (engine_.send(shared, kind) && audit_)
        audit_->sent(*shared);
}

/// Only for satellites for which the station sends none, each issue once, and none that is older
/// than the one taken before: streams that are put together of several send both.
void Station::fromEphemerides(const Block& block) {
    const Instant now = std::chrono::steady_clock::now();
    forEachFrame(block.bytes, [&](std::span<const std::uint8_t> frame) {
        if (headOf(frame).kind != FrameHead::Kind::ephemeris)
            return;
        const auto own = feed_.active().kept().lastOfSatellite(frame);
        const auto* const last = others_.lastOf(frame);
        if ((own && now - *own < kOwnEphemeris) || merged_.size() > kMostMerged)
            return;
        if (last && now - last->at < kOwnEphemeris &&
            (std::ranges::equal(last->frame, frame) ||
             secondsBetweenIssues(last->frame, frame).value_or(0.0) < 0.0))
            return;
        others_.keep({Bytes(frame.begin(), frame.end())}, now);
        merged_.insert(merged_.end(), frame.begin(), frame.end());
    });
}

/// What both streams have said.
Bytes Station::forNewEngine(Engine::Process process) {
    const Instant now = std::chrono::steady_clock::now();
    Bytes out = feed_.active().kept().current(now);
    const Bytes others = others_.current(now);
    out.insert(out.end(), others.begin(), others.end());
    if (audit_) {
        audit_->connected(process, engineClock());
        audit_->sent(out);
    }
    return out;
}

void Station::fromEngine(Block block) {
    const Instant now = std::chrono::steady_clock::now();
    const auto publish = [&](Block one) {
        if (!moved_.empty() || (one.kind == Block::Kind::epoch && tooSoon(one)))
            return;
        if (one.kind == Block::Kind::epoch)
            watch_.wentOut(one, now);
        mountpoint_.publish(std::move(one), now);
    };
    if (!audit_)
        return publish(std::move(block));
    for (Block& right : audit_->take(block, now))
        publish(std::move(right));
}

/// Rovers are to get fewer epochs than come.
bool Station::tooSoon(const Block& epoch) {
    if (!settings_.mostEpochs)
        return false;
    constexpr double tolerance = 0.01; // of an interval
    const auto later = lastSent_ ? secondsBetween(*lastSent_, epoch.first) : std::nullopt;
    if (later && *later > 0.0 && *later * *settings_.mostEpochs < 1.0 - tolerance)
        return true;
    lastSent_ = epoch.first;
    return false;
}

void Station::lookAtPlace() {
    const auto& stated = feed_.active().heard().place();
    if (!stated || host_.externalEngine)
        return;
    if (!place_) {
        place_ = stated;
        sayOf(Level::notice, "the stream states the position " + shown(*place_));
        return startEngine();
    }
    const double off = distance(*stated, *place_);
    if (off <= settings_.guardM) {
        moved_.clear();
    } else if (settings_.followPosition) {
        sayOf(Level::warning, "the position has moved by " + text("%.2f m", off) + " to " +
                                  shown(*stated) + "; the virtual station follows");
        place_ = stated;
        startEngine();
    } else {
        moved_ = "the stream states the position " + shown(*stated) + ", " + text("%.2f m", off) +
                 " from " + shown(*place_);
    }
}

void Station::startEngine() {
    mountpoint_.forget();
    EnginePlan plan{host_.engine, host_.state / settings_.name, host_.externalEngine, {}};
    ctl::init::Station& deployment = plan.deployment;
    deployment.name = ctl::init::stationName(settings_.name);
    if (place_)
        deployment.xyz = *place_;
    deployment.answer =
        settings_.answer == StationSettings::Answer::complete ? "complete" : "specified";
    deployment.clock = settings_.clock;
    deployment.offset = settings_.offsetM;
    startAudit(deployment);
    engine_.start(std::move(plan));
}

/// At its start.
ref::GpsTime Station::engineClock() const {
    return ctl::simulate::parseUtc(settings_.clock).value_or(ctl::simulate::gpsNow());
}

void Station::endAudit() {
    if (audit_)
        audit_->tellCounts();
    audit_.reset();
}

void Station::startAudit(const ctl::init::Station& deployment) {
    endAudit();
    if (!host_.audits || !place_)
        return;
    ref::Expectation terms;
    terms.answer = settings_.answer == StationSettings::Answer::complete ? ref::Answer::complete
                                                                         : ref::Answer::specified;
    terms.siteM = asWritten(*place_);
    if (settings_.offsetM)
        terms.offsetM = asWritten(*settings_.offsetM);
    terms.omits = host_.externalEngine.has_value();
    for (const ctl::init::Satellite& s : ctl::init::satellitesOf(deployment)) {
        terms.satellites.insert(s.name);
        if (s.channel)
            terms.channels[std::stoi(s.name.substr(1))] = *s.channel;
    }
    audit_ = std::make_unique<Audit>(
        std::move(terms), [this](Level level, const std::string& text) { sayOf(level, text); });
}

void Station::sayOf(Level level, const std::string& text) const {
    say(level, settings_.name, text);
}

} // namespace gateway
