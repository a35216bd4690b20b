/// What a stream brings, counted from the messages themselves, whatever a service makes of them:
/// epochs by their end marks, observations by the masks of their messages (RTCM 10403.x, MSM1 to
/// MSM7 and 1001 to 1004, 1009 to 1012).
#pragma once

#include "frame.h"

#include <map>
#include <optional>
#include <string>

namespace ref {

struct ObservationHead {
    char scale = 'G'; ///< messages of one scale have comparable epoch fields
    std::uint32_t epochField = 0;
    bool more = false; ///< multiple-message bit: false ends the epoch
};
/// Nothing for another message.
std::optional<ObservationHead> observationHead(const Frame& f);

struct StreamCounts {
    long ended = 0;   ///< epochs with their end mark
    long unended = 0; ///< epochs whose end mark never came
    long ephemerides = 0;
    long timely = 0;                   ///< of them, those before the end of an epoch
    std::map<std::string, long> cells; ///< observations by system and signal, such as "G1C"
};

/// Also finds frames within what only begins like a frame.
class Census {
public:
    void take(std::span<const std::uint8_t> piece);
    /// Nothing more comes of what has begun.
    void breakOff();
    const StreamCounts& counts() const { return counts_; }

private:
    enum class Rest { comes, never };
    void scan(Rest rest);
    void message(const Frame& f);

    Bytes held_;
    std::map<char, std::uint32_t> epoch_; // epoch fields of the epoch that has begun, by scale
    StreamCounts counts_;
};

} // namespace ref
