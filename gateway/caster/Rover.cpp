#include "gateway/caster/Rover.h"

#include <algorithm>
#include <array>
#include <utility>

namespace gateway {

using namespace std::chrono_literals;

namespace {

constexpr std::size_t kMostWaitingHere = std::size_t{64} * 1024; // bytes
constexpr std::size_t kMostWaiting = std::size_t{128} * 1024;    // with those in the kernel
constexpr Duration kMostLate = 5s;

} // namespace

Rover::Rover(const asio::any_io_executor& executor, Channel& channel, ntrip::Request request,
             Mountpoint& at)
    : channel_(channel), request_(std::move(request)), at_(at),
      chunks_(ntrip::sendsChunks(request_)), outbox_(executor, kMostWaitingHere) {}

awaitable<std::string> Rover::run() {
    std::string why = "has gone";
    try {
        co_await firstOf(write(), listen());
    } catch (const boost::system::system_error& e) {
        if (!ended_)
            why = "is gone: " + e.code().message();
    }
    co_return cutOff_.empty() ? why : cutOff_;
}

void Rover::take(const Outgoing& block, Instant at) {
    if (cutOff())
        return;
    const SharedBytes& bytes = chunks_ ? block.chunk() : block.plain();
    const std::size_t inKernel = channel_.unacknowledged();
    const std::uint64_t acknowledged = written_ - std::min<std::uint64_t>(written_, inKernel);
    while (!marks_.empty() && marks_.front().end <= acknowledged)
        marks_.pop_front();
    if (!marks_.empty() && at - marks_.front().at > kMostLate)
        return fallenBehind("is cut off: it is more than 5 s behind");
    if (outbox_.waiting() + inKernel + bytes->size() > kMostWaiting || !outbox_.put(bytes))
        return fallenBehind("is cut off: more than 128 KiB wait for it");
    handed_ += bytes->size();
    marks_.push_back({handed_, at});
}

awaitable<void> Rover::write() {
    for (;;) {
        const SharedBytes bytes = co_await outbox_.next();
        co_await channel_.write(*bytes);
        written_ += bytes->size();
        at_.totals.sentBytes += bytes->size();
    }
}

void Rover::hear(std::string_view text) {
    if (const auto gga = reader_.take(text); gga && gga->quality > 0)
        place_ = {gga->latitudeDeg, gga->longitudeDeg, gga->heightM, ctl::status::nowUnixS()};
}

RoverLook Rover::look() const {
    return {
        request_.user,  channel_.peer(),
        request_.agent, sinceUnixS_,
        written_,       static_cast<std::size_t>(handed_ - written_) + channel_.unacknowledged(),
        place_};
}

/// Rovers send their position now and then, some everything that they have.
awaitable<void> Rover::listen() {
    std::array<std::uint8_t, 512> buffer;
    while (const std::size_t n = co_await channel_.read(buffer))
        hear(textOf(std::span(buffer).first(n)));
    // A script that has nothing more to say may read on. What is sent to one that has gone breaks
    // the connection.
    ended_ = true;
    if (at_.greet(*this, std::chrono::steady_clock::now()))
        co_await channel_.untilBroken();
}

void Rover::fallenBehind(std::string why) {
    ++at_.totals.cutOff;
    cut(std::move(why));
}

void Rover::cut(std::string why) {
    if (cutOff())
        return;
    cutOff_ = std::move(why);
    outbox_.clear();
    channel_.close();
}

} // namespace gateway
