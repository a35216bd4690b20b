#include "gateway/station/Feed.h"

#include "gateway/net/LooksLike.h"

#include <algorithm>
#include <array>
#include <utility>

namespace gateway {

using namespace std::chrono_literals;

namespace {

constexpr Duration kTrial = 60s;       // before the better one is used again
constexpr Duration kFirstLook = 3s;    // at what comes, where it is no message
constexpr double kOldEpochS = 3600.0;  // one that is older by more has another reason
constexpr std::size_t kMostRecent = 5; // epochs: fewer than those after which an engine hangs
constexpr Duration kRecent = 10s;

} // namespace

Supply::Supply(const asio::any_io_executor& executor, Address address, PushDoor& door, Say say,
               std::function<void(const Block&)> take)
    : address_(std::move(address)), door_(door), say_(std::move(say)), take_(std::move(take)),
      backoff_(address_.scheme),
      tasks_(executor, [this](const std::string& why) { say_(Level::error, why); }) {}

void Supply::start() {
    if (wanted())
        return;
    startedAt_ = std::chrono::steady_clock::now();
    tasks_.start(run());
}

void Supply::stop() {
    tasks_.cancel();
    state_ = State::idle;
    deliveringSince_.reset();
}

std::optional<Instant> Supply::deliveringSince(Instant now) const {
    const bool lately = heard_.lastEpoch() && now - *heard_.lastEpoch() < kSilent;
    return lately ? deliveringSince_ : std::nullopt;
}

awaitable<void> Supply::run() {
    const auto state = co_await asio::this_coro::cancellation_state;
    for (;;) {
        state_ = State::connecting;
        connectedAt_.reset();
        epochs_.restart();
        Ending end = co_await endOf(receive(address_, door_, events()));
        if (isCancelled(state))
            co_return;
        const bool ntrip = address_.scheme == Scheme::ntrip || address_.scheme == Scheme::ntrips;
        if (const std::string noRtcm = saysNoRtcm(); !noRtcm.empty())
            end.why += ", and " + noRtcm;
        else if (ntrip && connectedAt_ && epochs_.bytes() == 0 && !address_.gga)
            end.why += ", without data; if the mountpoint wants a position, add gga=LAT,LON,HEIGHT";
        state_ = State::waiting;
        lastError_ = end.why;
        deliveringSince_.reset();
        const Duration wait = backoff_.afterFailure(end.manner);
        sayOf(Level::warning, end.why + "; next attempt in " + inSeconds(wait));
        co_await pause(wait);
    }
}

SourceEvents Supply::events() {
    return {.granted =
                [this](const std::string& peer) {
                    state_ = State::connected;
                    connectedAt_ = std::chrono::steady_clock::now();
                    toldWhatComes_ = false;
                    epochs_.restart();
                    sayOf(Level::notice, "connected" + peer);
                },
            .lost =
                [this](const std::string& why) {
                    state_ = State::connecting;
                    connectedAt_.reset();
                    sayOf(Level::warning, why + "; waits for another");
                },
            .take = [this](std::span<const std::uint8_t> bytes) { took(bytes); }};
}

void Supply::sayOf(Level level, const std::string& what) const {
    const std::string name = shown(address_);
    say_(level, name + (name.ends_with(':') ? " " : ": ") + what); // "caster:"
}

SourceLook Supply::look(Instant now) const {
    constexpr std::array names{"idle", "connecting", "connected", "waiting"};
    SourceLook out{shown(address_), names[static_cast<std::size_t>(state_)], false, {}, lastError_};
    if (const auto since = deliveringSince(now))
        out.deliveringSinceUnixS = unixTimeOf(*since);
    return out;
}

std::string Supply::saysNoRtcm() const {
    if (epochs_.frames() > 0)
        return {};
    const std::string like = looksLike(epochs_.beginning());
    // Without a known look, less than the end of a message and most of another proves nothing.
    if (like.empty() && epochs_.bytes() < 2 * kMaxFrame)
        return {};
    return "what comes is no RTCM 3" + (like.empty() ? "" : ": this looks like " + like);
}

void Supply::tellWhatComes(Instant now) {
    if (toldWhatComes_ || !connectedAt_ || now - *connectedAt_ < kFirstLook)
        return;
    const bool late = now - *connectedAt_ >= kSilent;
    const std::string noRtcm = saysNoRtcm();
    if (noRtcm.empty() || (!late && looksLike(epochs_.beginning()).empty()))
        return;
    toldWhatComes_ = true;
    sayOf(Level::warning, noRtcm);
}

void Supply::took(std::span<const std::uint8_t> bytes) {
    const Instant now = std::chrono::steady_clock::now();
    epochs_.take(bytes);
    while (const auto block = epochs_.next()) {
        if (block->kind == Block::Kind::epoch && !deliveringSince(now)) {
            deliveringSince_ = now;
            lastError_.clear();
        }
        heard_.take(*block, now);
        if (block->kind == Block::Kind::between)
            kept_.keep(*block, now);
        take_(*block);
    }
    if (deliveringSince_ && now - *deliveringSince_ > kTrial)
        backoff_.reset();
}

Feed::Feed(const asio::any_io_executor& executor, const std::vector<Address>& sources,
           PushDoor& door, const Say& say, std::function<void(const Block&)> take)
    : say_(say), take_(std::move(take)), recent_(sources.size()) {
    for (std::size_t i = 0; i < sources.size(); ++i)
        supplies_.push_back(std::make_unique<Supply>(
            executor, sources[i], door, say, [this, i](const Block& block) { took(i, block); }));
}

void Feed::start() {
    supplies_.front()->start();
}

void Feed::stop() {
    for (const auto& supply : supplies_)
        supply->stop();
}

bool Feed::idle() const {
    return std::ranges::all_of(supplies_, [](const auto& supply) { return supply->idle(); });
}

/// A source is wanted while none before it delivers; the first one always is.
void Feed::tick(Instant now) {
    bool delivers = false;
    for (std::size_t i = 0; i < supplies_.size(); ++i) {
        Supply& supply = *supplies_[i];
        supply.tellWhatComes(now);
        const auto since = supply.deliveringSince(now);
        if (since && !delivers && i != active_) {
            const bool activeDelivers = supplies_[active_]->deliveringSince(now).has_value();
            if (!activeDelivers)
                change(i, "delivers");
            else if (i < active_ && now - *since > kTrial)
                change(i, "has delivered for a minute again");
        }
        delivers = delivers || (since && i >= active_);
        const bool tried = supply.wanted() && (now - supply.startedAt() > kSilent ||
                                               supply.state() == Supply::State::waiting);
        if (i + 1 < supplies_.size()) {
            if (!delivers && tried && !since)
                supplies_[i + 1]->start();
            else if (delivers)
                supplies_[i + 1]->stop();
        }
    }
}

std::vector<SourceLook> Feed::look(Instant now) const {
    std::vector<SourceLook> out;
    for (const auto& supply : supplies_) {
        out.push_back(supply->look(now));
        out.back().active = supply.get() == supplies_[active_].get();
    }
    return out;
}

bool Feed::tried() const {
    return std::ranges::any_of(supplies_, [](const auto& supply) {
        return supply->heard().epochs() > 0 || supply->state() == Supply::State::waiting;
    });
}

void Feed::change(std::size_t to, const std::string& why) {
    say_(Level::notice,
         "the stream comes from " + shown(supplies_[to]->address()) + " now, which " + why);
    active_ = to;
    ++changes_;
    changed_ = true;
    const Instant now = std::chrono::steady_clock::now();
    const Bytes kept = supplies_[to]->kept().current(now);
    if (!kept.empty())
        take_({kept}); // what it said before it was chosen
    for (const auto& [at, epoch] : std::exchange(recent_[to], {}))
        if (now - at < kRecent && (!last_ || secondsBetween(*last_, epoch.first)))
            handOn(epoch);
}

void Feed::took(std::size_t from, const Block& block) {
    if (from == active_)
        return handOn(block);
    if (block.kind != Block::Kind::epoch)
        return;
    recent_[from].emplace_back(std::chrono::steady_clock::now(), block);
    if (recent_[from].size() > kMostRecent)
        recent_[from].pop_front();
}

void Feed::handOn(const Block& block) {
    if (block.kind == Block::Kind::epoch) {
        const auto later = last_ ? secondsBetween(*last_, block.first) : std::nullopt;
        if (changed_ && later && *later <= 0.0 && *later > -kOldEpochS)
            return; // came by the other source
        changed_ = false;
        last_ = block.first;
    }
    take_(block);
}

} // namespace gateway
