#pragma once

#include "gateway/net/Address.h"
#include "gateway/net/Outbox.h"

#include <boost/asio/any_io_executor.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <random>
#include <span>
#include <stdexcept>
#include <string>

/// Source: one conversation with whatever delivers a stream.

namespace gateway {

/// Takes the bytes of a stream as they come.
using TakeBytes = std::function<void(std::span<const std::uint8_t>)>;

/// A conversation that failed or ended; what() for the operator.
class SourceEnd : public std::runtime_error {
public:
    /// How it may be tried again.
    enum class Manner { soon, refused };
    explicit SourceEnd(const std::string& what, Manner manner = Manner::soon)
        : std::runtime_error(what), manner_(manner) {}
    Manner manner() const { return manner_; }

private:
    Manner manner_;
};

struct SourceEvents {
    std::function<void()> granted;                // the peer has agreed
    std::function<void(const std::string&)> lost; // a peer has gone, and another one may come
    TakeBytes take;
};

/// Where a receiver that pushes into the gateway's caster meets the station that waits for it.
class PushDoor {
public:
    explicit PushDoor(const asio::any_io_executor& executor) : closed_(executor) {}

    /// Whether a station waits and nobody delivers.
    bool open() const { return events_ && !taken_; }
    bool waiting() const { return events_.has_value(); }
    /// The side of the caster: begin where it is open, any bytes, end.
    void enter();
    void deliver(std::span<const std::uint8_t> bytes) {
        if (events_)
            events_->take(bytes);
    }
    void leave();
    /// The side of the station: until it is cancelled.
    awaitable<void> wait(SourceEvents events);

private:
    std::optional<SourceEvents> events_; // of the station that waits
    bool taken_ = false;
    Bell closed_; // never rings
};

/// Connects, asks, and hands on what comes; always ends with an exception.
awaitable<void> receive(const Address& address, PushDoor& door, SourceEvents events);

/// "12 s", rounded up.
std::string inSeconds(Duration d);

/// Waits between attempts, as casters in the field want it: 10 s after a failure, twice as long
/// after each further one up to 5 min, a little at random; 5 min after a refusal. Peers that are
/// the operator's own are tried sooner.
class Backoff {
public:
    explicit Backoff(Scheme scheme);
    Duration afterFailure(SourceEnd::Manner manner);
    /// Data has come for a minute.
    void reset() { failures_ = 0; }

private:
    Duration first_, most_;
    unsigned failures_ = 0;
    std::minstd_rand random_{std::random_device{}()};
};

} // namespace gateway
