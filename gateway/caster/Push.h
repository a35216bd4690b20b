#pragma once

#include "gateway/net/Channel.h"
#include "gateway/net/Say.h"
#include "gateway/net/Tasks.h"
#include "gateway/station/Mountpoint.h"

#include <functional>
#include <string>

/// Push: an output of a station beside its rovers: another caster, a peer, a serial line, a file.

namespace gateway {

class Push final : public Receiver {
public:
    /// `strLine`: what a caster is told of the stream; asked for at every attempt.
    Push(const asio::any_io_executor& executor, Address address, Mountpoint& from, Say say,
         std::function<std::string()> strLine);

    const Address& address() const { return address_; }
    void start() { tasks_.start(run()); }
    void stop() { tasks_.cancel(); }
    bool idle() const { return tasks_.idle(); }

    void take(const Outgoing& block, Instant at) override;
    void end() override {}

private:
    awaitable<void> run();
    awaitable<void> once();
    awaitable<void> toCaster();
    awaitable<void> toPeer();
    awaitable<void> toWhoConnects();
    awaitable<void> serveOne(tcp::socket socket);
    awaitable<void> toSerial();
    awaitable<void> toFiles();
    awaitable<void> send(Channel& channel);
    awaitable<void> sendAll(Channel& channel);

    asio::any_io_executor executor_;
    Address address_;
    Mountpoint& from_;
    Say say_;
    std::function<std::string()> strLine_;
    Outbox outbox_;
    bool chunks_ = false;
    Tasks tasks_;
};

} // namespace gateway
