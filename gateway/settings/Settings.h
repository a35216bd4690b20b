#pragma once

#include "gateway/net/Address.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// Settings: what the gateway is told to do, by its file or its command line.

namespace gateway {

/// Who may have a stream.
struct Access {
    enum class Who { anyone, users, listed };
    Who who = Who::anyone;
    std::vector<std::string> names; // of `listed`
    friend bool operator==(const Access&, const Access&) = default;
};

struct StationSettings {
    std::string name;
    std::vector<Address> sources; // in order of preference, at least one
    std::optional<Address> ephemerides;
    std::optional<std::array<double, 3>> positionM; // ECEF; else from the stream
    bool followPosition = false;                    // position = "follow"
    std::optional<std::array<double, 3>> offsetM;   // east, north, up; else 300 m north
    enum class Answer { complete, specified };
    Answer answer = Answer::complete;
    std::string clock;      // as the service's "common/clock", for recordings; empty: none
    std::string mountpoint; // of the virtual station; as read: never empty
    std::string identifier; // of the source table; as read: never empty
    Access access;
    Secret password; // with which a receiver may push into `caster:`
    std::vector<Address> push;
    double guardM = 5.0;              // by how much the stream's position may move
    std::optional<double> mostEpochs; // a second, to rovers; else as they come
    std::optional<bool> audit;        // else as audits() has it
    friend bool operator==(const StationSettings&, const StationSettings&) = default;
};

struct CasterSettings {
    std::vector<HostPort> listen; // none: no caster
    std::vector<HostPort> listenTls;
    std::filesystem::path certificate, key;
    std::filesystem::path users; // name:hash; empty: no users
    std::string operatorName = "none";
    std::string country; // ISO 3166, three letters; empty: not known
    std::size_t mostClients = 10'000;
    std::size_t mostPerUser = 100;
    std::size_t mostPerAddress = 200;
    friend bool operator==(const CasterSettings&, const CasterSettings&) = default;
};

/// The page, the API and the metrics.
struct WebSettings {
    std::vector<HostPort> listen{{"127.0.0.1", 8080}}; // none: no page
    /// Who may look: programs of this machine; users of the caster; anyone.
    enum class Access { machine, users, anyone };
    Access access = Access::machine;
    friend bool operator==(const WebSettings&, const WebSettings&) = default;
};

struct AlarmSettings {
    std::vector<std::string> webhooks; // http:// or https://, each gets each alarm as JSON
    std::filesystem::path command;     // runs at each alarm; empty: none
    double delayS = 1.0;               // from an epoch to its answer, above which an alarm begins
    double clockS = 2.0;               // between the stream's time and the machine's
    friend bool operator==(const AlarmSettings&, const AlarmSettings&) = default;
};

struct Settings {
    std::string name; // of the gateway, for who hears of several; empty: the machine's
    std::filesystem::path state = "/var/lib/kestrune-gateway";
    std::filesystem::path engine = "Kestrune"; // found in PATH when it has no '/'
    std::optional<HostPort> externalEngine;    // engines connect here: station N to port + N
    CasterSettings caster;
    WebSettings web;
    AlarmSettings alarms;
    std::vector<StationSettings> stations;
    friend bool operator==(const Settings&, const Settings&) = default;
};

/// Whether what the engine of a station sends is audited: as it is written, else where the gateway
/// starts the engines and has no more than 20 stations.
inline bool audits(const Settings& settings, const StationSettings& station) {
    constexpr std::size_t kMostByDefault = 20;
    return station.audit.value_or(!settings.externalEngine &&
                                  settings.stations.size() <= kMostByDefault);
}

/// Whether a receiver may push its stream.
inline bool takesPushes(const StationSettings& station) {
    return std::any_of(station.sources.begin(), station.sources.end(),
                       [](const Address& a) { return a.scheme == Scheme::caster; });
}

} // namespace gateway
