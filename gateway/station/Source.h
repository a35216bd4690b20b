#pragma once

#include "gateway/net/Address.h"
#include "gateway/net/Attempts.h"
#include "gateway/net/Outbox.h"

#include <boost/asio/any_io_executor.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

/// Source: one conversation with whatever delivers a stream.

namespace gateway {

/// Takes the bytes of a stream as they come.
using TakeBytes = std::function<void(std::span<const std::uint8_t>)>;

struct SourceEvents {
    /// A peer has agreed; who, as it continues a line: empty where the address says it.
    std::function<void(const std::string&)> granted;
    std::function<void(const std::string&)> lost; // a peer has gone, and another one may come
    TakeBytes take;
};

/// Where a receiver that pushes into the gateway's caster meets the station that waits for it.
class PushDoor {
public:
    explicit PushDoor(const asio::any_io_executor& executor) : closed_(executor) {}

    /// Whether a station waits and nobody delivers.
    bool open() const { return events_ && !taken(); }
    bool waiting() const { return events_.has_value(); }
    bool taken() const { return sendAway_ != nullptr; }
    /// The side of the caster: begin where it is open, any bytes, end and why. `sendAway` ends the
    /// conversation of who has entered, soon.
    void enter(const std::string& peer, std::function<void()> sendAway);
    void deliver(std::span<const std::uint8_t> bytes) {
        if (events_)
            events_->take(bytes);
    }
    void leave(const std::string& why);
    /// The side of the station: until it is cancelled.
    awaitable<void> wait(SourceEvents events);
    /// Sends who has entered away, soon.
    void shut() {
        if (sendAway_)
            sendAway_();
    }

private:
    std::optional<SourceEvents> events_; // of the station that waits
    std::function<void()> sendAway_;     // of who has entered; empty: nobody
    Bell closed_;                        // never rings
};

/// Connects, asks, and hands on what comes; always ends with an exception.
awaitable<void> receive(const Address& address, PushDoor& door, SourceEvents events);

} // namespace gateway
