#pragma once

#include "gnss/ComCoord.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// Files: the five files of a deployment, whose answer is a plain RTCM 3 stream.

namespace ctl::init {

struct Station {
    std::string name; // 4 characters
    std::string host; // dotted IPv4
    int port = 0;
    Vector3 xyz{};                                // m
    std::string systems;                          // letters of those configured; empty: all
    std::string answer = "complete";              // the key of that name
    std::string clock = {};                       // the same; empty: none
    std::optional<Vector3> offset = std::nullopt; // of the virtual station: east, north, up, m
};

/// A satellite of the deployment.
struct Satellite {
    std::string name;           // "R05"
    std::optional<int> channel; // of GLONASS, where the object file has it
};
std::vector<Satellite> satellitesOf(const Station& station);

/// Four capital letters and digits of the name of a unit; empty where it has none.
std::string stationName(const std::string& unit);

/// Where the files of a deployment lie, and what the service keeps.
struct Layout {
    std::filesystem::path deployment; // FOLDER/NAME.json
    std::filesystem::path folder;     // FOLDER/NAME, of the four other files
    std::filesystem::path kept;       // folder that the service writes in
};

struct NewFile {
    std::filesystem::path path;
    std::string content;
};

/// The deployment file first.
std::vector<NewFile> filesOf(const Station& station, const Layout& layout);

/// Writes all of them, or none: std::runtime_error where one is there already or cannot be written.
void writeNew(const std::vector<NewFile>& files);
/// Takes them back.
void removeNew(const std::vector<NewFile>& files);

} // namespace ctl::init
