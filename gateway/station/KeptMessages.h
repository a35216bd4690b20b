#pragma once

#include "gateway/station/Epochs.h"

#include <map>
#include <optional>
#include <utility>

/// KeptMessages: what whoever begins to listen to a stream needs at once: the station's messages
/// and all current ephemerides.

namespace gateway {

class KeptMessages {
public:
    struct Kept {
        Bytes frame;
        Instant at;
    };
    /// Of a block between epochs, the last of each kind and satellite.
    void keep(const Block& block, Instant at);
    /// All that is current, in one piece; empty where nothing is.
    Bytes current(Instant at) const;
    /// The last ephemeris of the same satellite and kind; null where none has come.
    const Kept* lastOf(std::span<const std::uint8_t> ephemeris) const;
    /// When the last one of the same satellite has come, of whatever kind.
    std::optional<Instant> lastOfSatellite(std::span<const std::uint8_t> ephemeris) const;
    void clear();

private:
    std::map<int, Kept> station_;                     // by message number
    std::map<std::pair<int, int>, Kept> ephemerides_; // by message number and satellite
};

} // namespace gateway
