#pragma once

#include "gateway/station/Epochs.h"

#include <map>
#include <utility>

/// KeptMessages: what whoever begins to listen to a stream needs at once: the station's messages
/// and all current ephemerides.

namespace gateway {

class KeptMessages {
public:
    /// Of a block between epochs, the last of each kind and satellite.
    void keep(const Block& block, Instant at);
    /// All that is current, in one piece; empty where nothing is.
    Bytes current(Instant at) const;
    void clear();

private:
    struct Kept {
        Bytes frame;
        Instant at;
    };
    std::map<int, Kept> station_;                     // by message number
    std::map<std::pair<int, int>, Kept> ephemerides_; // by message number and satellite
};

} // namespace gateway
