#pragma once

#include "gateway/settings/Settings.h"
#include "gateway/station/Audit.h"
#include "gateway/station/Engine.h"
#include "gateway/station/Feed.h"
#include "gateway/station/Look.h"
#include "gateway/station/Mountpoint.h"
#include "gateway/station/StationWatch.h"

#include <boost/asio/any_io_executor.hpp>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

/// Station: one reference station from its sources to its rovers: feed, engine, mountpoint.

namespace gateway {

/// What all stations of a gateway share.
struct StationHost {
    asio::any_io_executor executor;
    std::filesystem::path state, engine;
    std::optional<HostPort> externalEngine; // of this station
    bool audits = false;                    // this station
};

class Station {
public:
    Station(const StationHost& host, StationSettings settings);
    Station(const Station&) = delete;
    Station& operator=(const Station&) = delete;

    void start();
    /// Whether a station can go on with other settings: what its sources and its engine need is the
    /// same. Then take() has them in force at once.
    bool canTake(const StationSettings& settings) const;
    void take(StationSettings settings);
    /// Returns at once; the station is to be kept until it is idle.
    void stop();
    bool idle() const;
    /// Once a second.
    void tick(Instant now);

    const StationSettings& settings() const { return settings_; }
    Mountpoint& mountpoint() { return mountpoint_; }
    const Mountpoint& mountpoint() const { return mountpoint_; }
    /// The stream states a place beyond the guard, and nothing goes to rovers until somebody acts.
    /// Empty: it does not.
    const std::string& moved() const { return moved_; }
    /// What the audit withholds; empty: nothing.
    std::string auditTrouble() const { return audit_ ? audit_->trouble() : ""; }
    /// Whether a source has delivered, or an attempt has failed.
    bool tried() const { return feed_.tried(); }
    /// Whether its stream has the time of now: it is no recording.
    bool isLive() const;
    /// How far the stream's time is ahead of the machine's, s; nothing for a recording.
    std::optional<double> clockAheadS() const;
    Instant startedAt() const { return startedAt_; }

    /// As of the last tick.
    const StationGlance& glance() const { return glance_; }
    StationLook look(Instant now) const;
    AuditLook auditLook() const;
    StationWatch& watch() { return watch_; }
    const StationWatch& watch() const { return watch_; }
    std::uint64_t engineStarts() const { return engine_.starts(); }
    std::uint64_t engineFailures() const { return engine_.failures(); }
    std::uint64_t failovers() const { return feed_.changes(); }
    /// Its line of the source table, without the country; nothing while it has never delivered.
    std::optional<ntrip::StreamEntry> tableEntry(Instant now) const;

private:
    void fromFeed(const Block& block);
    void fromEphemerides(const Block& block);
    void fromEngine(Block block);
    bool tooSoon(const Block& epoch);
    void toEngine(Bytes block, Block::Kind kind);
    Bytes forNewEngine(Engine::Process process);
    ref::GpsTime engineClock() const;
    void endAudit();
    void startAudit(const ctl::init::Station& deployment);
    void lookAtPlace();
    Delivery delivery(Instant now) const;
    void glanceAt(Instant now);
    void startEngine();
    void sayOf(Level level, const std::string& text) const;

    StationHost host_;
    StationSettings settings_;
    Mountpoint mountpoint_;
    StationWatch watch_;
    StationGlance glance_;
    const Instant startedAt_ = std::chrono::steady_clock::now();
    Feed feed_;
    std::unique_ptr<Feed> ephemerides_; // of the second stream; null: none
    Bytes merged_;        // ephemerides of the second stream that wait for the end of an epoch
    KeptMessages others_; // ephemerides of the second stream that were taken
    Engine engine_;
    std::unique_ptr<Audit> audit_;      // null: none
    std::optional<FrameHead> lastSent_; // of the last epoch that went to rovers
    std::optional<Vector3> place_;      // of the engine's deployment
    std::string moved_;                 // as moved()
    std::optional<Instant> firstEpoch_;
    bool toldNoPlace_ = false;
};

} // namespace gateway
