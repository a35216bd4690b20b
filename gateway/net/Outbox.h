#pragma once

#include "gateway/net/Within.h"

#include <boost/asio/redirect_error.hpp>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

/// Outbox: what waits for a peer, bounded in bytes. Who writes to the peer takes from it.

namespace gateway {

using Bytes = std::vector<std::uint8_t>;
/// Shared by all who are to get the same.
using SharedBytes = std::shared_ptr<const Bytes>;

/// Wakes the one that waits.
class Bell {
public:
    explicit Bell(const asio::any_io_executor& executor) : timer_(executor, Instant::max()) {}
    /// Until it rings; a ring while nobody waits is kept.
    awaitable<void> wait() {
        boost::system::error_code cancelled;
        while (!rung_)
            co_await timer_.async_wait(asio::redirect_error(use_awaitable, cancelled));
        rung_ = false;
    }
    void ring() {
        rung_ = true;
        timer_.cancel();
    }

private:
    asio::steady_timer timer_;
    bool rung_ = false;
};

class Outbox {
public:
    Outbox(const asio::any_io_executor& executor, std::size_t most)
        : most_(most), filled_(executor) {}

    /// False where it has no room; then nothing is taken.
    bool put(SharedBytes item) {
        if (waiting_ + item->size() > most_)
            return false;
        waiting_ += item->size();
        items_.push_back(std::move(item));
        filled_.ring();
        return true;
    }
    /// The oldest; waits for one.
    awaitable<SharedBytes> next() {
        while (items_.empty())
            co_await filled_.wait();
        co_return take();
    }
    bool empty() const { return items_.empty(); }
    std::size_t waiting() const { return waiting_; }
    void dropOldest() { take(); }
    void clear() {
        while (!items_.empty())
            take();
    }

private:
    SharedBytes take() {
        SharedBytes item = std::move(items_.front());
        items_.pop_front();
        waiting_ -= item->size();
        return item;
    }

    std::size_t most_, waiting_ = 0; // bytes
    std::deque<SharedBytes> items_;
    Bell filled_;
};

} // namespace gateway
