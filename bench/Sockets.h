#pragma once

#include "reference/standard/frame.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <netinet/tcp.h>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

/// Sockets: what the programs of the benchmarks share: TCP over loopback, and numbers.

inline void require(bool holds, const std::string& what) {
    if (!holds)
        throw std::runtime_error(what);
}

/// The result of a system call that has to succeed.
inline int done(int result) {
    if (result < 0)
        throw std::system_error(errno, std::generic_category());
    return result;
}

inline void setOn(int fd, int level, int option) {
    const int on = 1;
    done(setsockopt(fd, level, option, &on, sizeof on));
}

class Socket {
public:
    explicit Socket(int fd) : fd_(done(fd)) {}
    Socket(Socket&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    Socket& operator=(Socket&&) = delete;
    ~Socket() {
        if (fd_ >= 0)
            close(fd_);
    }
    int fd() const { return fd_; }

    void send(std::span<const std::uint8_t> bytes) const {
        require(::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
                    static_cast<ssize_t>(bytes.size()),
                "not all could be sent");
    }
    void send(std::string_view text) const {
        send({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    }
    /// Adds what is there; false at the end of the connection, or when nothing comes within the
    /// time limit of the socket.
    bool receive(ref::Bytes& to) const {
        std::uint8_t block[16384];
        const ssize_t n = recv(fd_, block, sizeof block, 0);
        to.insert(to.end(), block, block + std::max<ssize_t>(n, 0));
        return n > 0;
    }

private:
    int fd_;
};

inline sockaddr_in addressOf(const char* host, int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    require(inet_pton(AF_INET, host, &address.sin_addr) == 1, "not an address");
    return address;
}

inline Socket tcp() {
    return Socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

inline Socket listenOn(const char* host, int port) {
    Socket listener = tcp();
    const sockaddr_in address = addressOf(host, port);
    setOn(listener.fd(), SOL_SOCKET, SO_REUSEADDR);
    done(bind(listener.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
    done(listen(listener.fd(), SOMAXCONN));
    return listener;
}

/// Nothing of what is written waits for more.
inline Socket accepted(const Socket& listener) {
    Socket s(accept4(listener.fd(), nullptr, nullptr, SOCK_CLOEXEC));
    setOn(s.fd(), IPPROTO_TCP, TCP_NODELAY);
    return s;
}

inline double percentile(std::vector<double> values, double part) {
    require(!values.empty(), "nothing was measured");
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
}

inline int number(std::string_view text) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    require(error == std::errc() && end == text.data() + text.size(), "not a number");
    return value;
}
