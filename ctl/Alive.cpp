#include "ctl/Alive.h"

#include "gnss/Clock.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iostream>
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

int runAlive(int seconds) {
    const char* const name = std::getenv("NOTIFY_SOCKET");
    if (hearsSignOfLife(name ? name : "", std::chrono::seconds(seconds)))
        return 0;
    std::cerr << "no sign of life within " << seconds << " s\n";
    return 1;
}

} // namespace ctl::alive
