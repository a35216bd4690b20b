#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/deferred.hpp>
#include <boost/asio/experimental/parallel_group.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/system/system_error.hpp>

#include <chrono>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

/// Within: a limit for every wait.

namespace gateway {

namespace asio = boost::asio;
using asio::awaitable;
using asio::use_awaitable;
using Duration = std::chrono::steady_clock::duration;
using Instant = std::chrono::steady_clock::time_point;

/// What a failure means to an operator.
inline std::string reasonOf(const std::exception& e) {
    const auto* const error = dynamic_cast<const boost::system::system_error*>(&e);
    return error ? error->code().message() : e.what();
}

/// A limit has passed; what() says for what.
class TimeUp : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

inline awaitable<void> pause(Duration time) {
    asio::steady_timer timer(co_await asio::this_coro::executor, time);
    co_await timer.async_wait(use_awaitable);
}

/// Runs both until one ends, then cancels the other one. What the first one threw is thrown. (The
/// operator || of awaitable_operators would wait on for one that succeeds.)
inline awaitable<void> firstOf(awaitable<void> a, awaitable<void> b) {
    const auto executor = co_await asio::this_coro::executor;
    const auto [order, ofA, ofB] =
        co_await asio::experimental::make_parallel_group(
            asio::co_spawn(executor, std::move(a), asio::deferred),
            asio::co_spawn(executor, std::move(b), asio::deferred))
            .async_wait(asio::experimental::wait_for_one(), use_awaitable);
    if (const std::exception_ptr& failure = order[0] == 0 ? ofA : ofB)
        std::rethrow_exception(failure);
}

/// Keeps the result of an operation.
template <class T> awaitable<void> into(std::optional<T>& out, awaitable<T> operation) {
    out.emplace(co_await std::move(operation));
}

inline awaitable<void> timeUp(Duration limit, std::string what) {
    co_await pause(limit);
    throw TimeUp(what);
}

/// The result of an operation, or TimeUp(what) when it takes longer; then it is cancelled.
template <class T> awaitable<T> within(Duration limit, awaitable<T> operation, std::string what) {
    awaitable<void> end = timeUp(limit, what);
    if constexpr (std::is_void_v<T>) {
        co_await firstOf(std::move(operation), std::move(end));
    } else {
        std::optional<T> result;
        co_await firstOf(into(result, std::move(operation)), std::move(end));
        co_return std::move(*result);
    }
}

/// The limit of a conversation that goes on: it moves, but only to later, at little cost.
class Deadline {
public:
    Deadline(Duration limit, const char* what) { set(limit, what); }
    /// From now on; `what` lives as long as this.
    void set(Duration limit, const char* what) {
        at_ = std::chrono::steady_clock::now() + limit;
        what_ = what;
    }
    /// Ends with TimeUp.
    awaitable<void> passed() const {
        asio::steady_timer timer(co_await asio::this_coro::executor);
        while (std::chrono::steady_clock::now() < at_) {
            timer.expires_at(at_);
            co_await timer.async_wait(use_awaitable);
        }
        throw TimeUp(what_);
    }

private:
    Instant at_{};
    const char* what_ = nullptr;
};

} // namespace gateway
