#pragma once

#include "gateway/net/Outbox.h"
#include "gateway/ntrip/SourceTable.h"
#include "gateway/station/Epochs.h"
#include "gateway/station/Heard.h"
#include "gateway/station/KeptMessages.h"
#include "gateway/station/Look.h"
#include "gateway/station/Source.h"

#include <optional>
#include <set>
#include <string>

/// Mountpoint: the stream of a virtual station as rovers get it.

namespace gateway {

/// A block that leaves, as it is and as a chunk of HTTP; made once for all who get it.
class Outgoing {
public:
    explicit Outgoing(Bytes bytes) : plain_(std::make_shared<const Bytes>(std::move(bytes))) {}
    const SharedBytes& plain() const { return plain_; }
    const SharedBytes& chunk() const;

private:
    SharedBytes plain_;
    mutable SharedBytes chunk_; // when somebody wants it
};

/// Who gets a stream: a rover, or where a stream is pushed to.
class Receiver {
public:
    virtual void take(const Outgoing& block, Instant at) = 0;
    virtual bool isRover() const { return false; }
    /// Of a rover.
    virtual RoverLook look() const { return {}; }
    /// Nothing more comes.
    virtual void end() = 0;

protected:
    ~Receiver() = default;
};

class Mountpoint {
public:
    explicit Mountpoint(const asio::any_io_executor& executor) : door(executor) {}

    /// It does not deliver when no epoch has come for so long.
    void setSilence(Duration silence) { silence_ = silence; }

    /// To all who are here.
    void publish(Block block, Instant at);
    /// From now on; first comes what a rover needs at once: the station's messages and all current
    /// ephemerides.
    void join(Receiver& receiver, Instant at);
    /// Sends what a rover needs at once; false where nothing is kept.
    bool greet(Receiver& receiver, Instant at) const;
    void leave(Receiver& receiver) { receivers_.erase(&receiver); }
    /// Sends all away, also who comes later.
    void close();
    /// The stream is another one from now on: what was kept of it is not for new rovers.
    void forget() { kept_.clear(); }

    /// Whether epochs come.
    bool delivers(Instant now) const;
    const Heard& heard() const { return heard_; }
    /// The rovers that are here, the newest first.
    std::vector<RoverLook> rovers() const;
    std::size_t roversCount() const;
    /// Over all rovers that were here: bytes sent, and those that were cut off.
    struct Totals {
        std::uint64_t sentBytes = 0, cutOff = 0;
    } totals;

    PushDoor door; // for a receiver that pushes its stream to us

private:
    Duration silence_{};
    bool closed_ = false;
    std::set<Receiver*> receivers_;
    Heard heard_;
    KeptMessages kept_;
};

/// A receiver at a mountpoint for as long as this lives.
class Joined {
public:
    Joined(Mountpoint& mountpoint, Receiver& receiver)
        : mountpoint_(mountpoint), receiver_(receiver) {
        mountpoint_.join(receiver_, std::chrono::steady_clock::now());
    }
    ~Joined() { mountpoint_.leave(receiver_); }
    Joined(const Joined&) = delete;
    Joined& operator=(const Joined&) = delete;

private:
    Mountpoint& mountpoint_;
    Receiver& receiver_;
};

} // namespace gateway
