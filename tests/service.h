/// The real program against a peer of the tests.
#pragma once

#include "process.h"
#include "session.h"

#include "gnss/Clock.h"
#include "reference/service/predict.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

/// Frames, forwarded or replies, that are there from the first to the last byte. Their lengths
/// stand in their heads; what they hold is judged later.
inline int wholeFrames(const ref::Bytes& received) {
    int count = 0;
    for (std::size_t at = 0; at + 3 <= received.size(); ++count) {
        const bool reply = received[at] == 0xDA;
        const std::size_t field = 256U * received[at + 1] + received[at + 2];
        at += reply ? field + 7 : (field & 0x3FF) + 6;
        if (at > received.size())
            break;
    }
    return count;
}

/// A listener on loopback that the service connects to.
class Peer {
public:
    /// With a receive buffer of that many bytes, where one is wanted.
    explicit Peer(int room = 0) : listener_(boundSocket(port)) {
        if (room > 0)
            setsockopt(listener_, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    }
    ~Peer() {
        drop();
        close(listener_);
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    void listen() const { ::listen(listener_, 1); }
    /// Answers no further connect until accept: its queue, of one, is taken.
    void stayBusy() {
        ::listen(listener_, 0);
        sockaddr_in a{};
        socklen_t n = sizeof a;
        getsockname(listener_, reinterpret_cast<sockaddr*>(&a), &n);
        connection_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(connect(connection_, reinterpret_cast<sockaddr*>(&a), n), 0);
    }
    /// Waits for the service; false after 20 s.
    bool accept() {
        listen();
        pollfd p{listener_, POLLIN, 0};
        const bool waiting = poll(&p, 1, 20000) == 1;
        drop(); // a half-closed connection stands until the next one comes
        if (waiting)
            connection_ = ::accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        return connection_ >= 0;
    }
    /// Sends everything in blocks and takes in what comes, until that many frames are there or
    /// 20 s pass without any. `received` is what came before.
    ref::Bytes exchange(const ref::Bytes& stream, std::size_t block, int frames,
                        ref::Bytes received = {}) {
        std::size_t sent = 0;
        while (sent < stream.size() || wholeFrames(received) < frames) {
            pollfd p{connection_,
                     static_cast<short>(sent < stream.size() ? POLLIN | POLLOUT : POLLIN), 0};
            if (poll(&p, 1, 20000) <= 0)
                break;
            if (p.revents & POLLOUT) {
                const auto n = send(connection_, stream.data() + sent,
                                    std::min(block, stream.size() - sent), MSG_NOSIGNAL);
                sent += n > 0 ? static_cast<std::size_t>(n) : 0;
            }
            if (p.revents & (POLLIN | POLLHUP)) {
                std::array<std::uint8_t, 65536> in{};
                const auto n = recv(connection_, in.data(), in.size(), 0);
                if (n <= 0)
                    break;
                received.insert(received.end(), in.begin(), in.begin() + n);
            }
        }
        return received;
    }
    /// Sends everything and takes nothing in.
    bool sendOnly(const ref::Bytes& stream) const {
        std::size_t sent = 0;
        for (pollfd p{connection_, POLLOUT, 0}; sent < stream.size() && poll(&p, 1, 20000) > 0;) {
            const auto n =
                send(connection_, stream.data() + sent, stream.size() - sent, MSG_NOSIGNAL);
            if (n <= 0)
                break;
            sent += static_cast<std::size_t>(n);
        }
        return sent == stream.size();
    }
    void drop() {
        if (connection_ >= 0)
            close(connection_);
        connection_ = -1;
    }
    void reset() {
        const linger hard{1, 0};
        setsockopt(connection_, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
        drop();
    }
    void halfClose() { shutdown(connection_, SHUT_WR); }

    int port = 0;

private:
    int listener_;
    int connection_ = -1;
};

struct ServiceOptions {
    std::string example = "canberra";
    std::map<std::string, std::string> keys{}; // further ones, by section
    std::vector<std::string> switches{};
    rlim_t largestFile = RLIM_INFINITY;     // bytes
    std::vector<std::string> environment{}; // NAME=value
    int namespaces = 0;                     // CLONE_NEW...
    int output = kLogFile;                  // a descriptor, or -1: closed

    static constexpr int kLogFile = -2;
};

/// The running program with the worked example's configuration, at another port and clock, and
/// with a folder of its own for what it writes.
class RunningService {
public:
    RunningService(int port, const std::string& clock, const ServiceOptions& options = {}) {
        const fs::path source = fs::path(kSourceFolder) / "examples" / options.example;
        std::string deployment = readFile(source / "vrs.json");
        deployment = replaced(deployment, "127.0.0.1 2101", "127.0.0.1 " + std::to_string(port));
        deployment = replaced(deployment, kClock, clock);
        deployment = replaced(deployment, "data/out", out());
        for (const auto& [section, more] : options.keys)
            deployment = replaced(deployment, "\"" + section + "\": {",
                                  "\"" + section + "\": {" + more + ",");
        fs::create_directories(out());
        std::ofstream(folder / "vrs.json") << deployment;
        process_ =
            options.namespaces == 0
                ? fork()
                : static_cast<pid_t>(syscall(SYS_clone, options.namespaces | SIGCHLD, 0, 0, 0, 0));
        if (process_ == 0)
            run(options);
    }
    ~RunningService() {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
        fs::remove_all(folder);
    }
    bool started() const { return process_ > 0; }
    void signal(int number) const { kill(process_, number); }
    /// Waits for the process to end; its exit status, or minus the signal that ended it.
    int end() {
        int status = 0;
        waitpid(std::exchange(process_, 0), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    fs::path out() const { return folder / "out"; }

    const fs::path folder =
        fs::path(testing::TempDir()) / ("kestrune_service_" + std::to_string(getpid()));

    RunningService(const RunningService&) = delete;
    RunningService& operator=(const RunningService&) = delete;
    std::string log() const { return readFile(folder / "log"); }
    /// Waits for a line, which gets out behind a reply.
    bool tells(const std::string& line) const {
        for (int i = 0; i < 1000 && log().find(line) == std::string::npos; ++i)
            sleepms(20);
        return log().find(line) != std::string::npos;
    }
    /// Ends the service by a signal; all that it printed.
    std::string wholeLog() {
        signal(SIGTERM);
        EXPECT_EQ(end(), -SIGTERM);
        return log();
    }
    /// The descriptors of the process that are sockets.
    std::vector<std::string> sockets() const {
        std::vector<std::string> out;
        for (const auto& e : fs::directory_iterator("/proc/" + std::to_string(process_) + "/fd"))
            if (std::error_code error; fs::read_symlink(e, error).string().starts_with("socket:"))
                out.push_back(e.path().filename().string() + fs::read_symlink(e).string());
        return out;
    }

private:
    [[noreturn]] void run(const ServiceOptions& options) const {
        if (options.output == ServiceOptions::kLogFile)
            dup2(open((folder / "log").c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0644),
                 STDOUT_FILENO);
        else if (options.output >= 0)
            dup2(options.output, STDOUT_FILENO);
        else
            close(STDOUT_FILENO);
        const rlimit limit{options.largestFile, options.largestFile};
        setrlimit(RLIMIT_FSIZE, &limit);
        for (const std::string& variable : options.environment)
            putenv(const_cast<char*>(variable.c_str()));
        std::vector<std::string> arguments{"-mode", "vrs", folder / "vrs.json"};
        arguments.insert(arguments.end(), options.switches.begin(), options.switches.end());
        if (chdir(kSourceFolder) != 0)
            _exit(127);
        become(kServiceProgram, arguments);
    }

    pid_t process_ = -1;
};

inline ref::Expectation expectation() {
    ref::Expectation e;
    e.siteM = kSite;
    e.near = {2009, 430650};
    constexpr std::array channels{1,  -4, 5, 6,  1, -4, 5, 6, -2, -7, 0, -1,
                                  -2, -7, 0, -1, 4, -3, 3, 2, 4,  -3, 3, 2};
    for (std::size_t i = 0; i < channels.size(); ++i)
        e.channels[static_cast<int>(i) + 1] = channels[i];
    for (const auto& [system, count] :
         std::map<char, int>{{'G', 32}, {'R', 24}, {'E', 36}, {'C', 37}, {'J', 4}})
        for (int id = 1; id <= count; ++id)
            e.satellites.insert(ref::satName(system, id));
    return e;
}
