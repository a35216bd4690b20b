#include "net/LineWriter.h"

#include "base/Findings.h"
#include "base/Signals.h"
#include "gnss/Clock.h"
#include "net/ysocket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t kCollected = 8192; // bytes; the lines of an epoch fit
constexpr std::size_t kTold = 80;        // bytes of the line that tells of dropped ones, at most

/// Another open file description of the same pipe or terminal. To be non-blocking is a property of
/// the description, and the one we got may be shared with other processes. -1 where it cannot be
/// had.
int ownDescription(int fd) {
    return open(text("/proc/self/fd/%d", fd).c_str(),
                O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

} // namespace

LineWriter::LineWriter(int fd, std::string_view mark) : fd_(fd), mark_(mark) {
    lines_.reserve(kCollected + kTold);
    struct stat what {};
    if (fstat(fd, &what) != 0)
        return;
    socket_ = S_ISSOCK(what.st_mode);
    datagrams_ = socket_ && !socket_isstream(fd);
    asksFirst_ = !socket_ && !S_ISREG(what.st_mode);
    if (!S_ISFIFO(what.st_mode) && isatty(fd) != 1)
        return;
    if (const int own = ownDescription(fd); own >= 0) {
        fd_ = own;
        owned_ = true;
        asksFirst_ = false;
    }
}

LineWriter::~LineWriter() {
    flush();
    if (owned_)
        close(fd_);
}

void LineWriter::write(std::string_view line) {
    if (!lines_.empty() && lines_.size() + line.size() > kCollected)
        flush();
    const SignalsDeferred untilWhole;
    lines_.reserve(lines_.size() + line.size() + kTold);
    lines_ += line;
}

void LineWriter::flush() {
    const SignalsDeferred untilDone;
    std::size_t out = 0; // bytes of the lines
    while (out < lines_.size()) {
        if (dropped_ > 0 && !rest_ && !tellDropped(out))
            break;
        const std::size_t size = pieceOf(std::string_view(lines_).substr(out));
        const std::size_t taken = writeNow(std::string_view(lines_).substr(out, size));
        if (taken == 0)
            break;
        out += taken;
        rest_ = lines_[out - 1] != '\n';
    }
    lines_.erase(0, out);
    const std::size_t kept = rest_ ? lines_.find('\n') + 1 : 0;
    const auto lost = static_cast<std::uint64_t>(
        std::count(lines_.begin() + static_cast<std::ptrdiff_t>(kept), lines_.end(), '\n'));
    dropped_ += lost;
    droppedInAll_ += lost;
    lines_.resize(kept);
}

void LineWriter::waitFor(std::chrono::milliseconds limit) {
    waitsUntil_ = monotonicNow() + limit;
}

/// Whether the number of dropped lines went out; where a part of its line did the rest stands at
/// that place of the lines.
bool LineWriter::tellDropped(std::size_t at) {
    std::array<char, kTold> line{};
    char* end = std::copy(mark_.begin(), mark_.end(), line.data());
    constexpr std::string_view before = "***WARN: ";
    constexpr std::string_view behind = " lines of the log were dropped!\n";
    end = std::copy(before.begin(), before.end(), end);
    end = std::to_chars(end, line.data() + line.size(), dropped_).ptr;
    end = std::copy(behind.begin(), behind.end(), end);
    const std::string_view told(line.data(), static_cast<std::size_t>(end - line.data()));
    const std::size_t taken = writeNow(told);
    if (taken == 0)
        return false;
    dropped_ = 0;
    rest_ = taken < told.size();
    lines_.insert(at, told.substr(taken));
    return true;
}

/// Bytes of the text to offer at once: whole lines, of which a pipe takes all or none, or a part of
/// a line that is longer than that.
std::size_t LineWriter::pieceOf(std::string_view text) const {
    const bool single = datagrams_ || (rest_ && dropped_ > 0);
    const std::size_t end = single ? text.find('\n') : text.rfind('\n', std::size_t{PIPE_BUF} - 1);
    return end < PIPE_BUF ? end + 1 : std::min<std::size_t>(text.size(), PIPE_BUF);
}

/// The bytes that were taken. A pipe that poll finds writable takes PIPE_BUF of them.
std::size_t LineWriter::writeNow(std::string_view piece) const {
    for (;;) {
        pollfd room{fd_, POLLOUT, 0};
        ssize_t n = -1;
        if (socket_)
            n = socket_send_now(fd_, piece);
        else if (!asksFirst_ || poll(&room, 1, 0) > 0)
            n = ::write(fd_, piece.data(), piece.size());
        else
            errno = EAGAIN;
        if (n > 0)
            return static_cast<std::size_t>(n);
        if (errno != EINTR && (errno != EAGAIN || !waitForRoom()))
            return 0;
    }
}

bool LineWriter::waitForRoom() const {
    if (waitsUntil_.count() == 0)
        return false;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(waitsUntil_ - monotonicNow()).count();
    pollfd room{fd_, POLLOUT, 0};
    return left > 0 && poll(&room, 1, static_cast<int>(left)) != 0;
}
