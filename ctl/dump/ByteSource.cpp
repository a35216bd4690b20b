#include "ctl/dump/ByteSource.h"

#include "gnss/Clock.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <netdb.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ctl::dump {

namespace {

constexpr int kConnectMs = 10000;

volatile std::sig_atomic_t interrupted = 0;

sigset_t interrupts() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

/// From now on interrupts only end the wait in ByteSource::read.
void catchInterrupts() {
    struct sigaction action = {};
    action.sa_handler = [](int) { interrupted = 1; };
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    const sigset_t set = interrupts();
    sigprocmask(SIG_BLOCK, &set, nullptr);
}

[[noreturn]] void fail(const std::string& name, const std::string& why) {
    throw std::runtime_error(name + ": " + why);
}

/// Connects, without blocking for longer than the limit; 0, or the error.
int connectInTime(int fd, const addrinfo& to) {
    if (connect(fd, to.ai_addr, to.ai_addrlen) == 0)
        return 0;
    if (errno != EINPROGRESS)
        return errno;
    pollfd ready{fd, POLLOUT, 0};
    if (poll(&ready, 1, kConnectMs) != 1)
        return ETIMEDOUT;
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

/// A descriptor connected to HOST:PORT or [HOST]:PORT.
int connectTo(const std::string& name, std::size_t colon) {
    std::string host = name.substr(0, colon);
    const std::string port = name.substr(colon + 1);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (const int error = getaddrinfo(host.c_str(), port.c_str(), &hints, &found))
        fail(name, std::string("cannot resolve the host: ") + gai_strerror(error));
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> list(found, freeaddrinfo);
    int error = 0;
    for (const addrinfo* a = found; a; a = a->ai_next) {
        const int fd =
            socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, a->ai_protocol);
        error = fd < 0 ? errno : connectInTime(fd, *a);
        if (fd >= 0 && error == 0)
            return fd;
        if (fd >= 0)
            close(fd);
    }
    fail(name, std::string("cannot connect: ") + std::strerror(error));
}

/// Position of the colon before a port number; npos where there is none.
std::size_t portColon(const std::string& name) {
    const std::size_t colon = name.rfind(':');
    if (colon == 0 || colon == std::string::npos)
        return std::string::npos;
    const std::string port = name.substr(colon + 1);
    const bool number = !port.empty() && port.size() <= 5 &&
                        port.find_first_not_of("0123456789") == std::string::npos &&
                        std::stoi(port) >= 1 && std::stoi(port) <= 65535;
    return number ? colon : std::string::npos;
}

} // namespace

ByteSource::ByteSource(const std::string& name) : name_(name == "-" ? "standard input" : name) {
    if (name == "-") {
        fd_ = STDIN_FILENO;
    } else {
        fd_ = open(name.c_str(), O_RDONLY | O_CLOEXEC);
        const int error = errno;
        const std::size_t colon = portColon(name);
        if (fd_ < 0 && error == ENOENT && colon != std::string::npos)
            fd_ = connectTo(name, colon);
        else if (fd_ < 0)
            fail(name, std::strerror(error) +
                           std::string(error == ENOENT ? ", nor is it HOST:PORT" : ""));
    }
    struct stat status {};
    live_ = fstat(fd_, &status) != 0 || !S_ISREG(status.st_mode);
    catchInterrupts();
}

ByteSource::~ByteSource() {
    if (fd_ > STDIN_FILENO)
        close(fd_);
}

std::size_t ByteSource::read(std::span<std::uint8_t> block,
                             std::optional<std::chrono::nanoseconds> until) {
    sigset_t waiting;
    sigemptyset(&waiting);
    for (;;) {
        timespec left{};
        if (until) {
            const std::chrono::nanoseconds n = *until - monotonicNow();
            if (n.count() <= 0)
                return none(End::time);
            left.tv_sec = static_cast<std::time_t>(n / std::chrono::seconds(1));
            left.tv_nsec = static_cast<std::int32_t>((n % std::chrono::seconds(1)).count());
        }
        pollfd ready{fd_, POLLIN, 0};
        const int woken = ppoll(&ready, 1, until ? &left : nullptr, &waiting);
        if (interrupted)
            return none(End::interrupt);
        if (woken == 0)
            continue; // the time is over
        if (woken > 0)
            if (const ssize_t n = ::read(fd_, block.data(), block.size()); n >= 0)
                return n > 0 ? static_cast<std::size_t>(n) : none(End::end);
        if (errno != EINTR && errno != EAGAIN)
            fail(name_, std::string("cannot be read: ") + std::strerror(errno));
    }
}

} // namespace ctl::dump
