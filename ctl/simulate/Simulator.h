#pragma once

#include "ctl/simulate/Endpoint.h"

#include <csignal>
#include <functional>
#include <memory>
#include <vector>

/// Simulator: paces the epochs of a source and gives them to the endpoints.

namespace ctl::simulate {

struct Pace {
    double speed = 1; // simulated seconds a second; 0: each epoch as soon as the last is answered
    bool followClock = false; // every epoch goes out at its own time of the system clock
    double intervalS = 1;     // between epochs
    long epochs = 0;          // 0: without end
};

/// Current GPS time of the system clock.
ref::GpsTime gpsNow();

using Endpoints = std::vector<std::unique_ptr<Endpoint>>;

class Simulator {
public:
    Simulator(Source& source, Endpoints& endpoints, const Pace& pace, FaultPlan stationFaults);

    /// Called once each time that nobody is connected.
    std::function<void()> onWaiting;

    /// Runs to the end of the source or of the pace, until `stop` is set, or until a rover has
    /// gone. Starts once every endpoint has its service and every rover hears it; while no endpoint
    /// has one, or the road to a rover is broken, the time of the stream stands still.
    void run(const volatile std::sig_atomic_t& stop);

    FaultPlan faults;
    long epochs() const { return number_; }

private:
    bool ready() const;
    bool roversHear(double now) const;
    bool roverGone(double now) const;
    bool done() const { return exhausted_ || (pace_.epochs > 0 && number_ >= pace_.epochs); }
    bool allIdle(double now) const;
    bool congested() const;
    void anchor(double now);
    void greet(Endpoint& e);
    double untilDue(double now) const;
    void produce();
    void wait(double most);

    Source& source_;
    Endpoints& endpoints_;
    Pace pace_;
    long number_ = 0;
    long atOnce_ = 0;       // epochs of a burst that do not wait for answers
    double holdUntil_ = 0;  // monotonic; the epochs of a burst are held back until then
    double lastEpochS_ = 0; // monotonic
    bool exhausted_ = false;
    bool started_ = false;
    bool anchored_ = false;
    double anchorS_ = 0; // monotonic time of anchorTime_
    ref::GpsTime anchorTime_;
};

} // namespace ctl::simulate
