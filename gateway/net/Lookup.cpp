#include "gateway/net/Lookup.h"

#include "gateway/net/OnThread.h"

#include <boost/asio/execution_context.hpp>

namespace gateway {

namespace {

using Results = asio::ip::tcp::resolver::results_type;

constexpr std::size_t kThreads = 8;

/// getaddrinfo(3) cannot be asked to hurry or to stop. Boost asks it on one thread for all names.
class Lookups final : public asio::execution_context::service {
public:
    static inline asio::execution_context::id id;
    explicit Lookups(asio::execution_context& context) : service(context) {}
    asio::thread_pool threads{kThreads};

private:
    void shutdown() override {
        threads.stop();
        threads.join();
    }
};

} // namespace

awaitable<Results> lookUp(HostPort host) {
    const auto executor = co_await asio::this_coro::executor;
    asio::execution_context& context = asio::query(executor, asio::execution::context);
    Lookups& lookups = asio::use_service<Lookups>(context);
    const auto resolve = [&lookups, host = std::move(host)] {
        asio::ip::tcp::resolver resolver(lookups.threads);
        return resolver.resolve(host.host, std::to_string(host.port));
    };
    co_return co_await onThread(lookups.threads, resolve);
}

} // namespace gateway
