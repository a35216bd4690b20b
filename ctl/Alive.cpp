#include "ctl/Alive.h"

#include "common/Clock.h"

#include <CLI/CLI.hpp>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <poll.h>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace ctl::alive {

namespace {

using std::chrono::milliseconds;

class Listener {
public:
    explicit Listener(const std::string& name)
        : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        sockaddr_un address{AF_UNIX, {}};
        if (name.size() < 2 || name.size() > sizeof address.sun_path || name[0] != '@')
            throw std::runtime_error("NOTIFY_SOCKET names no abstract socket, such as @kestrune");
        name.copy(address.sun_path, name.size());
        address.sun_path[0] = '\0';
        const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        if (bind(fd_, reinterpret_cast<const sockaddr*>(&address), length) != 0)
            throw std::runtime_error(name + ": " + std::strerror(errno));
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    ~Listener() { close(fd_); }

    /// The next message; empty where the limit passes first.
    std::string_view next(milliseconds limit) {
        pollfd ready{fd_, POLLIN, 0};
        if (poll(&ready, 1, static_cast<int>(limit.count())) != 1)
            return {};
        const ssize_t length = recv(fd_, message_.data(), message_.size(), 0);
        return {message_.data(), length > 0 ? static_cast<std::size_t>(length) : 0};
    }

private:
    const int fd_;
    std::array<char, 1024> message_{};
};

} // namespace

bool hearsSignOfLife(const std::string& name, milliseconds limit) {
    Listener listener(name);
    const auto end = monotonicNow() + limit;
    for (auto left = limit; left.count() > 0;
         left = std::chrono::ceil<milliseconds>(end - monotonicNow()))
        if (listener.next(left).starts_with("WATCHDOG=1"))
            return true;
    return false;
}

void addAlive(CLI::App& app, int& status) {
    const auto seconds = std::make_shared<int>(10);
    CLI::App* const alive = app.add_subcommand(
        "alive", "Wait for a sign of life of the service in the same container.");
    alive->add_option("--within", *seconds, "seconds to wait, 1 to 3600; 10 by default")
        ->check(CLI::Range(1, 3600));
    alive->footer(
        "The service and this program need the same NOTIFY_SOCKET, such as @kestrune, and\n"
        "the service WATCHDOG_USEC, four times the microseconds between two signs of life.\n"
        "Ends with 0 alive; 1 silent; 2 no such socket.");
    alive->callback([seconds, &status] {
        const char* const name = std::getenv("NOTIFY_SOCKET");
        status = hearsSignOfLife(name ? name : "", std::chrono::seconds(*seconds)) ? 0 : 1;
        if (status != 0)
            static_cast<void>(std::fprintf(stderr, "no sign of life within %d s\n", *seconds));
    });
}

} // namespace ctl::alive
