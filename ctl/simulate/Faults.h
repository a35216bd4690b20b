#pragma once

#include "reference/standard/bits.h"

#include <array>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

/// Faults: what a simulated station and its connection do wrong, and when.

namespace ctl::simulate {

enum class Fault {
    close,             // the connection ends in mid-epoch
    reset,             // the same, hard
    halfClose,         // this side ends, the other is read on
    stall,             // a pause in mid-frame
    garbage,           // bytes between frames, preambles among them
    bitflip,           // one bit of a frame
    truncate,          // the rest of a frame is missing
    duplicate,         // a frame comes twice
    reorder,           // two neighbouring frames change places
    burst,             // several epochs at once
    slowReader,        // replies are not read for a while
    noEphemerides,     // none are sent for a while
    oldEphemerides,    // sets that are hours old
    receiverClockJump, // by a millisecond
    refusedMessage,    // an observation message whose time, station or counts are wrong
};
inline constexpr std::array<std::string_view, 15> kFaultNames{
    "close",           "reset",
    "half-close",      "stall",
    "garbage",         "bitflip",
    "truncate",        "duplicate",
    "reorder",         "burst",
    "slow-reader",     "no-ephemerides",
    "old-ephemerides", "receiver-clock-jump",
    "refused-message"};
inline std::string_view name(Fault f) {
    return kFaultNames[static_cast<std::size_t>(f)];
}

constexpr bool endsConnection(Fault f) {
    return f <= Fault::halfClose;
}

/// All of them, for people.
std::string faultNames();

/// The faults asked for; the same seed gives the same faults at the same epochs.
class FaultPlan {
public:
    FaultPlan() = default;
    /// Requests such as "close" (now and then) or "close@120" (at the epoch of that number, from
    /// 0). std::invalid_argument names the request that cannot be understood.
    FaultPlan(const std::vector<std::string>& requests, std::uint64_t seed);

    /// Whether the fault happens at an epoch; counts it.
    bool due(Fault f, long epoch);
    bool asked(Fault f) const { return wanted_.contains(f); }
    /// 0..bound-1
    std::size_t pick(std::size_t bound) {
        return bound == 0 ? 0 : static_cast<std::size_t>(random_() % bound);
    }

    std::map<Fault, int> done; // how often each happened

private:
    struct Wanted {
        bool nowAndThen = false;
        std::vector<long> epochs;
    };
    std::map<Fault, Wanted> wanted_;
    std::mt19937_64 random_;
};

/// The epoch's bytes with the faults of contents that are due.
ref::Bytes spoiled(std::vector<ref::Bytes> frames, FaultPlan& plan, long epoch);

} // namespace ctl::simulate
