#include "gateway/station/Source.h"

#include "gateway/net/Channel.h"
#include "gateway/net/Tasks.h"
#include "gateway/ntrip/Answer.h"
#include "gateway/ntrip/Gga.h"
#include "gateway/station/Epochs.h"
#include "gnss/Clock.h"

#include <boost/asio/post.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

namespace gateway {

using namespace std::chrono_literals;

namespace {

constexpr Duration kPeerLimit = 10s;
constexpr Duration kAnswerLimit = 10s;
constexpr Duration kSilenceLimit = 60s; // no epoch for 30 s has long led to another source
constexpr Duration kGgaPeriod = 10s;
constexpr Duration kShortestRound = 1s; // of a recording that is repeated
constexpr std::size_t kBlock = 8192;

using Buffer = std::array<std::uint8_t, kBlock>;

constexpr const char* kSilent60 = "nothing came for 60 s";

awaitable<void> readAll(Channel& channel, const TakeBytes& take, Deadline& deadline) {
    Buffer buffer;
    while (const std::size_t n = co_await channel.read(buffer)) {
        deadline.set(kSilenceLimit, kSilent60);
        take(std::span(buffer).first(n));
    }
    throw ConversationEnd("the peer has ended the stream");
}

awaitable<void> readOn(Channel& channel, const TakeBytes& take) {
    Deadline deadline(kSilenceLimit, kSilent60);
    co_await firstOf(readAll(channel, take, deadline), deadline.passed());
}

std::string ggaOf(const Address& address) {
    if (!address.gga)
        return {};
    const auto& [latitude, longitude, height] = *address.gga;
    const GTime now = utcNow();
    return ntrip::ggaText({latitude, longitude, height, 1, 12},
                          static_cast<double>(now.time % 86400) + now.sec);
}

/// For as long as the conversation lasts.
awaitable<void> sendPositions(Channel& channel, const Address& address) {
    for (;;) {
        const std::string gga = ggaOf(address);
        if (!gga.empty())
            co_await within(kAnswerLimit, channel.write(bytesOf(gga)),
                            "the caster takes no position");
        co_await pause(kGgaPeriod);
    }
}

[[noreturn]] void refused(const ntrip::AnswerReader& answer) {
    const bool access = answer.status() == 401 || answer.status() == 403;
    throw ConversationEnd(answer.what(), access ? Manner::refused : Manner::soon);
}

/// Of a name that has several addresses, or behind a proxy.
std::string toWhom(const Channel& channel, const Address& address) {
    return channel.peer() == shown(address.peer) ? "" : " to " + channel.peer();
}

awaitable<void> readAnswer(Channel& channel, const Address& address, const SourceEvents& events,
                           Deadline& deadline) {
    using State = ntrip::AnswerReader::State;
    ntrip::AnswerReader answer(address, ntrip::AnswerReader::Asked::stream);
    Buffer buffer;
    Bytes data;
    for (bool told = false;;) {
        const bool head = answer.state() == State::head;
        const std::size_t n = co_await channel.read(buffer);
        data.clear();
        const State state = n > 0 ? answer.take(std::span(buffer).first(n), data) : answer.close();
        if (state == State::table || state == State::refused || state == State::malformed)
            refused(answer);
        if (state != State::head) {
            deadline.set(kSilenceLimit, kSilent60);
            if (!std::exchange(told, true))
                events.granted(toWhom(channel, address));
        }
        if (!data.empty())
            events.take(data);
        if (n == 0 || state == State::ended)
            throw ConversationEnd(head ? "the caster ended the connection without an answer"
                                       : "the caster has ended the stream");
    }
}

awaitable<void> receiveNtrip(const Address& address, const SourceEvents& events) {
    const bool tls = address.scheme == Scheme::ntrips;
    // A proxy fetches a plain stream for us; TLS goes through it.
    ChannelPtr channel;
    if (tls)
        channel = co_await connectTlsTo(address.peer, address.proxy, kPeerLimit);
    else
        channel =
            co_await connectTo(address.proxy.value_or(address.peer), std::nullopt, kPeerLimit);
    const std::string request =
        ntrip::streamRequest(address, address.version == 2 ? ggaOf(address) : "");
    co_await within(kAnswerLimit, channel->write(bytesOf(request)), "the caster takes no request");
    Deadline deadline(kAnswerLimit, "the caster does not answer");
    co_await firstOf(firstOf(readAnswer(*channel, address, events, deadline), deadline.passed()),
                     sendPositions(*channel, address));
}

awaitable<void> receiveTcp(const Address& address, const SourceEvents& events) {
    const ChannelPtr channel = co_await connectTo(address.peer, std::nullopt, kPeerLimit);
    events.granted(toWhom(*channel, address));
    co_await readOn(*channel, events.take);
}

/// The port stays open. A receiver that connects anew takes the place of its old connection, which
/// may be half dead.
awaitable<void> receiveListening(const Address& address, const SourceEvents& events) {
    const auto state = co_await asio::this_coro::cancellation_state;
    tcp::acceptor acceptor = co_await listenOn(address.peer);
    std::string displaced;
    for (std::optional<tcp::socket> next;;) {
        if (!next)
            next.emplace(co_await acceptor.async_accept(use_awaitable));
        const ChannelPtr channel = channelOf(std::move(*next));
        next.reset();
        events.granted(" from " + channel->peer() + displaced);
        displaced.clear();
        std::string why;
        try {
            co_await firstOf(into(next, acceptor.async_accept(use_awaitable)),
                             readOn(*channel, events.take));
        } catch (const std::exception& e) {
            why = reasonOf(e);
        }
        if (isCancelled(state))
            co_return;
        if (next)
            displaced = ", in place of " + channel->peer();
        else
            events.lost(channel->peer() + ": " + why);
    }
}

awaitable<void> receiveSerial(const Address& address, const SourceEvents& events) {
    const ChannelPtr channel =
        openSerial(co_await asio::this_coro::executor, address.path, address.baud);
    events.granted("");
    co_await readOn(*channel, events.take);
}

/// A recording, each epoch as much later than the one before as its time says.
awaitable<void> play(std::FILE* file, const Address& address, const TakeBytes& take) {
    asio::steady_timer timer(co_await asio::this_coro::executor, std::chrono::steady_clock::now());
    Epochs epochs;
    std::optional<FrameHead> before;
    Buffer buffer;
    while (const std::size_t n = std::fread(buffer.data(), 1, buffer.size(), file)) {
        co_await asio::post(use_awaitable); // others have their turn, where nothing is to wait for
        epochs.take(std::span(buffer).first(n));
        while (const auto block = epochs.next()) {
            if (block->kind == Block::Kind::epoch) {
                const double s = before ? secondsBetween(*before, block->first).value_or(0.0) : 0.0;
                before = block->first;
                timer.expires_at(timer.expiry() +
                                 std::chrono::duration_cast<Duration>(std::chrono::duration<double>(
                                     std::clamp(s, 0.0, 60.0) / address.speed)));
                co_await timer.async_wait(use_awaitable);
            }
            take(block->bytes);
        }
    }
    if (epochs.frames() == 0)
        throw ConversationEnd(address.path + " holds no RTCM 3 message");
}

awaitable<void> receiveFile(const Address& address, const SourceEvents& events) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
        std::fopen(address.path.c_str(), "rbe"), std::fclose);
    if (!file)
        throw ConversationEnd(address.path + ": " + std::strerror(errno));
    events.granted("");
    for (;;) {
        asio::steady_timer round(co_await asio::this_coro::executor, kShortestRound);
        std::rewind(file.get());
        co_await play(file.get(), address, events.take);
        if (!address.loop)
            break;
        co_await round.async_wait(use_awaitable);
    }
    throw ConversationEnd("the recording has ended");
}

} // namespace

void PushDoor::enter(const std::string& peer, std::function<void()> sendAway) {
    sendAway_ = std::move(sendAway);
    events_->granted(" from " + peer);
}

void PushDoor::leave(const std::string& why) {
    sendAway_ = nullptr;
    if (events_)
        events_->lost(why);
}

awaitable<void> PushDoor::wait(SourceEvents events) {
    struct Waiting {
        PushDoor& door;
        Waiting(PushDoor& of, SourceEvents with) : door(of) { door.events_ = std::move(with); }
        ~Waiting() { door.events_.reset(); }
    };
    const Waiting waiting(*this, std::move(events));
    co_await closed_.wait();
}

awaitable<void> receive(const Address& address, PushDoor& door, SourceEvents events) {
    switch (address.scheme) {
    case Scheme::tcp:
        co_return co_await receiveTcp(address, events);
    case Scheme::tcpListen:
        co_return co_await receiveListening(address, events);
    case Scheme::ntrip:
    case Scheme::ntrips:
        co_return co_await receiveNtrip(address, events);
    case Scheme::serial:
        co_return co_await receiveSerial(address, events);
    case Scheme::file:
        co_return co_await receiveFile(address, events);
    case Scheme::caster:
        co_return co_await door.wait(std::move(events));
    case Scheme::ntripSource:
        break;
    }
    throw std::logic_error("no source: " + shown(address));
}

} // namespace gateway
