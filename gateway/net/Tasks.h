#pragma once

#include "gateway/net/Within.h"

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>

#include <cassert>
#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// Tasks: the conversations of an owner. They are cancelled together, and the owner lives until the
/// last one has ended.

namespace gateway {

class Tasks {
public:
    /// `failed` gets what ends a conversation that nobody cancelled.
    Tasks(asio::any_io_executor executor, std::function<void(const std::string&)> failed)
        : executor_(std::move(executor)), failed_(std::move(failed)) {}
    ~Tasks() { assert(idle()); }
    Tasks(const Tasks&) = delete;
    Tasks& operator=(const Tasks&) = delete;

    void start(awaitable<void> conversation) {
        const auto signal = std::make_shared<asio::cancellation_signal>();
        signals_.push_back(signal);
        ++running_;
        asio::co_spawn(executor_, std::move(conversation),
                       asio::bind_cancellation_slot(
                           signal->slot(), [this, signal](const std::exception_ptr& e) {
                               const bool wanted = std::erase(signals_, signal) > 0;
                               --running_;
                               if (e && wanted)
                                   tell(e);
                           }));
    }
    /// Returns at once; what waits ends soon.
    void cancel() {
        for (const auto& signal : std::exchange(signals_, {}))
            signal->emit(asio::cancellation_type::terminal);
    }
    bool idle() const { return running_ == 0; }
    /// How many run.
    std::size_t count() const { return running_; }
    /// Whether one runs that is not cancelled.
    bool active() const { return !signals_.empty(); }

private:
    void tell(const std::exception_ptr& e) {
        try {
            std::rethrow_exception(e);
        } catch (const std::exception& failure) {
            failed_(failure.what());
        }
    }

    asio::any_io_executor executor_;
    std::function<void(const std::string&)> failed_;
    std::vector<std::shared_ptr<asio::cancellation_signal>> signals_;
    std::size_t running_ = 0;
};

/// Whether a conversation has been cancelled: its owner wants nothing more of it.
inline bool isCancelled(const asio::cancellation_state& state) {
    return state.cancelled() != asio::cancellation_type::none;
}

} // namespace gateway
