#pragma once

#include "gateway/net/Say.h"
#include "gateway/net/Tasks.h"
#include "gateway/station/Epochs.h"
#include "gateway/station/Heard.h"
#include "gateway/station/KeptMessages.h"
#include "gateway/station/Look.h"
#include "gateway/station/Source.h"

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// Feed: the stream of a station, from the first of its sources that delivers.

namespace gateway {

/// One source: it is tried again and again while it is wanted.
class Supply {
public:
    enum class State { idle, connecting, connected, waiting };

    Supply(const asio::any_io_executor& executor, Address address, PushDoor& door, Say say,
           std::function<void(const Block&)> take);
    void start();
    void stop();
    bool wanted() const { return tasks_.active(); }
    bool idle() const { return tasks_.idle(); }
    /// Since when whole epochs have come without a gap of 30 s; nothing while none do.
    std::optional<Instant> deliveringSince(Instant now) const;
    /// Tells once of a connection that has brought other things and no message: after 3 s what they
    /// look like, after 30 s also what nobody knows.
    void tellWhatComes(Instant now);
    /// When it was last wanted anew.
    Instant startedAt() const { return startedAt_; }

    const Address& address() const { return address_; }
    State state() const { return state_; }
    SourceLook look(Instant now) const;
    const Heard& heard() const { return heard_; }
    const KeptMessages& kept() const { return kept_; }

private:
    awaitable<void> run();
    void took(std::span<const std::uint8_t> bytes);
    SourceEvents events();
    /// Says it of this source.
    void sayOf(Level level, const std::string& what) const;
    std::string saysNoRtcm() const;

    Address address_;
    PushDoor& door_;
    Say say_;
    std::function<void(const Block&)> take_;
    Backoff backoff_;
    Tasks tasks_;
    State state_ = State::idle;
    bool toldWhatComes_ = false;
    std::string lastError_; // of the conversation before; empty once whole epochs come
    Instant startedAt_{};
    std::optional<Instant> connectedAt_, deliveringSince_;
    Heard heard_;
    KeptMessages kept_;
    Epochs epochs_;
};

class Feed {
public:
    /// `take` gets the blocks of one source at a time, no epoch twice and none that is older than
    /// the one before.
    Feed(const asio::any_io_executor& executor, const std::vector<Address>& sources, PushDoor& door,
         const Say& say, std::function<void(const Block&)> take);

    void start();
    void stop();
    /// Nothing runs any more.
    bool idle() const;
    /// Once a second: chooses the source.
    void tick(Instant now);

    const Supply& active() const { return *supplies_[active_]; }
    std::vector<SourceLook> look(Instant now) const;
    /// Changes from one source to another.
    std::uint64_t changes() const { return changes_; }
    /// Whether a source has been asked: it has delivered, or a conversation with it has ended.
    bool tried() const;

private:
    void took(std::size_t from, const Block& block);
    void handOn(const Block& block);
    void change(std::size_t to, const std::string& why);

    Say say_;
    std::function<void(const Block&)> take_;
    std::vector<std::unique_ptr<Supply>> supplies_;
    /// Of each source that is not in use the last epochs, and when they came: the one in use may be
    /// behind.
    std::vector<std::deque<std::pair<Instant, Block>>> recent_;
    std::size_t active_ = 0;
    std::uint64_t changes_ = 0;
    bool changed_ = false;          // no epoch of the new source has been handed on
    std::optional<FrameHead> last_; // of the last epoch handed on
};

} // namespace gateway
