#include "net/LineWriter.h"

#include "common/Clock.h"
#include "common/Findings.h"
#include "net/ysocket.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t kLongLine = 4096; // room that is there from the start

/// Another open file description of the same pipe or terminal. To be non-blocking is a property of
/// the description, and the one we got may be shared with other processes. -1 where it cannot be
/// had.
int ownDescription(int fd) {
    return open(text("/proc/self/fd/%d", fd).c_str(),
                O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

} // namespace

LineWriter::LineWriter(int fd, std::string_view mark) : fd_(fd), mark_(mark) {
    rest_.reserve(kLongLine);
    struct stat what {};
    if (fstat(fd, &what) != 0)
        return;
    socket_ = S_ISSOCK(what.st_mode);
    if (!S_ISFIFO(what.st_mode) && isatty(fd) != 1)
        return;
    if (const int own = ownDescription(fd); own >= 0) {
        fd_ = own;
        owned_ = true;
    }
}

LineWriter::~LineWriter() {
    if (owned_)
        close(fd_);
}

void LineWriter::write(std::string_view line) {
    if (finishLast() && dropped_ > 0)
        tellDropped();
    if (dropped_ > 0 || !finishLast() || !offer(line))
        ++dropped_;
}

void LineWriter::waitFor(std::chrono::milliseconds limit) {
    waitsUntil_ = monotonicNow() + limit;
}

void LineWriter::tellDropped() {
    std::array<char, 80> line{};
    std::snprintf(line.data(), line.size(), "%s***WARN: %llu lines of the log were dropped!\n",
                  mark_.c_str(), static_cast<unsigned long long>(dropped_));
    if (offer(line.data()))
        dropped_ = 0;
}

/// Whether nothing is left of the line that was taken in part.
bool LineWriter::finishLast() {
    if (!rest_.empty())
        rest_.erase(0, writeNow(rest_));
    return rest_.empty();
}

/// Whether the text went out; where a part of it did the rest will.
bool LineWriter::offer(std::string_view text) {
    const std::size_t written = writeNow(text);
    if (written > 0)
        rest_ = text.substr(written);
    return written > 0;
}

/// The bytes that were taken. A pipe that poll finds writable takes PIPE_BUF of them.
std::size_t LineWriter::writeNow(std::string_view text) const {
    std::size_t done = 0;
    while (done < text.size()) {
        const std::string_view piece = text.substr(done, PIPE_BUF);
        pollfd room{fd_, POLLOUT, 0};
        ssize_t n = -1;
        if (socket_)
            n = socket_send_now(fd_, piece);
        else if (poll(&room, 1, 0) > 0)
            n = ::write(fd_, piece.data(), piece.size());
        else
            errno = EAGAIN;
        if (n > 0)
            done += static_cast<std::size_t>(n);
        else if (errno != EINTR && (errno != EAGAIN || !waitForRoom()))
            break;
    }
    return done;
}

bool LineWriter::waitForRoom() const {
    if (waitsUntil_.count() == 0)
        return false;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(waitsUntil_ - monotonicNow()).count();
    pollfd room{fd_, POLLOUT, 0};
    return left > 0 && poll(&room, 1, static_cast<int>(left)) != 0;
}
