#include "gateway/station/Child.h"

#include "gateway/net/Outbox.h"
#include "gateway/net/Program.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/connect_pipe.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/readable_pipe.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/writable_pipe.hpp>

// What Boost.Process 1.81 leaves out stands around it.
#include <boost/io/quoted.hpp>
#include <boost/optional.hpp>
#include <boost/type_traits.hpp>

#include <boost/process/v2.hpp>
#include <boost/process/v2/impl/environment.ipp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <unordered_map>

namespace gateway {

namespace process = boost::process::v2;
using namespace std::chrono_literals;

namespace {

constexpr std::size_t kLongestLine = 1000;
constexpr Duration kEndLimit = 1s; // between SIGTERM and SIGKILL
constexpr Duration kLook = 50ms;

/// In the child, before the program: it gets SIGTERM when we end, however that happens.
struct EndsWithParent {
    process::error_code on_exec_setup(process::posix::default_launcher&,
                                      const process::filesystem::path&, const char* const*) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        setpgid(0, 0);                            // what it starts can be ended with it
        close_range(3, ~0U, CLOSE_RANGE_CLOEXEC); // our connections are not its
        return {};
    }
    /// What this process would do at its end is our business, not that of a copy of us.
    void on_exec_error(process::posix::default_launcher&, const process::filesystem::path&,
                       const char* const*, const process::error_code&) {
        _exit(EXIT_FAILURE);
    }
};

std::string journalStream(int fd) {
    struct stat info {};
    fstat(fd, &info);
    return std::to_string(info.st_dev) + ":" + std::to_string(info.st_ino);
}

/// A line with its level in front, "<4>text"; other lines are for nobody.
void relay(std::string_view line, const Say& say) {
    if (line.size() < 4 || line[0] != '<' || line[2] != '>' || line[1] < '0' || line[1] > '7')
        return;
    const auto level = static_cast<Level>(line[1] - '0');
    if (level <= Level::warning)
        say(level, std::string(line.substr(3)));
}

template <class Running> awaitable<void> relayLines(std::shared_ptr<Running> running, Say say) {
    std::array<char, 4096> buffer;
    std::string line;
    boost::system::error_code e;
    for (;;) {
        const std::size_t n = co_await running->lines.async_read_some(
            asio::buffer(buffer), asio::redirect_error(use_awaitable, e));
        if (n == 0)
            co_return;
        for (const char c : std::string_view(buffer.data(), n)) {
            if (c == '\n') {
                relay(line, say);
                line.clear();
            } else if (line.size() < kLongestLine) {
                line += c;
            }
        }
    }
}

std::string howItEnded(int status) {
    if (WIFSIGNALED(status))
        return "ended by signal " + std::to_string(WTERMSIG(status));
    return "ended with status " + std::to_string(WEXITSTATUS(status));
}

} // namespace

struct Child::Running {
    Running(asio::readable_pipe from, pid_t started, int descriptor)
        : id(started), lines(std::move(from)), end(lines.get_executor(), descriptor),
          ended(lines.get_executor()) {}
    pid_t id; // and of its group
    asio::readable_pipe lines;
    asio::posix::stream_descriptor end; // readable when the process has ended (pidfd_open(2))
    Bell ended;
    bool unwanted = false, gone = false;
    int status = 0; // of waitpid
};

namespace {

/// Reaps the child; who waits for its end is told.
template <class Running> awaitable<void> reap(std::shared_ptr<Running> running) {
    co_await running->end.async_wait(asio::posix::descriptor_base::wait_read, use_awaitable);
    if (running->unwanted) // while the number is its own
        kill(-running->id, SIGKILL);
    waitpid(running->id, &running->status, 0);
    running->gone = true;
    running->ended.ring();
    co_await pause(kLook); // for its last lines: what it has left behind may hold the pipe for long
    boost::system::error_code none;
    running->lines.close(none);
}

/// Unless it ends in time.
template <class Running> awaitable<void> killLater(std::shared_ptr<Running> running) {
    for (Duration waited{}; waited < kEndLimit && !running->gone; waited += kLook)
        co_await pause(kLook);
    if (!running->gone)
        kill(-running->id, SIGKILL);
}

} // namespace

Child::Child(const asio::any_io_executor& executor, const std::filesystem::path& program,
             const std::vector<std::string>& arguments, const Say& say) {
    asio::readable_pipe lines(executor);
    asio::writable_pipe out(executor);
    asio::connect_pipe(lines, out);
    const std::filesystem::path path = findProgram(program);
    if (path.empty())
        throw std::runtime_error(program.string() + " is no program that is found");
    const std::unordered_map<std::string, std::string> environment{
        {"JOURNAL_STREAM", journalStream(out.native_handle())},
        {"PATH", "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"}};
    const pid_t self = getpid();
    pid_t id = 0;
    // The launcher tells a context of its fork. Ours would wait for the name that is being looked
    // up just then, and leave the others until somebody asks for another one.
    asio::io_context ofLauncher;
    try {
        process::process started(ofLauncher.get_executor(), path, arguments,
                                 process::process_stdio{nullptr, out, out},
                                 process::process_environment(environment), EndsWithParent{});
        id = started.id();
        started.detach(); // we wait for it ourselves: async_wait of 1.81 may block
        const auto end = static_cast<int>(syscall(SYS_pidfd_open, id, 0));
        if (end < 0)
            throw std::runtime_error(std::string("pidfd_open: ") + std::strerror(errno));
        running_ = std::make_shared<Running>(std::move(lines), id, end);
    } catch (const std::exception& e) {
        if (getpid() != self) // a copy of us that has not become the program
            _exit(EXIT_FAILURE);
        if (id > 0) { // nobody would ever end it
            kill(-id, SIGKILL);
            waitpid(id, nullptr, 0);
        }
        throw std::runtime_error(path.string() + " cannot be started: " + reasonOf(e));
    }
    asio::co_spawn(executor, reap(running_), asio::detached);
    asio::co_spawn(executor, relayLines(running_, say), asio::detached);
}

Child::~Child() {
    if (!running_ || running_->gone)
        return;
    running_->unwanted = true;
    kill(-running_->id, SIGTERM);
    try {
        asio::co_spawn(running_->end.get_executor(), killLater(running_), asio::detached);
    } catch (const std::exception&) { // no memory to wait with
        kill(-running_->id, SIGKILL);
    }
}

awaitable<void> Child::end() {
    const auto running = running_;
    while (!running->gone)
        co_await running->ended.wait();
    throw std::runtime_error(howItEnded(running->status));
}

} // namespace gateway
