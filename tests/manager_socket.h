/// What a program tells the service manager that started it.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

/// The socket of a service manager: a path, or an abstract name behind '@'.
class ManagerSocket {
public:
    explicit ManagerSocket(const std::string& name) : name_(name + std::to_string(getpid())) {
        name_.copy(address_.sun_path, sizeof address_.sun_path);
        if (name_[0] == '@')
            address_.sun_path[0] = '\0';
        EXPECT_EQ(bind(fd_, any(), length()), 0) << name_;
    }
    ~ManagerSocket() {
        close(fd_);
        unlink(name_.c_str());
    }
    std::string variable() const { return "NOTIFY_SOCKET=" + name_; }
    /// The next message; a failure and empty where 20 s bring none.
    std::string next() {
        pollfd p{fd_, POLLIN, 0};
        std::array<char, 1024> in{};
        const auto n = poll(&p, 1, 20000) == 1 ? recv(fd_, in.data(), in.size(), 0) : 0;
        EXPECT_GT(n, 0) << "nothing is told";
        std::string message(in.data(), static_cast<std::size_t>(n));
        readies += message.starts_with("READY=1\n") ? 1 : 0;
        lives += message == "WATCHDOG=1\n" ? 1 : 0;
        return message;
    }
    /// Takes messages until one holds the text; that one.
    std::string until(const std::string& text) {
        std::string message = next();
        while (!message.empty() && message.find(text) == message.npos)
            message = next();
        return message;
    }
    void expectLives(int times) {
        while (times-- > 0 && !until("WATCHDOG=1\n").empty()) {
        }
    }
    /// Whether a message comes within that time; it stays.
    bool hears(std::chrono::milliseconds limit) const {
        pollfd p{fd_, POLLIN, 0};
        return poll(&p, 1, static_cast<int>(limit.count())) == 1;
    }
    void drain() {
        while (hears(std::chrono::milliseconds(0)))
            next();
    }
    /// Takes up all its room with messages of the test; their number.
    int fill() const {
        int count = 0;
        while (sendto(fd_, "x", 1, MSG_DONTWAIT, any(), length()) == 1)
            ++count;
        return count;
    }

    int readies = 0;
    int lives = 0;

private:
    const sockaddr* any() const { return reinterpret_cast<const sockaddr*>(&address_); }
    socklen_t length() const {
        return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name_.size());
    }

    const int fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const std::string name_;
    sockaddr_un address_{AF_UNIX, {}};
};
