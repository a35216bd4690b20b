#include "net/Notify.h"

#include "base/Print.h"
#include "base/Signals.h"
#include "gnss/Clock.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace {

using std::chrono::milliseconds;
using Instant = std::chrono::nanoseconds; // of the monotonic clock

constexpr milliseconds kNewsSpacing{1000};
constexpr milliseconds kShortestPeriod{10};
constexpr milliseconds kLongestWait{3'600'000}; // fits poll's int

struct Manager {
    int fd = -1; // -1: there is none
    sockaddr_un address{};
    socklen_t addressLength = 0;
    milliseconds period{}; // between signs of life; zero: none are wanted
    Instant aliveDue{};    // the next one
    Instant newsDue{};     // not before, unless it is the news of being ready
    bool ready = false;    // to be told
    bool readyTold = false;
    std::string status; // to be told

    bool hasNews() const { return ready || !status.empty(); }
};
Manager manager;
std::function<milliseconds()> beside;

/// A path, or an abstract name behind '@'; either may fill the field, without a NUL at its end.
bool setAddress(std::string_view name) {
    char* const field = manager.address.sun_path;
    if (name.size() < 2 || name.size() > sizeof manager.address.sun_path ||
        (name[0] != '/' && name[0] != '@'))
        return false;
    manager.address.sun_family = AF_UNIX;
    name.copy(field, name.size());
    if (name[0] == '@')
        field[0] = '\0';
    manager.addressLength = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    return true;
}

bool send(const std::string& message) {
    return sendto(manager.fd, message.data(), message.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                  reinterpret_cast<const sockaddr*>(&manager.address),
                  manager.addressLength) == static_cast<ssize_t>(message.size());
}

/// News that the manager does not take stay due; of a sign of life the next one makes up for it.
void tellNews(Instant now) {
    const std::string status = manager.status.empty() ? "" : "STATUS=" + manager.status + "\n";
    if (send((manager.ready ? "READY=1\n" : "") + status)) {
        manager.readyTold |= manager.ready;
        manager.ready = false;
        manager.status.clear();
    }
    manager.newsDue = now + kNewsSpacing;
}

/// Tells what is due; the time until more is.
milliseconds tell() {
    if (manager.fd < 0)
        return kLongestWait;
    const Instant now = monotonicNow();
    Instant next = now + kLongestWait;
    if (manager.hasNews() && now >= manager.newsDue)
        tellNews(now);
    if (manager.hasNews())
        next = manager.newsDue;
    if (manager.period.count() > 0) {
        if (now >= manager.aliveDue) {
            static_cast<void>(send("WATCHDOG=1\n"));
            manager.aliveDue = now + manager.period;
        }
        next = std::min(next, manager.aliveDue);
    }
    return std::chrono::ceil<milliseconds>(next - now);
}

int pollAwaitingSignals(pollfd& p, milliseconds limit) {
    const SignalsAwaited here;
    return poll(&p, 1, static_cast<int>(limit.count()));
}

std::optional<std::uint64_t> wholeNumber(const char* value) {
    const std::string_view text = value ? value : "";
    std::uint64_t out = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return out;
}

} // namespace

milliseconds watchdogPeriod(const char* usec, const char* pid, std::int64_t ownPid) {
    const std::uint64_t limit = wholeNumber(usec).value_or(0);
    if (limit == 0 || (pid && wholeNumber(pid) != static_cast<std::uint64_t>(ownPid)))
        return {};
    constexpr auto longest = static_cast<std::uint64_t>(kLongestWait.count());
    return std::max(kShortestPeriod, milliseconds(std::min(limit / 4000, longest)));
}

void notifyInitial() {
    manager = {};
    const char* const name = std::getenv("NOTIFY_SOCKET");
    if (!name || !setAddress(name))
        return;
    manager.fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    manager.period =
        watchdogPeriod(std::getenv("WATCHDOG_USEC"), std::getenv("WATCHDOG_PID"), getpid());
}

void notifyReady() {
    if (manager.ready || manager.readyTold)
        return;
    manager.ready = true;
    manager.newsDue = {};
}

void notifyStatus(const char* format, ...) {
    if (manager.fd < 0)
        return;
    std::array<char, 151> line{};
    std::va_list args;
    va_start(args, format);
    std::vsnprintf(line.data(), line.size(), format, args);
    va_end(args);
    manager.status = line.data();
}

void notifyDue() {
    static_cast<void>(tell());
}

void tellBeside(std::function<milliseconds()> what) {
    beside = std::move(what);
}

bool waitTelling(int fd, short events, milliseconds limit) {
    printFlush();
    const Instant end = monotonicNow() + limit;
    pollfd p{fd, events, 0};
    for (;;) {
        milliseconds due = tell();
        if (beside) {
            due = std::min(due, beside());
            printFlush(); // what it had to say
        }
        const auto left = std::chrono::ceil<milliseconds>(end - monotonicNow());
        const milliseconds slice = std::max(std::min(due, left), milliseconds(0));
        const int n = pollAwaitingSignals(p, slice);
        if (n > 0 || (n < 0 && errno != EINTR))
            return true;
        if (n == 0 && left <= due)
            return false;
    }
}

void pauseTelling(milliseconds time) {
    constexpr int none = -1; // poll passes over it
    static_cast<void>(waitTelling(none, 0, time));
}
