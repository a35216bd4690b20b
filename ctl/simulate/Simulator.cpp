#include "ctl/simulate/Simulator.h"

#include "gnss/Clock.h"

#include <algorithm>
#include <cmath>
#include <poll.h>

namespace ctl::simulate {

namespace {

constexpr double kUnixToGpsS = 315964800;     // 1970-01-01 to 1980-01-06
constexpr double kLastWaitS = 5;              // for what is owed at the end
constexpr long kBurst = 8;                    // epochs
constexpr std::size_t kMostBacklog = 4 << 20; // bytes
constexpr double kNotLongerS = 0.1;           // between looks at what else is to be done

} // namespace

ref::GpsTime gpsNow() {
    const GTime utc = utcNow();
    return ref::gpsTimeOf(static_cast<double>(utc.time) - kUnixToGpsS + utc.sec);
}

Simulator::Simulator(Source& source, Endpoints& endpoints, const Pace& pace,
                     FaultPlan stationFaults)
    : faults(std::move(stationFaults)), source_(source), endpoints_(endpoints), pace_(pace) {}

bool Simulator::ready() const {
    const auto connected = [](const auto& e) { return e->connected(); };
    return started_ ? std::any_of(endpoints_.begin(), endpoints_.end(), connected)
                    : std::all_of(endpoints_.begin(), endpoints_.end(), connected);
}

bool Simulator::roversHear(double now) const {
    return std::all_of(endpoints_.begin(), endpoints_.end(),
                       [&](const auto& e) { return e->roverHears(now); });
}

bool Simulator::roverGone(double now) const {
    return std::any_of(endpoints_.begin(), endpoints_.end(),
                       [&](const auto& e) { return e->roverGone(now); });
}

bool Simulator::allIdle(double now) const {
    return std::all_of(endpoints_.begin(), endpoints_.end(),
                       [&](const auto& e) { return !e->connected() || e->idle(now); });
}

// The time of the stream begins, or goes on.
void Simulator::anchor(double now) {
    started_ = anchored_ = true;
    anchorS_ = now;
    if (pace_.followClock) {
        const ref::GpsTime clock = gpsNow();
        const double due = std::ceil((clock - ref::GpsTime{}) / pace_.intervalS) * pace_.intervalS;
        source_.skipTo(ref::GpsTime{} + due);
        if (const auto next = source_.nextTime())
            anchorS_ += *next - clock;
    }
    anchorTime_ = source_.nextTime().value_or(ref::GpsTime{});
}

void Simulator::greet(Endpoint& e) {
    e.greeted = true;
    const std::optional<ref::GpsTime> t = source_.nextTime();
    if (!t)
        return;
    for (const ref::Bytes& f : source_.greeting(*t))
        e.queue(f);
}

// A service that does not read stops the stream; what waits for it does not grow without end.
bool Simulator::congested() const {
    return std::any_of(endpoints_.begin(), endpoints_.end(),
                       [](const auto& e) { return e->backlog() > kMostBacklog; });
}

// Seconds until the next epoch is to go out; 0 = now.
double Simulator::untilDue(double now) const {
    if (congested())
        return kNotLongerS;
    if (pace_.speed <= 0)
        return atOnce_ > 0 || allIdle(now) ? 0 : kNotLongerS;
    const std::optional<ref::GpsTime> next = source_.nextTime();
    const double at = next ? anchorS_ + (*next - anchorTime_) / pace_.speed : now;
    return std::max({0.0, at - now, holdUntil_ - now});
}

void Simulator::produce() {
    source_.misbehave(faults, number_);
    const std::optional<EpochFrames> epoch = source_.next();
    exhausted_ = !epoch;
    if (!epoch)
        return;
    for (const auto& e : endpoints_)
        if (e->connected())
            e->queueEpoch(*epoch, number_);
    for (const auto& e : endpoints_)
        if (e->wantsToWrite(monotonicS()))
            e->write();
    lastEpochS_ = monotonicS();
    if (atOnce_ > 0)
        --atOnce_;
    else if (faults.due(Fault::burst, number_)) {
        if (pace_.speed <= 0)
            atOnce_ = kBurst;
        else
            holdUntil_ = lastEpochS_ + kBurst * pace_.intervalS / pace_.speed;
    }
    ++number_;
}

void Simulator::wait(double most) {
    const double now = monotonicS();
    std::vector<pollfd> fds;
    for (const auto& e : endpoints_) {
        const int events =
            (e->wantsToWrite(now) ? POLLOUT : 0) | (e->wantsToRead(now) ? POLLIN : 0);
        fds.push_back({e->listener(), POLLIN, 0});
        fds.push_back({events != 0 ? e->connection() : -1, static_cast<short>(events), 0});
        fds.push_back({e->rover(), POLLIN, 0});
        if (const double until = e->pausedUntil(now); until > now)
            most = std::min(most, until - now);
    }
    timespec limit{};
    limit.tv_nsec = static_cast<long>(std::clamp(most, 0.0, kNotLongerS) * 1e9);
    if (ppoll(fds.data(), fds.size(), &limit, nullptr) <= 0)
        return;
    for (std::size_t i = 0; i < endpoints_.size(); ++i) {
        Endpoint& e = *endpoints_[i];
        const int events = fds[3 * i + 1].revents;
        if (events & (POLLIN | POLLHUP | POLLERR))
            e.read();
        if (events & POLLOUT && e.connection() >= 0)
            e.write();
        if (fds[3 * i + 2].revents != 0)
            e.readRover();
        if (fds[3 * i].revents != 0)
            e.accept();
    }
}

void Simulator::run(const volatile std::sig_atomic_t& stop) {
    bool told = false;
    while (stop == 0 && !roverGone(monotonicS())) {
        if (!ready()) {
            anchored_ = false;
            if (!told && onWaiting && !done())
                onWaiting();
            told = true;
        } else {
            told = false;
            if (!anchored_)
                anchor(monotonicS());
            for (const auto& e : endpoints_)
                if (e->connected() && !e->greeted)
                    greet(*e);
            if (!roversHear(monotonicS()))
                anchored_ = false;
            while (anchored_ && !done() && ready() && untilDue(monotonicS()) <= 0)
                produce();
        }
        const double now = monotonicS();
        for (const auto& e : endpoints_)
            e->settle(now);
        if (done() && (allIdle(now) || now - lastEpochS_ > kLastWaitS))
            break;
        wait(anchored_ && !done() ? untilDue(now) : kNotLongerS);
    }
    for (const auto& e : endpoints_)
        e->finish();
}

} // namespace ctl::simulate
