#pragma once

#include "gnss/ComCoord.h"
#include "gnss/EpochObs.h"
#include "rtcm/layouts/ReplyFrame.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

/// VrsObsPack: one epoch of one station on its way from the epoch buffer to the reply.

/// Where the reply frame of a pack is built.
struct ReplyArea {
    int totalLength = 0; // with check word; 0 = no reply
    int frameLength = 0; // without check word
    int bits = 0;        // written so far
    std::int32_t stationId = 0;
    std::array<std::uint8_t, kLongestReply> buffer;
};

struct VrsObsPack {
    std::string name;
    int mjd = 0;
    double sod = 0.0; // GPS time
    EpochObs obs;
    Vector3 xyz{}; // station, m
    /// Geometric range from the reference antenna, m, by configured satellite; 0 = none.
    std::array<double, kMaxSatellites> referenceRange{};
    /// Store slot of the ephemeris chosen for a satellite; -1 = none yet.
    std::array<int, kMaxSatellites> ephemerisIndex{};
    /// Directions from the station, rad, by configured satellite; the azimuth from north over east.
    /// Of the reference model alone.
    std::array<double, kMaxSatellites> elevation{}, azimuth{};
    /// Whether the first two, and the last two, may hold something.
    bool ranged = true, modelled = true;
    ReplyArea reply;
};

/// Empties a pack.
void VrsObsPack_Initial(VrsObsPack& pack);
/// Takes a station's stored epoch, which is empty then; its time is the current one.
void VrsObsPack_Readobs(VrsObsPack& pack, CurrentEpoch& current, std::size_t station);
