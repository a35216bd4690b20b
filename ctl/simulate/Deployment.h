#pragma once

#include "reference/service/predict.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// Deployment: a complete configuration with which a service connects to the simulator.

namespace ctl::simulate {

struct Deployment {
    std::string host;
    int port = 0; // of the first endpoint; the others follow
    int endpoints = 1;
    ref::Vec3 siteM{};
    std::vector<std::string> satellites;
    std::optional<ref::GpsTime> clock;                        // where the service's clock starts
    ref::GpsTime start;                                       // of the session
    std::vector<ref::Answer> answers{ref::Answer::specified}; // of the endpoints, in turn
    ref::Output output = ref::Output::reply;
    std::optional<ref::Vec3> offsetM; // of the virtual station
};

/// Those that init writes for a station with that answer.
std::vector<std::string> satellitesOfEveryStation(ref::Answer answer);

/// Writes the files; one deployment file an endpoint. Their paths. std::runtime_error when a file
/// cannot be written, or one is there that this program did not write.
std::vector<std::filesystem::path> writeDeployment(const std::filesystem::path& directory,
                                                   const Deployment& deployment);

} // namespace ctl::simulate
