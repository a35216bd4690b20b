#pragma once

#include "gateway/station/Look.h"
#include "gateway/station/Series.h"
#include "gateway/watch/Alarms.h"
#include "gateway/watch/EventLog.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

/// Reports: what the gateway knows, as JSON (gateway/web/openapi.json) and for Prometheus (text
/// format 0.0.4). Texts of others are made well-formed; no number is one that JSON lacks.

namespace gateway {

/// A station among others.
struct StationRow {
    const std::string& name;
    const std::string& mountpoint;
    StationGlance glance;
    std::vector<Alarm> alarms;
};
std::string summaryJson(const StationRow& row);

struct Totals {
    std::size_t stations = 0, delivering = 0, rovers = 0;
    std::size_t alarms = 0;      // that hold
    std::size_t listeners = 0;   // to what happens
    std::uint64_t sentBytes = 0; // to rovers
};
/// The members of a fleet that are neither its stations nor its alarms.
std::string fleetHeadJson(double atUnixS, const Totals& totals);
std::string alarmsJson(const std::vector<Alarm>& alarms);

struct StationReport {
    StationRow row;
    StationLook look;
    StationWatch& watch;
    const std::deque<Event>& events; // of all stations
};
std::string stationJson(const StationReport& report, Instant now, double nowUnixS);

/// Of one station, or all; the newest first.
std::string eventsJson(const std::deque<Event>& events, const std::optional<std::string>& station);

/// What each station adds to the metrics.
struct StationCounts {
    std::string name;
    StationGlance glance;
    const StationWatch& watch;
    AuditLook audit;
    std::optional<double> clockAheadS; // of a stream of now
    std::uint64_t engineStarts = 0, failovers = 0, roversCut = 0, sentBytes = 0;
};
std::string metricsText(std::span<const StationCounts> stations, const Alarms& alarms,
                        const Totals& totals);

/// The body that a webhook gets.
std::string alarmJson(const Alarm& alarm, const std::string& gateway, double nowUnixS);

} // namespace gateway
