#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

/// Rinex: `kestrunectl rinex`, a RINEX 3.05 observation file made of what the service saved with
/// -rawsav: a header in front, the epochs of all files in the order of their times, the Doppler
/// with the sign of the standard.

namespace ctl::rinex {

struct Arguments {
    std::vector<std::string> files;
    std::string out; // a file, a folder, "-" for standard output; empty: this folder
    bool force = false;
    std::string deployment, unit; // a configuration to take the station from
    std::string status;           // a file of common/status to take receiver and signals from
    std::string marker, markerNumber, markerType = "GEODETIC";
    std::string observer, agency, runBy;
    std::string receiver, receiverNumber, receiverVersion;
    std::string antenna, antennaNumber;
    std::string position;              // "X,Y,Z", m
    std::string antennaDelta;          // "HEIGHT,EAST,NORTH", m
    std::vector<std::string> signals;  // "G=1C,2W,5Q"
    std::vector<std::string> channels; // "R01=1"
    std::optional<int> leapSeconds;
};

/// Writes the file; the exit status: 0, or 1 where something was left out or there was no epoch.
/// std::runtime_error where an argument or a file cannot be used.
int runRinex(Arguments arguments);

} // namespace ctl::rinex
