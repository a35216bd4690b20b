#pragma once

#include "ctl/status/StatusFile.h"
#include "gateway/net/Say.h"
#include "gateway/net/Within.h"

#include <optional>
#include <string_view>

/// EphemerisWatch: tells of the satellites for which an engine has no ephemeris. Right after a
/// start that is expected, and nothing is said; what lasts for a minute is one line for all of
/// them.

namespace gateway {

/// Whether a line of an engine says this of one satellite.
bool tellsOfMissingEphemeris(std::string_view line);

class EphemerisWatch {
public:
    explicit EphemerisWatch(Say say) : say_(std::move(say)) {}
    /// From time to time, what the status of the engine says.
    void look(const ctl::status::StatusFile& status, Instant now);

private:
    Say say_;
    bool told_ = false;
    std::optional<Instant> since_; // otherwise than it was told
};

} // namespace gateway
