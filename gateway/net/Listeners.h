#pragma once

#include "gateway/net/Channel.h"
#include "gateway/net/Tasks.h"

#include <boost/asio/any_io_executor.hpp>

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// Listeners: the ports on which a part of the gateway waits for peers.

namespace gateway {

class Listeners {
public:
    /// What is said of them: by whom, and around the address of each.
    struct Words {
        std::string who, before, after;
    };
    /// `take` gets each connection.
    Listeners(const asio::any_io_executor& executor, Words words,
              std::function<void(tcp::socket)> take);

    /// Opens and closes; those that are wanted and open stay so. Why others cannot be opened.
    std::vector<std::string> apply(std::vector<HostPort> wanted);
    /// Once a second: tries those again that cannot be opened. Why they still cannot.
    std::vector<std::string> openMissing();
    void stop();
    bool idle() const { return tasks_.idle(); }

private:
    struct Listener {
        HostPort where;
        tcp::acceptor acceptor;
    };
    void open(const HostPort& where);
    awaitable<void> accept(std::shared_ptr<Listener> listener);

    asio::any_io_executor executor_;
    Words words_;
    std::function<void(tcp::socket)> take_;
    std::vector<HostPort> wanted_;
    std::vector<std::shared_ptr<Listener>> open_;
    Tasks tasks_;
};

} // namespace gateway
