#include "gateway/caster/Push.h"

#include "gateway/caster/Rover.h"
#include "gateway/net/Attempts.h"
#include "gateway/ntrip/Answer.h"
#include "gnss/Clock.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <utility>

namespace gateway {

using namespace std::chrono_literals;

namespace {

constexpr std::size_t kMostForPeer = std::size_t{128} * 1024; // bytes
constexpr Duration kReachLimit = 10s;
constexpr Duration kSendLimit = 20s;
constexpr Duration kSteadyPush = 60s;
constexpr std::size_t kMostHere = 100; // connections to one port

/// Until the peer ends it; what it says is for nobody.
awaitable<void> untilEnd(Channel& channel, Scheme scheme) {
    std::array<std::uint8_t, 512> buffer;
    while (co_await channel.read(buffer) > 0) {
    }
    if (scheme == Scheme::tcp) // it may read on
        co_await channel.untilBroken();
    throw ConversationEnd("the peer has ended the connection");
}

awaitable<void> waitForGrant(Channel& channel, const Address& address) {
    using State = ntrip::AnswerReader::State;
    ntrip::AnswerReader answer(address, ntrip::AnswerReader::Asked::push);
    std::array<std::uint8_t, 1024> buffer;
    Bytes none;
    while (answer.state() == State::head) {
        const std::size_t n = co_await channel.read(buffer);
        if (n > 0)
            answer.take(std::span(buffer).first(n), none);
        else if (answer.close() == State::head)
            throw ConversationEnd("the caster ended the connection without an answer");
    }
    if (answer.state() == State::stream)
        co_return;
    const bool access = answer.status() == 401 || answer.status() == 403;
    throw ConversationEnd(answer.what(), access ? Manner::refused : Manner::soon);
}

/// The path of now; its pattern is strftime's, in UTC.
std::string pathNow(const std::string& pattern) {
    const std::time_t now = utcNow().time;
    std::tm utc{};
    gmtime_r(&now, &utc);
    std::array<char, 4096> path{};
    if (std::strftime(path.data(), path.size(), pattern.c_str(), &utc) == 0)
        throw ConversationEnd(pattern + ": no path");
    return path.data();
}

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File openAt(const std::string& path) {
    std::error_code none;
    if (std::filesystem::is_fifo(path, none)) // whoever opens one waits for its reader
        throw ConversationEnd(path + " is a pipe, not a file");
    File file(std::fopen(path.c_str(), "abe"), std::fclose);
    if (!file)
        throw ConversationEnd(path + ": " + std::strerror(errno));
    return file;
}

} // namespace

Push::Push(const asio::any_io_executor& executor, Address address, Mountpoint& from, Say say,
           std::function<std::string()> strLine)
    : executor_(executor), address_(std::move(address)), from_(from), say_(std::move(say)),
      strLine_(std::move(strLine)), outbox_(executor, kMostForPeer),
      chunks_(address_.scheme == Scheme::ntripSource && address_.version == 2),
      tasks_(executor, [this](const std::string& why) { say_(Level::error, why); }) {}

void Push::take(const Outgoing& block, Instant) {
    const SharedBytes& bytes = chunks_ ? block.chunk() : block.plain();
    while (!outbox_.put(bytes) && !outbox_.empty())
        outbox_.dropOldest();
}

awaitable<void> Push::run() {
    const auto state = co_await asio::this_coro::cancellation_state;
    Backoff backoff(address_.scheme);
    for (;;) {
        const Instant began = std::chrono::steady_clock::now();
        const Ending end = co_await endOf(once());
        if (isCancelled(state))
            co_return;
        if (std::chrono::steady_clock::now() - began > kSteadyPush)
            backoff.reset();
        const Duration wait = backoff.afterFailure(end.manner);
        say_(Level::warning,
             "output " + shown(address_) + ": " + end.why + "; next attempt in " + inSeconds(wait));
        co_await pause(wait);
    }
}

awaitable<void> Push::once() {
    switch (address_.scheme) {
    case Scheme::ntripSource:
        co_return co_await toCaster();
    case Scheme::tcp:
        co_return co_await toPeer();
    case Scheme::tcpListen:
        co_return co_await toWhoConnects();
    case Scheme::serial:
        co_return co_await toSerial();
    case Scheme::file:
        co_return co_await toFiles();
    case Scheme::ntrip:
    case Scheme::ntrips:
    case Scheme::caster:
        break;
    }
    throw std::logic_error("no output: " + shown(address_));
}

awaitable<void> Push::toCaster() {
    const ChannelPtr channel = co_await connectTo(address_.peer, address_.proxy, kReachLimit);
    const std::string request = ntrip::pushRequest(address_, strLine_());
    co_await within(kReachLimit, channel->write(bytesOf(request)), "the caster takes no request");
    co_await within(kReachLimit, waitForGrant(*channel, address_), "the caster does not answer");
    co_await send(*channel);
}

awaitable<void> Push::toPeer() {
    const ChannelPtr channel = co_await connectTo(address_.peer, std::nullopt, kReachLimit);
    co_await send(*channel);
}

awaitable<void> Push::toSerial() {
    const ChannelPtr channel =
        openSerial(co_await asio::this_coro::executor, address_.path, address_.baud);
    co_await send(*channel);
}

/// Begins with what a new rover gets.
awaitable<void> Push::send(Channel& channel) {
    say_(Level::notice, "output " + shown(address_) + ": connected");
    outbox_.clear(); // of the connection before
    const Joined joined(from_, *this);
    co_await firstOf(sendAll(channel), untilEnd(channel, address_.scheme));
}

awaitable<void> Push::sendAll(Channel& channel) {
    for (;;) {
        const SharedBytes bytes = co_await outbox_.next();
        co_await within(kSendLimit, channel.write(*bytes), "the peer takes nothing for 20 s");
    }
}

awaitable<void> Push::toWhoConnects() {
    tcp::acceptor acceptor = co_await listenOn(address_.peer);
    for (bool told = false;;) {
        tcp::socket socket = co_await acceptor.async_accept(use_awaitable);
        const bool full = tasks_.count() > kMostHere; // one is this
        if (full && !told)
            say_(Level::warning, "output " + shown(address_) + ": refuses further connections: " +
                                     std::to_string(kMostHere) + " are here");
        told = full;
        if (!full)
            tasks_.start(serveOne(std::move(socket)));
    }
}

awaitable<void> Push::serveOne(tcp::socket socket) {
    const ChannelPtr channel = channelOf(std::move(socket));
    Rover rover(executor_, *channel, {}, from_);
    const Joined joined(from_, rover);
    const std::string why = co_await rover.run();
    say_(Level::info, "output " + shown(address_) + ": " + channel->peer() + " " + why);
}

awaitable<void> Push::toFiles() {
    outbox_.clear(); // of the connection before
    const Joined joined(from_, *this);
    std::string path = pathNow(address_.path);
    for (File file = openAt(path);;) {
        const SharedBytes bytes = co_await outbox_.next();
        if (std::string now = pathNow(address_.path); now != path) {
            path = std::move(now);
            file = openAt(path);
        }
        if (std::fwrite(bytes->data(), 1, bytes->size(), file.get()) != bytes->size() ||
            std::fflush(file.get()) != 0)
            throw ConversationEnd(path + ": " + std::strerror(errno));
    }
}

} // namespace gateway
