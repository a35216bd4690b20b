#include "gateway/station/Engine.h"

#include "gateway/net/Attempts.h"
#include "gateway/net/Channel.h"
#include "gateway/net/FileTime.h"
#include "gateway/station/Child.h"
#include "gateway/station/EphemerisWatch.h"
#include "gnss/Clock.h"

#include <algorithm>
#include <array>

namespace gateway {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

constexpr std::size_t kMostWaiting = std::size_t{256} * 1024; // bytes towards an engine
constexpr Duration kConnectLimit = 15s;                       // of a child that was started
constexpr unsigned kMostOwed = 10;                            // epochs
constexpr Duration kFirstAnswer = 2min; // of an engine that is not ours: ephemerides come by then
constexpr Duration kWatchPeriod = 1s;
constexpr unsigned kStatusSeconds = 15;              // between looks into its status
constexpr auto kStale = 5s;                          // of a status
constexpr Duration kFirstWait = 1s, kMostWait = 60s; // before an engine is started again
constexpr Duration kSteady = 60s;                    // of work after which waits begin anew

struct Paths {
    fs::path deployment, status;
    ctl::init::Layout layout;
};
Paths pathsOf(const EnginePlan& plan) {
    const fs::path kept = plan.folder / "kept";
    const fs::path deployment = plan.folder / "engine.json";
    return {deployment, kept / "status.json", {deployment, plan.folder / "files", kept}};
}

std::vector<std::string> argumentsFor(const Paths& paths) {
    return {"-mode", "vrs", paths.deployment.string()};
}

/// For a child, at any free port.
tcp::acceptor listenAt(const EnginePlan& plan, const asio::any_io_executor& executor) {
    if (!plan.external)
        return {executor, {asio::ip::address_v4::loopback(), 0}};
    try {
        return {executor, endpointOf(*plan.external)};
    } catch (const boost::system::system_error& e) {
        throw std::runtime_error("cannot listen at " + shown(*plan.external) + ": " +
                                 e.code().message());
    }
}

void writeDeployment(const EnginePlan& plan, std::uint16_t port) {
    const Paths paths = pathsOf(plan);
    ctl::init::Station station = plan.deployment;
    station.host = "127.0.0.1";
    station.port = port;
    const auto files = ctl::init::filesOf(station, paths.layout);
    ctl::init::removeNew(files);
    ctl::init::writeNew(files);
    fs::create_directories(paths.layout.kept);
    std::error_code none;
    fs::remove(paths.status, none); // of an engine before
}

/// Whether the engine has written its status lately, as it does every second while it lives.
bool livesBy(const fs::path& status) {
    const auto written = writtenAt(status);
    return written && std::chrono::seconds(utcNow().time) - *written < kStale;
}

} // namespace

Engine::Engine(const asio::any_io_executor& executor, Say say, std::function<Bytes(Process)> first,
               std::function<void(Block)> take)
    : say_([say = std::move(say)](Level level, const std::string& text) {
          say(level, "engine: " + text);
      }),
      first_(std::move(first)), take_(std::move(take)), outbox_(executor, kMostWaiting),
      tasks_(executor, [this](const std::string& why) { say_(Level::error, why); }) {}

void Engine::start(EnginePlan plan) {
    tasks_.cancel();
    tasks_.start(run(std::move(plan)));
}

bool Engine::send(const SharedBytes& block, Block::Kind kind) {
    if (!connected_ || !outbox_.put(block))
        return false;
    owed_ += kind == Block::Kind::epoch ? 1 : 0;
    return true;
}

awaitable<void> Engine::run(EnginePlan plan) {
    const auto state = co_await asio::this_coro::cancellation_state;
    std::optional<tcp::acceptor> acceptor;
    for (Duration wait = kFirstWait;;) {
        const Instant began = std::chrono::steady_clock::now();
        pausing_ = false;
        ++starts_;
        const Ending end = co_await endOf(once(plan, acceptor));
        if (isCancelled(state))
            co_return;
        ++failures_;
        wait = std::chrono::steady_clock::now() - began > kSteady ? kFirstWait
                                                                  : std::min(2 * wait, kMostWait);
        const char* const next = !acceptor       ? "; next attempt in "
                                 : plan.external ? "; another one may come in "
                                                 : "; started again in ";
        say_(Level::warning, end.why + next + inSeconds(wait));
        pausing_ = true;
        co_await pause(wait);
    }
}

const char* Engine::state() const {
    return !active() ? "stopped" : connected_ ? "connected" : pausing_ ? "waiting" : "starting";
}

awaitable<void> Engine::once(const EnginePlan& plan, std::optional<tcp::acceptor>& acceptor) {
    const auto executor = co_await asio::this_coro::executor;
    if (!acceptor)
        acceptor = listenAt(plan, executor);
    if (plan.external) {
        const ChannelPtr channel = channelOf(co_await acceptor->async_accept(use_awaitable));
        const fs::path none;
        say_(Level::notice, channel->peer() + " has connected");
        co_await serve(*channel, none, Process::started);
        throw ConversationEnd("has ended the connection");
    }
    const Paths paths = pathsOf(plan);
    writeDeployment(plan, acceptor->local_endpoint().port());
    const Say sayOf = [this](Level level, const std::string& text) {
        if (!tellsOfMissingEphemeris(text)) // the watch tells of all of them
            say_(level, text);
    };
    Child child(executor, plan.program, argumentsFor(paths), sayOf);
    co_await firstOf(serveConnections(*acceptor, paths.status), child.end());
}

/// A child connects anew when it has missed epochs for long.
awaitable<void> Engine::serveConnections(tcp::acceptor& acceptor, fs::path status) {
    for (auto process = Process::started;; process = Process::goesOn) {
        std::optional<tcp::socket> socket;
        co_await within(kConnectLimit, into(socket, acceptor.async_accept(use_awaitable)),
                        "does not connect");
        const ChannelPtr channel = channelOf(std::move(*socket));
        co_await serve(*channel, status, process);
    }
}

awaitable<void> Engine::serve(Channel& channel, fs::path status, Process process) {
    struct Connected {
        Engine& engine;
        explicit Connected(Engine& of) : engine(of) {
            engine.connected_ = true;
            engine.connectedSince_ = std::chrono::steady_clock::now();
            engine.owed_ = 0;
            engine.answered_ = false;
        }
        ~Connected() {
            engine.connected_ = false;
            engine.connectedSince_.reset();
            engine.outbox_.clear();
        }
    } const connected{*this};
    outbox_.put(std::make_shared<const Bytes>(first_(process)));
    co_await firstOf(readFrom(channel), firstOf(writeTo(channel), watch(std::move(status))));
}

awaitable<void> Engine::readFrom(Channel& channel) {
    Epochs epochs;
    std::array<std::uint8_t, 8192> buffer;
    for (;;) {
        std::size_t n = 0;
        try {
            n = co_await channel.read(buffer);
        } catch (const boost::system::system_error&) { // as an end
        }
        if (n == 0)
            co_return;
        epochs.take(std::span(buffer).first(n));
        while (auto block = epochs.next()) {
            if (block->kind == Block::Kind::epoch) {
                owed_ = 0;
                answered_ = true;
            }
            take_(std::move(*block));
        }
    }
}

awaitable<void> Engine::writeTo(Channel& channel) {
    for (;;) {
        const SharedBytes block = co_await outbox_.next();
        co_await channel.write(*block);
    }
}

/// An engine need not answer every epoch: at first it may lack the ephemerides. Its status says
/// that it lives; of one that is not ours there is none.
bool Engine::hangs(const fs::path& status) const {
    if (owed_ < kMostOwed)
        return false;
    if (!status.empty())
        return !livesBy(status);
    return answered_ || std::chrono::steady_clock::now() - *connectedSince_ > kFirstAnswer;
}

/// Ends when the engine hangs.
awaitable<void> Engine::watch(fs::path status) {
    EphemerisWatch ephemerides(say_);
    for (unsigned seconds = 1;; ++seconds) {
        co_await pause(kWatchPeriod);
        if (hangs(status))
            throw std::runtime_error("hangs: it owes " + std::to_string(owed_) + " epochs");
        if (status.empty() || seconds % kStatusSeconds != 0)
            continue;
        try {
            ephemerides.look(ctl::status::StatusFile(status.string()),
                             std::chrono::steady_clock::now());
        } catch (const std::runtime_error&) { // it has written none yet
        }
    }
}

} // namespace gateway
