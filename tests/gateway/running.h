/// The real gateway with real services as engines: a station sends to it, rovers get from it.
#pragma once

#include "service.h"

#include "reference/service/judge.h"
#include "reference/standard/sky.h"

#include <chrono>
#include <sstream>
#include <thread>

namespace running {

using ref::Bytes;

inline void append(Bytes& to, const Bytes& more) {
    to.insert(to.end(), more.begin(), more.end());
}

/// Looks again and again until something holds, for 10 s; whether it does.
template <class Holds> bool eventually(const Holds& holds) {
    for (int i = 0; i < 1000 && !holds(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return holds();
}

/// A connection to a port of loopback.
class Client {
public:
    explicit Client(int port) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const sockaddr_in a = loopback("127.0.0.1", port);
        for (int i = 0; i < 500 && !connected_; ++i) {
            connected_ = connect(fd_, reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0;
            if (!connected_)
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    ~Client() { close(fd_); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// The stream of a mountpoint, whose answer must be that.
    Client(int port, const std::string& request, const std::string& granted) : Client(port) {
        EXPECT_TRUE(send(request));
        EXPECT_EQ(head(), granted);
    }

    bool connected() const { return connected_; }
    /// Says that nothing more comes from here, and reads on.
    void endSending() const { shutdown(fd_, SHUT_WR); }
    bool send(const Bytes& bytes) const {
        std::size_t sent = 0;
        while (sent < bytes.size()) {
            const auto n = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (n <= 0)
                return false;
            sent += static_cast<std::size_t>(n);
        }
        return true;
    }
    bool send(const std::string& text) const { return send(Bytes(text.begin(), text.end())); }
    /// What comes until `enough` says so, the peer ends, or nothing comes for 10 s.
    template <class Enough> Bytes receive(const Enough& enough) {
        Bytes out;
        while (!enough(out)) {
            pollfd p{fd_, POLLIN, 0};
            std::array<std::uint8_t, 65536> in{};
            const auto n = poll(&p, 1, 10'000) == 1 ? recv(fd_, in.data(), in.size(), 0) : 0;
            if (n <= 0)
                break;
            out.insert(out.end(), in.begin(), in.begin() + n);
        }
        return out;
    }
    /// What has come.
    Bytes now() const {
        std::array<std::uint8_t, 65536> in{};
        const auto n = recv(fd_, in.data(), in.size(), MSG_DONTWAIT);
        return {in.begin(), in.begin() + std::max<ssize_t>(n, 0)};
    }
    /// The answer until its blank line.
    std::string head() {
        std::string out;
        for (char c = 0; !out.ends_with("\r\n\r\n") && recv(fd_, &c, 1, 0) == 1;)
            out += c;
        return out;
    }
    /// Whether the peer ends the connection within 10 s, without a further byte.
    bool ended() const {
        pollfd p{fd_, POLLIN, 0};
        char c = 0;
        return poll(&p, 1, 10'000) == 1 && recv(fd_, &c, 1, 0) <= 0;
    }
    std::string rest() {
        const Bytes all = receive([](const Bytes&) { return false; });
        return {all.begin(), all.end()};
    }

private:
    int fd_;
    bool connected_ = false;
};

/// So many free ports, each another one.
template <std::size_t N> std::array<int, N> freePorts() {
    std::array<int, N> ports{}, sockets{};
    for (std::size_t i = 0; i < N; ++i)
        sockets[i] = boundSocket(ports[i]);
    for (const int socket : sockets)
        close(socket);
    return ports;
}

/// Two free ports, of a station and a caster.
struct Ports {
    explicit Ports(const std::array<int, 2>& free = freePorts<2>())
        : station(free[0]), caster(free[1]) {}
    int station, caster;
};

class RunningGateway {
public:
    /// `more` is of the station, `caster` of the caster, `gateway` instead of the engine's program.
    RunningGateway(const Ports& ports, const std::string& more, const std::string& caster = "",
                   const std::string& gateway = "", const std::string& name = "")
        : folder(fs::path(testing::TempDir()) /
                 ("kestrune_gateway_" + name + std::to_string(getpid()))) {
        const std::string engine = "engine = \"" + std::string(kServiceProgram) + "\"\n";
        fs::create_directories(folder);
        std::ofstream(folder / "gateway.toml")
            << "[gateway]\nstate = \"" << (folder / "state").string() << "\"\n"
            << (gateway.empty() ? engine : gateway)
            << (caster.find("[web]") == caster.npos ? "[web]\nlisten = []\n" : "")
            << "[caster]\nlisten = [\"127.0.0.1:" << ports.caster << "\"]\n"
            << caster << "[[station]]\nname = \"CANB\"\nclock = \"" << kClock << "\"\n"
            << more;
        process_ = fork();
        if (process_ == 0) {
            const int log = open((folder / "log").c_str(), O_CREAT | O_WRONLY | O_APPEND, 0600);
            dup2(log, STDOUT_FILENO);
            dup2(log, STDERR_FILENO);
            become(kGatewayProgram, {(folder / "gateway.toml").string()});
        }
    }
    ~RunningGateway() {
        if (process_ > 0)
            end(SIGTERM); // its engines end before it
        fs::remove_all(folder);
    }
    RunningGateway(const RunningGateway&) = delete;
    RunningGateway& operator=(const RunningGateway&) = delete;

    pid_t process() const { return process_; }
    /// So many more than it has open now.
    void allowDescriptors(int more) const {
        const fs::directory_iterator open("/proc/" + std::to_string(process_) + "/fd"), end;
        const auto most = static_cast<rlim_t>(std::distance(open, end) + more);
        const rlimit limit{most, most};
        ASSERT_EQ(prlimit(process_, RLIMIT_NOFILE, &limit, nullptr), 0);
    }
    void signal(int number) const { kill(process_, number); }
    int end(int number) {
        signal(number);
        int status = 0;
        waitpid(std::exchange(process_, 0), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    std::string log() const { return readFile(folder / "log"); }
    bool tells(const std::string& line) const {
        return eventually([&] { return log().find(line) != std::string::npos; });
    }
    /// How often the log has that.
    int count(const std::string& what) const {
        const std::string all = log();
        int out = 0;
        for (std::size_t at = all.find(what); at != all.npos; at = all.find(what, at + 1))
            ++out;
        return out;
    }
    std::string status() const { return readFile(folder / "state/CANB/kept/status.json"); }
    bool engineConnected() const {
        return eventually([&] { return status().find("\"connected\"") != std::string::npos; });
    }

    const fs::path folder;

private:
    pid_t process_ = 0;
};

/// How long a gateway waits before it tries again what the last line about `what` says, s.
inline int waitInForce(const RunningGateway& gateway, const std::string& what) {
    const std::string announced = "next attempt in ";
    std::istringstream log(gateway.log());
    int out = 0;
    for (std::string line; std::getline(log, line);)
        if (const std::size_t at = line.find(announced);
            at != line.npos && line.find(what) != line.npos)
            out = std::stoi(line.substr(at + announced.size()));
    return out;
}

/// A line of a file of users, whose password is "right" (by mkpasswd -m sha512crypt).
inline std::string rightUser(const std::string& name) {
    return name + ":$6$abcdefgh$vR/yd6VXABFTBRyOupJyJyD09twBc54Fjx1W8tzKdqxOfohxeZRb508btnHrxVQLY8"
                  "6b/u4pA/7OgxagBH8130\n";
}

/// A file of users, as long as it is here.
class UsersFile {
public:
    explicit UsersFile(const std::string& lines) {
        write(lines);
        fs::permissions(path_, fs::perms::owner_read | fs::perms::owner_write);
    }
    ~UsersFile() { fs::remove(path_); }
    UsersFile(const UsersFile&) = delete;
    UsersFile& operator=(const UsersFile&) = delete;

    void write(const std::string& lines) const { std::ofstream(path_) << lines; }
    /// Its line in the section of the caster.
    std::string setting() const { return "users = \"" + path_.string() + "\"\n"; }

private:
    const fs::path path_ = fs::path(testing::TempDir()) / ("users_" + std::to_string(getpid()));
};

/// Of the engine of CANB; 0 where none has told.
inline pid_t engineOf(const RunningGateway& gateway) {
    const std::string status = gateway.status();
    const std::size_t at = status.find("\"process_id\":");
    return at == status.npos ? 0 : std::stoi(status.substr(at + 13));
}

/// All of the answer to one request.
inline std::string answerTo(int port, const std::string& request) {
    Client client(port);
    EXPECT_TRUE(client.send(request));
    return client.rest();
}

inline std::string stationSource(const Ports& ports) {
    return "source = \"tcp-listen://127.0.0.1:" + std::to_string(ports.station) + "\"\n";
}
inline constexpr const char* kPosition =
    "position = [-4467074.3577, 2683011.9038, -3667008.2845]\n";

inline ref::Sky skyOfStation() {
    ref::Sky sky(kSite);
    sky.systems = "GREC";
    return sky;
}
inline Bytes epochOf(ref::Sky& sky, const ref::GpsTime& time) {
    Bytes out;
    for (const Bytes& f : sky.epochFrames(time, 7))
        append(out, f);
    return out;
}
/// Ephemerides and epochs of MSM7, one a second.
inline Bytes streamOf(int epochs, const ref::GpsTime& start = kNow) {
    ref::Sky sky = skyOfStation();
    Bytes out;
    for (const Bytes& f : sky.ephemerisFrames(start))
        append(out, f);
    for (int i = 0; i < epochs; ++i)
        append(out, epochOf(sky, start + i * 1.0));
    return out;
}

/// Epochs with their last message, in a plain stream.
inline int wholeEpochs(const Bytes& received) {
    int count = 0;
    for (const ref::Frame& f : ref::goodFrames(received))
        if (const auto head = ref::headOf(f))
            count += head->more ? 0 : 1;
    return count;
}

/// Enough when the epoch of that time, or a later one, has come with its last message.
inline auto epochOfTime(const ref::GpsTime& time) {
    return [ms = static_cast<std::uint32_t>(std::llround(time.sow * 1000))](const Bytes& received) {
        bool begun = false, whole = false;
        for (const ref::Frame& f : ref::goodFrames(received))
            if (const auto head = ref::headOf(f)) {
                begun = begun || (f.type == 1077 && head->epochField >= ms);
                whole = begun && !head->more;
            }
        return whole;
    };
}

inline std::string askOf(const std::string& mount, const std::string& headers = "") {
    return "GET /" + mount + " HTTP/1.0\r\nUser-Agent: NTRIP test/1\r\n" + headers + "\r\n";
}

inline constexpr const char* kGranted = "ICY 200 OK\r\n\r\n";

inline auto epochs(int count) {
    return [count](const Bytes& received) { return wholeEpochs(received) >= count; };
}

/// A station, the gateway with its engine, and a rover to whom the first epochs have come.
struct Road {
    explicit Road(int first, const std::string& more = "")
        : gateway(ports, stationSource(ports) + kPosition + more), station(ports.station),
          rover(ports.caster, askOf("CANB"), kGranted) {
        EXPECT_TRUE(gateway.engineConnected()) << gateway.log();
        EXPECT_TRUE(station.send(streamOf(first)));
        EXPECT_EQ(wholeEpochs(rover.receive(epochs(first))), first);
    }
    const Ports ports;
    RunningGateway gateway;
    const Client station;
    Client rover;
};

} // namespace running
