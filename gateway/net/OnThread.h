#pragma once

#include "gateway/net/Within.h"

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/async_result.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/prefer.hpp>
#include <boost/asio/thread_pool.hpp>

/// OnThread: work that blocks, on another thread.

namespace gateway {

/// What the work returns or throws, when one of the threads has done it. Nobody can end it: who is
/// cancelled meanwhile goes on when it is done.
template <typename Work>
awaitable<std::invoke_result_t<Work>> onThread(asio::thread_pool& threads, Work work) {
    using Result = std::invoke_result_t<Work>;
    const auto executor = co_await asio::this_coro::executor;
    const asio::any_io_executor home =
        asio::prefer(executor, asio::execution::outstanding_work.tracked);
    auto begin = [&threads, home](auto handler, Work todo) {
        asio::post(threads, [home, handler = std::move(handler), todo = std::move(todo)]() mutable {
            std::exception_ptr failure;
            Result result{};
            try {
                result = todo();
            } catch (...) {
                failure = std::current_exception();
            }
            asio::post(home, [handler = std::move(handler), failure,
                              result = std::move(result)]() mutable {
                std::move(handler)(failure, std::move(result));
            });
        });
    };
    co_return co_await asio::async_initiate<decltype(use_awaitable),
                                            void(std::exception_ptr, Result)>(
        std::move(begin), use_awaitable, std::move(work));
}

} // namespace gateway
