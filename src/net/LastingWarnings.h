#pragma once

#include "base/Print.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <functional>
#include <string_view>

/// LastingWarnings: which warnings last, so that each is told when it begins and when it ends. One
/// that comes with epochs has ended when epochs go on and a minute has passed without it, so that
/// a satellite that is seen now and then gives no line each time. Bounded: where too many last at
/// once, further ones are not told.

class LastingWarnings {
public:
    using Instant = std::chrono::nanoseconds; // of the monotonic clock
    /// Gets the line with which a warning began, without its line end.
    using Told = std::function<void(std::string_view line)>;

    /// The level of a warning that is printed now.
    Level levelOf(const Lasting& what, std::string_view line, Instant now);
    /// Tells and forgets what has ended by now.
    void epochEnd(Instant now, const Told& told);
    /// Tells and forgets all of a cause.
    void ended(Cause cause, const Told& told);

private:
    struct Entry {
        Lasting what{};
        Instant last{};
        std::array<char, 160> line{};
        std::size_t length = 0;
    };
    using HasEnded = std::function<bool(const Entry&)>;
    void forget(const HasEnded& hasEnded, const Told& told);

    std::array<Entry, 256> entries_{};
    std::size_t count_ = 0;
};
