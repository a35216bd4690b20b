#pragma once

#include "ctl/simulate/Faults.h"
#include "ctl/simulate/Quirks.h"
#include "reference/standard/frame.h"
#include "reference/standard/sky.h"

#include <optional>

/// Source: where the stream comes from: a simulated station, or a recording.

namespace ctl::simulate {

/// What is sent for one epoch: frames in order, the observation messages last.
struct EpochFrames {
    ref::GpsTime time;
    std::vector<ref::Bytes> frames;
    std::size_t observations = 0; // frames at the end that are the epoch itself
};

class Source {
public:
    Source() = default;
    virtual ~Source() = default;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    /// What a new connection gets before its first epoch.
    virtual std::vector<ref::Bytes> greeting(ref::GpsTime t) = 0;
    /// The next epoch; nothing at the end of a recording.
    virtual std::optional<EpochFrames> next() = 0;
    /// The faults of contents that concern the station itself.
    virtual void misbehave(FaultPlan&, long) {}
    /// Goes on at a later time, after a time without a connection.
    virtual void skipTo(ref::GpsTime) {}
    /// The time of the next epoch.
    virtual std::optional<ref::GpsTime> nextTime() const = 0;
};

enum class EphemerisOrder { before, interleaved, late };

struct StationOptions {
    ref::Vec3 siteM{};
    std::string systems = "GRECJ"; // in the order sent
    std::string tracking = "full";
    int msm = 4; // 0: legacy messages
    double rateHz = 1.0;
    std::uint64_t seed = 1;
    bool noise = false;
    EphemerisOrder ephemerides = EphemerisOrder::before;
    ref::GpsTime start;         // first epoch
    bool silentAtStart = false; // no ephemerides at first
    Quirks quirks;
};

class SimulatedStation : public Source {
public:
    explicit SimulatedStation(const StationOptions& options);
    std::vector<ref::Bytes> greeting(ref::GpsTime t) override;
    std::optional<EpochFrames> next() override;
    void misbehave(FaultPlan& plan, long epoch) override;
    void skipTo(ref::GpsTime t) override;
    std::optional<ref::GpsTime> nextTime() const override;

private:
    ref::GpsTime timeOf(long epoch) const;
    ref::Bytes ephemeris(const ref::Constellation::Broadcast& b) const;
    void addStationMessages(std::vector<ref::Bytes>& out, ref::GpsTime t) const;
    void addEphemerides(std::vector<ref::Bytes>& out, ref::GpsTime t);
    std::vector<ref::Bytes> observations(ref::GpsTime t);
    std::vector<ref::Bytes> messagesOf(ref::Sky& sky, ref::GpsTime t,
                                       std::vector<std::string>& seen) const;

    StationOptions options_;
    ref::Sky sky_;
    ref::Sky other_;                      // of the station whose messages come between
    std::vector<std::string> satellites_; // with ephemerides
    std::vector<std::string> inView_;     // of the last epoch
    std::map<std::string, int> sentSet_;  // number of the set last sent
    std::vector<std::pair<std::string, double>> spoilt_; // satellites that get an old set, its age
    std::size_t turn_ = 0;                               // in the rotation of ephemerides
    long epoch_ = 0;
    long firstOf_ = 0;         // epoch at the last skip
    long withheldUntil_ = 0;   // no ephemerides before this epoch
    long currentAgainAt_ = -1; // old sets are replaced at this epoch
};

/// A recorded stream, epoch by epoch, with whatever is broken in it.
class Recording : public Source {
public:
    /// std::runtime_error when the file cannot be read or holds no epoch. Times are placed in the
    /// week of `near`.
    Recording(const std::string& path, ref::GpsTime near);
    std::vector<ref::Bytes> greeting(ref::GpsTime) override { return {}; }
    std::optional<EpochFrames> next() override;
    std::optional<ref::GpsTime> nextTime() const override;

    std::size_t epochs() const { return epochs_.size(); }
    std::optional<ref::Vec3> siteM;   // of the first 1005 or 1006
    std::set<std::string> satellites; // that have an ephemeris

private:
    std::vector<EpochFrames> epochs_;
    std::size_t at_ = 0;
};

} // namespace ctl::simulate
