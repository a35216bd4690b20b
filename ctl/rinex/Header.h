#pragma once

#include "gnss/ComCoord.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// Header: of a RINEX 3.05 observation file, and its long name. GPS time.

namespace ctl::rinex {

struct Header {
    std::string runBy, date; // "20261122 155000 UTC"
    std::string marker, markerNumber, markerType = "GEODETIC";
    std::string observer, agency;
    std::string receiver, receiverNumber, receiverVersion;
    std::string antenna, antennaNumber; // with the radome in its columns
    Vector3 positionM{};
    Vector3 antennaDeltaM{};                        // height, east, north
    std::map<char, std::vector<std::string>> types; // by system, "C1C"
    std::int64_t firstTicks = 0, lastTicks = 0;
    std::int64_t intervalTicks = 0; // 0 = unknown
    std::map<int, int> channels;    // of GLONASS, by slot
    std::optional<int> leapSeconds; // GPS time minus UTC
};

/// The lines of the header. std::runtime_error where a text does not fit its columns.
std::string headerText(const Header& header);

/// "ABCD00XXX_S_20183652330_01D_01S_MO.rnx": a station without the nine characters of a long name
/// gets 00 and XXX; the period is that of the observations, in whole minutes, hours or days.
std::string longName(const Header& header);

/// The type and the radome of "TRM59800.00 NONE" in their columns.
std::string antennaColumns(const std::string& typeAndRadome);

} // namespace ctl::rinex
