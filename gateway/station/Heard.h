#pragma once

#include "gateway/net/Within.h"
#include "gateway/ntrip/SourceTable.h"
#include "gateway/station/Epochs.h"
#include "gateway/station/Look.h"
#include "gnss/ComCoord.h"
#include "rtcm/Frame.h"

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>

/// Heard: what a stream really holds, measured as it passes.

namespace gateway {

/// A stream that has brought no whole epoch for so long is silent.
inline constexpr Duration kSilent = std::chrono::seconds(30);

class Heard {
public:
    void take(const Block& block, Instant at);

    /// Of the last 1005 or 1006 that states one; ECEF, m.
    const std::optional<Vector3>& place() const { return place_; }
    /// When the last whole epoch came.
    std::optional<Instant> lastEpoch() const { return lastEpoch_; }
    std::uint64_t epochs() const { return epochs_; }

    /// What came, by message number.
    std::vector<MessageLook> messages() const;
    /// Receiver and antenna, as the stream names them (1007, 1008, 1033); empty where it does not.
    std::string equipment() const;

    /// What the source table says of the stream: messages, systems, carriers, bits per second,
    /// position.
    void describe(ntrip::StreamEntry& entry) const;

private:
    struct Kind {
        std::uint64_t count = 0, bytes = 0;
        Instant last;
        double intervalS = 0.0; // 0: came once
    };
    void takeFrame(std::span<const std::uint8_t> frame, Instant at);

    /// By message number and satellite, 0 where it is not of one.
    std::map<std::pair<int, int>, Kind> kinds_;
    std::optional<Vector3> place_;
    std::string receiver_, antenna_;
    std::optional<Instant> last_, lastEpoch_;
    double activeS_ = 0.0; // without the time in which nothing came
    std::uint64_t epochs_ = 0, bytes_ = 0;
    std::map<char, std::uint32_t> signals_; // masks (DF395), by system
};

/// Calls take(frame) for each of whole frames in a row.
template <class Take> void forEachFrame(std::span<const std::uint8_t> frames, const Take& take) {
    while (const std::size_t size = wholeFrame(frames)) {
        take(frames.first(size));
        frames = frames.subspan(size);
    }
}

} // namespace gateway
