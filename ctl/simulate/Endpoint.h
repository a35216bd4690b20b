#pragma once

#include "ctl/simulate/Faults.h"
#include "ctl/simulate/FileDescriptor.h"
#include "ctl/simulate/Rover.h"
#include "ctl/simulate/Source.h"
#include "reference/service/judge.h"

#include <memory>
#include <ostream>
#include <span>
#include <string>

/// Endpoint: one TCP endpoint that a service connects to: what is sent goes to the judge first,
/// what comes back, there or at a rover, after it. Times are seconds of the monotonic clock.

namespace ctl::simulate {

double monotonicS();

/// How bytes are cut into blocks: all at once, N bytes, or random sizes.
struct Split {
    std::size_t bytes = 0; // 0: not cut
    bool random = false;
};

class Endpoint {
public:
    /// Listens. std::runtime_error names the address that cannot be had.
    Endpoint(const std::string& host, int port, const ref::Expectation& expectation, FaultPlan plan,
             Split split);

    int listener() const { return listener_.get(); }
    int connection() const { return connection_.get(); }
    bool connected() const { return connection_.open() && !ended_; }
    /// What is to come back is what this command gets through a caster. It is started, and again
    /// when it ends.
    void hearRover(const std::string& command);
    int rover() const { return rover_ ? rover_->output() : -1; }
    /// Whether the road to the rover is whole, or has had time enough to be; true without one.
    bool roverHears(double now) const;
    /// It has ended, and got nothing since, for long.
    bool roverGone(double now) const;
    /// Takes the service that is there in place of an earlier one.
    void accept();

    void queue(const ref::Bytes& bytes);
    /// The epoch, with what goes wrong in it.
    void queueEpoch(const EpochFrames& epoch, long number);

    bool wantsToWrite(double now) const { return connected() && pending() && now >= writeFrom_; }
    bool wantsToRead(double now) const { return connection_.open() && now >= readFrom_; }
    /// When a pause of its own ends; `now` without one.
    double pausedUntil(double now) const;
    void write();
    void read();
    void readRover();
    /// Ends the connection where that is due and everything owed has come or is given up; starts a
    /// rover that has ended.
    void settle(double now);

    bool pending() const { return sent_ < out_.size(); }
    /// Nothing to send, nothing owed, or nothing has come for so long that nothing will.
    bool idle(double now) const;
    void finish();

    /// What is sent goes here too, byte for byte.
    std::ostream* record = nullptr;
    /// What comes back goes here too.
    std::ostream* replies = nullptr;

    std::size_t backlog() const { return out_.size() - sent_; }

    ref::Judge judge;
    FaultPlan plan;
    int connections = 0;
    int roverConnections = 0; // that got something
    std::uint64_t bytesSent = 0;
    int epochs = 0;       // given to it
    bool greeted = false; // has had what a new connection gets

private:
    enum class End { none, close, reset, halfClose };

    void queueCut(const EpochFrames& epoch);
    void disconnect();
    void came(std::span<const std::uint8_t> bytes);
    std::size_t blockSize();

    FileDescriptor listener_;
    FileDescriptor connection_;
    std::unique_ptr<Rover> rover_;
    bool roverHeard_ = false; // something, since it was started
    double connectedAt_ = 0;
    double roverEndedAt_ = 0; // and has got nothing since; 0 = never
    double roverFrom_ = 0;    // it may start again
    Split split_;
    ref::Bytes out_; // queued; sent up to sent_
    std::size_t sent_ = 0;
    std::size_t pauseAt_ = 0;  // a stall begins when so much of out_ is sent; 0 = none
    std::uint64_t queued_ = 0; // bytes handed to the judge in all
    double writeFrom_ = 0;
    double readFrom_ = 0;
    double lastMoved_ = 0; // when a byte last went or came
    End end_ = End::none;
    bool ended_ = false; // this side has ended, the other not yet
};

} // namespace ctl::simulate
