#pragma once

#include "gateway/net/Channel.h"
#include "gateway/ntrip/Gga.h"
#include "gateway/ntrip/Request.h"
#include "gateway/station/Mountpoint.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

/// Rover: one client that gets a stream. It is cut off when it falls behind; nobody waits for it.

namespace gateway {

/// Bytes that may wait for a rover in the kernel; as many more may wait here.
inline constexpr int kKernelBytes = 64 * 1024;

class Rover final : public Receiver {
public:
    Rover(const asio::any_io_executor& executor, Channel& channel, ntrip::Request request,
          Mountpoint& at);

    /// Sends and hears until the rover goes or is cut off; returns why, for the operator.
    awaitable<std::string> run();
    void take(const Outgoing& block, Instant at) override;
    void end() override { cut("is sent away: the station is stopped"); }
    /// It may not have the stream any more.
    void sendAway(const std::string& why) { cut("is sent away: " + why); }
    bool isRover() const override { return true; }
    RoverLook look() const override;
    /// What the rover has sent.
    void hear(std::string_view text);

    const ntrip::Request& request() const { return request_; }
    bool cutOff() const { return !cutOff_.empty(); }

private:
    awaitable<void> write();
    awaitable<void> listen();
    void fallenBehind(std::string why);
    void cut(std::string why);

    /// When a block was handed to the rover, and where it ends in all that was.
    struct Mark {
        std::uint64_t end;
        Instant at;
    };

    Channel& channel_;
    ntrip::Request request_;
    Mountpoint& at_;
    bool chunks_;
    Outbox outbox_;
    std::deque<Mark> marks_;                 // of what the rover has not acknowledged
    std::uint64_t handed_ = 0, written_ = 0; // bytes
    std::string cutOff_;                     // why; empty: it is not
    bool ended_ = false;                     // its side
    ntrip::GgaReader reader_;
    const double sinceUnixS_ = ctl::status::nowUnixS();
    std::optional<RoverLook::Place> place_; // the last that it sent
};

} // namespace gateway
