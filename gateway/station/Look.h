#pragma once

#include "ctl/status/StatusFile.h"
#include "gateway/station/StationWatch.h"
#include "gnss/ComCoord.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// Look: how a station is at a moment, for the page, for programs and for alarms. Plain data.

namespace gateway {

/// An instant as Unix time.
inline double unixTimeOf(Instant at) {
    const auto ago = std::chrono::steady_clock::now() - at;
    return ctl::status::nowUnixS() - std::chrono::duration<double>(ago).count();
}

enum class Delivery : std::uint8_t {
    starting,   // the first epoch is awaited
    delivering, // epochs reach rovers
    silent,     // none for kSilent
    stopped,    // withheld until somebody acts: the base has moved
    wrong       // withheld by the audit
};

/// What every list shows.
struct StationGlance {
    Delivery delivery = Delivery::starting;
    double sinceUnixS = 0.0;
    std::optional<double> lastEpochUnixS, intervalS, delayS;
    EpochCells received, kept; // of the last epoch, while it is of now
    std::size_t rovers = 0;
    std::optional<Vector3> place; // of the station; ECEF, m
};

struct SourceLook {
    std::string address; // without user and password
    const char* state = "idle";
    bool active = false;
    std::optional<double> deliveringSinceUnixS;
    std::string lastError;
};

/// Messages of a number.
struct MessageLook {
    int number = 0;
    double intervalS = 0.0; // 0: came once
    std::uint64_t messages = 0, bytes = 0;
};

/// A satellite of the last epoch.
struct SatelliteLook {
    std::string name; // "G07"
    const char* fate = "left_out";
    std::optional<double> azimuthDeg, elevationDeg, changeM;
    std::map<std::string, double> cn0DbHz; // by signal
    std::vector<std::string> kept;         // signals
    std::optional<double> ephemerisAgeS;
    std::optional<int> ephemerisIssue;
};

/// What an audit has counted.
struct AuditCounts {
    std::uint64_t epochs = 0;        // right, with at least one value that was compared
    std::uint64_t notAudited = 0;    // epochs without one
    std::uint64_t values = 0;        // observations whose values were compared
    std::uint64_t notCompared = 0;   // observations whose values could not be
    std::uint64_t wrongEpochs = 0;   // not sent
    std::uint64_t wrongMessages = 0; // forwarded ones, not sent
};

/// What the audit has found.
struct AuditLook {
    bool on = false;
    AuditCounts counts;
    /// The largest differences of the last epoch, by system, with their bounds, m.
    struct Worst {
        char system;
        double rangeM, phaseM, rangeBoundM, phaseBoundM;
    };
    std::vector<Worst> worst;
};

/// A rover that gets the stream.
struct RoverLook {
    std::string user, address, agent;
    double sinceUnixS = 0.0;
    std::uint64_t sentBytes = 0;
    std::size_t waitingBytes = 0;
    struct Place {
        double latitudeDeg, longitudeDeg, heightM, atUnixS;
    };
    std::optional<Place> place;
};

/// Everything about one station.
struct StationLook : StationGlance {
    std::string identifier,
        descriptor; // descriptor: receiver and antenna, as the stream names them
    std::optional<Vector3> virtualPlace;
    std::array<double, 3> offsetM{}; // east, north, up
    std::vector<SourceLook> sources;
    std::optional<SourceLook> ephemerides;
    std::uint64_t failovers = 0;
    const char* engineState = "waiting";
    std::uint64_t engineStarts = 0;
    std::optional<double> engineSinceUnixS;
    std::vector<SatelliteLook> sky;
    std::vector<MessageLook> received, sent;
    AuditLook audit;
    std::vector<RoverLook> rovers; // the newest first
};

} // namespace gateway
