#pragma once

#include "ctl/init/Files.h"
#include "gateway/net/Channel.h"
#include "gateway/net/Outbox.h"
#include "gateway/net/Say.h"
#include "gateway/net/Tasks.h"
#include "gateway/station/Epochs.h"
#include "gateway/station/Heard.h"

#include <boost/asio/any_io_executor.hpp>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

/// Engine: the service that answers a station's epochs, as a child process with a deployment that
/// is written here, or one that somebody else keeps; it connects to us.

namespace gateway {

struct EnginePlan {
    std::filesystem::path program;
    std::filesystem::path folder;     // of the deployment and of what the engine keeps
    std::optional<HostPort> external; // where an engine that is not our child connects
    ctl::init::Station deployment;    // without host and port; of a child
};

class Engine {
public:
    /// An engine that connects: one that was started now, or the one before.
    enum class Process { started, goesOn };
    /// `first` says what an engine gets when it has connected, `take` gets what it sends.
    Engine(const asio::any_io_executor& executor, Say say, std::function<Bytes(Process)> first,
           std::function<void(Block)> take);

    /// Keeps an engine at work until stop(), which ends the child, too. One that runs is stopped
    /// first.
    void start(EnginePlan plan);
    void stop() { tasks_.cancel(); }
    bool active() const { return tasks_.active(); }
    bool idle() const { return tasks_.idle(); }
    /// "waiting" (for the next start), "starting", "connected", "stopped"; since when it is
    /// connected; how many have been started, and how many of those have failed.
    const char* state() const;
    std::optional<Instant> connectedSince() const { return connectedSince_; }
    std::uint64_t starts() const { return starts_; }
    std::uint64_t failures() const { return failures_; }
    /// A block of the stream; false where no engine is connected or it does not keep up: then it is
    /// dropped.
    bool send(const SharedBytes& block, Block::Kind kind);

private:
    awaitable<void> run(EnginePlan plan);
    awaitable<void> once(const EnginePlan& plan, std::optional<tcp::acceptor>& acceptor);
    awaitable<void> serveConnections(tcp::acceptor& acceptor, std::filesystem::path status);
    awaitable<void> serve(Channel& channel, std::filesystem::path status, Process process);
    awaitable<void> readFrom(Channel& channel);
    awaitable<void> writeTo(Channel& channel);
    bool hangs(const std::filesystem::path& status) const;
    awaitable<void> watch(std::filesystem::path status);

    Say say_;
    std::function<Bytes(Process)> first_;
    std::function<void(Block)> take_;
    Outbox outbox_;
    Tasks tasks_;
    bool connected_ = false;
    bool pausing_ = false; // until the next start
    std::optional<Instant> connectedSince_;
    std::uint64_t starts_ = 0, failures_ = 0;
    bool answered_ = false; // an epoch, on this connection
    unsigned owed_ = 0;     // epochs sent since the last one that came back
};

} // namespace gateway
