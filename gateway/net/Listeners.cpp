#include "gateway/net/Listeners.h"

#include "gateway/net/Say.h"

#include <boost/asio/redirect_error.hpp>

#include <algorithm>
#include <utility>

namespace gateway {

using namespace std::chrono_literals;

Listeners::Listeners(const asio::any_io_executor& executor, Words words,
                     std::function<void(tcp::socket)> take)
    : executor_(executor), words_(std::move(words)), take_(std::move(take)),
      tasks_(executor, [this](const std::string& why) { say(Level::error, words_.who, why); }) {}

std::vector<std::string> Listeners::apply(std::vector<HostPort> wanted) {
    wanted_ = std::move(wanted);
    std::erase_if(open_, [&](const auto& listener) {
        if (std::ranges::count(wanted_, listener->where) > 0)
            return false;
        listener->acceptor.close();
        return true;
    });
    return openMissing();
}

std::vector<std::string> Listeners::openMissing() {
    std::vector<std::string> failures;
    for (const HostPort& where : wanted_) {
        if (std::ranges::any_of(open_, [&](const auto& open) { return open->where == where; }))
            continue;
        try {
            open(where);
        } catch (const boost::system::system_error& e) {
            failures.push_back("cannot listen on " + shown(where) + ": " + e.code().message());
        }
    }
    return failures;
}

void Listeners::stop() {
    tasks_.cancel();
    wanted_.clear();
    open_.clear();
}

void Listeners::open(const HostPort& where) {
    // [::] takes IPv4 as well
    open_.push_back(
        std::make_shared<Listener>(Listener{where, tcp::acceptor(executor_, endpointOf(where))}));
    const HostPort there{where.host, open_.back()->acceptor.local_endpoint().port()};
    say(Level::notice, words_.who, words_.before + shown(there) + words_.after);
    tasks_.start(accept(open_.back()));
}

awaitable<void> Listeners::accept(std::shared_ptr<Listener> listener) {
    bool told = false;
    while (listener->acceptor.is_open()) {
        boost::system::error_code e;
        tcp::socket socket =
            co_await listener->acceptor.async_accept(asio::redirect_error(use_awaitable, e));
        if (e == asio::error::operation_aborted)
            co_return;
        if (e) { // no descriptors are left, for one
            if (!std::exchange(told, true))
                say(Level::error, words_.who,
                    "takes nobody on " + shown(listener->where) + ": " + e.message());
            co_await pause(1s);
        } else {
            told = false;
            take_(std::move(socket));
        }
    }
}

} // namespace gateway
