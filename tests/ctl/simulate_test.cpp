#include "process.h"
#include "session.h"

#include "base/Findings.h"
#include "reference/standard/msm.h"

#include <cjson/cJSON.h>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

// The simulator and the service as programs, and between them a proxy that alters what passes.

namespace {

using ref::Bytes;
namespace fs = std::filesystem;

/// A child process; its output goes to a file.
class Program {
public:
    Program(const std::string& program, const std::vector<std::string>& arguments,
            const fs::path& output) {
        pid_ = fork();
        if (pid_ != 0)
            return;
        const int out = open(output.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0644);
        dup2(out, STDOUT_FILENO);
        dup2(out, STDERR_FILENO);
        become(program, arguments);
    }
    ~Program() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    /// Its exit status once it has ended; nothing while it runs.
    std::optional<int> ended() {
        int status = 0;
        if (pid_ <= 0 || waitpid(pid_, &status, WNOHANG) != pid_)
            return std::nullopt;
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t pid_ = -1;
};

/// Lets whole frames through, altered; without an Alter, bytes as they come. Alter gets a frame and
/// gives what is passed on.
using Alter = std::function<std::vector<Bytes>(Bytes)>;

class Way {
public:
    explicit Way(Alter alter) : alter_(std::move(alter)) {}
    /// False at the end of the connection.
    bool pass(int from, int to) {
        std::array<std::uint8_t, 65536> in{};
        const auto n = recv(from, in.data(), in.size(), 0);
        if (n <= 0)
            return false;
        if (!alter_) {
            passed.append(in.begin(), in.begin() + n);
            send(to, in.data(), static_cast<std::size_t>(n), MSG_NOSIGNAL);
            return true;
        }
        held_.insert(held_.end(), in.begin(), in.begin() + n);
        for (;;) {
            if (held_.size() < 3)
                return true;
            const std::size_t field = 256U * held_[1] + held_[2];
            const std::size_t size = held_[0] == 0xDA ? field + 7 : (field & 0x3FF) + 6;
            if (held_.size() < size)
                return true;
            const auto end = held_.begin() + static_cast<std::ptrdiff_t>(size);
            Bytes frame(held_.begin(), end);
            held_.erase(held_.begin(), end);
            for (const Bytes& f : alter_(std::move(frame)))
                send(to, f.data(), f.size(), MSG_NOSIGNAL);
        }
    }

    std::string passed; // unaltered, byte for byte

private:
    Alter alter_;
    Bytes held_;
};

const Alter unaltered;

struct Outcome {
    int status = -1;
    bool serviceRuns = false;
    std::string printed;
    std::string passedBack; // unaltered
    double replies = 0, wrong = 0;
    std::string answer, causes, faults;
    std::string log, state; // of the service
};

/// Changes the deployment before the service reads it.
using Tamper = std::function<void(const fs::path& folder)>;

void change(const fs::path& file, const std::string& old, const std::string& by) {
    const std::string text = readFile(file);
    EXPECT_TRUE(contains(text, old)) << file;
    std::ofstream(file) << replaced(text, old, by);
}

/// Runs both programs with the proxy between them.
Outcome run(std::vector<std::string> options, const Alter& replies, const Alter& stream,
            const Tamper& tamper = {}) {
    const fs::path folder =
        fs::path(testing::TempDir()) / ("kestrune_sim_" + std::to_string(getpid()));
    // On an address of its own, no other process takes a port that was found free.
    const int pid = getpid();
    const std::string host = text("127.%d.%d.%d", 1 + (pid >> 16), pid >> 8 & 255, pid & 255);
    int simulatorPort = 0;
    int proxyPort = 0;
    close(boundSocket(simulatorPort, host.c_str()));
    const int listener = boundSocket(proxyPort, host.c_str());
    listen(listener, 1);
    options.insert(options.begin(), {"simulate", "--json", "--host", host, "--port",
                                     std::to_string(simulatorPort), "--write-deployment", folder});
    Program simulator(kCtlProgram, options, folder.string() + ".out");
    const fs::path deployment = folder / "vrs.json";
    for (int i = 0; i < 400 && readFile(folder / "leapsec.tab").empty(); ++i)
        sleepms(10);
    const auto connector = [](int port) { return " " + std::to_string(port) + "#"; };
    change(deployment, connector(simulatorPort), connector(proxyPort));
    if (tamper)
        tamper(folder);
    Program service(kServiceProgram, {"-mode", "vrs", deployment}, folder / "log");
    pollfd coming{listener, POLLIN, 0};
    if (poll(&coming, 1, 60000) != 1) {
        ADD_FAILURE() << "no service comes: " << readFile(folder / "log")
                      << readFile(folder.string() + ".out");
        return {};
    }
    const int toService = accept(listener, nullptr, nullptr);
    const int toSimulator = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in a = loopback(host.c_str(), simulatorPort);
    EXPECT_EQ(connect(toSimulator, reinterpret_cast<const sockaddr*>(&a), sizeof a), 0);
    const int on = 1;
    for (const int fd : {toService, toSimulator})
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    Way down(stream);
    Way up(replies);
    for (bool open = true; open;) {
        std::array<pollfd, 2> p{{{toSimulator, POLLIN, 0}, {toService, POLLIN, 0}}};
        if (poll(p.data(), p.size(), 30000) <= 0)
            break;
        open = (!p[0].revents || down.pass(toSimulator, toService)) &&
               (!p[1].revents || up.pass(toService, toSimulator));
    }
    Outcome o;
    o.serviceRuns = !service.ended();
    o.log = readFile(folder / "log");
    o.state = readFile(folder / "status.json");
    for (const int fd : {listener, toService, toSimulator})
        close(fd);
    for (int i = 0; i < 1000 && o.status < 0; ++i, sleepms(10))
        o.status = simulator.ended().value_or(-1);
    o.printed = readFile(folder.string() + ".out");
    o.passedBack = up.passed;
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> json(cJSON_Parse(o.printed.c_str()),
                                                               cJSON_Delete);
    if (json) {
        o.replies = cJSON_GetNumberValue(cJSON_GetObjectItem(json.get(), "replies"));
        o.wrong = cJSON_GetNumberValue(cJSON_GetObjectItem(json.get(), "wrong"));
        o.answer = cJSON_GetStringValue(cJSON_GetObjectItem(json.get(), "answer"));
        const auto lines = [&](const char* key) {
            std::string all;
            const cJSON* line = nullptr;
            cJSON_ArrayForEach(line, cJSON_GetObjectItem(json.get(), key)) all +=
                std::string(cJSON_GetStringValue(line)) + "\n";
            return all;
        };
        o.causes = lines("causes");
        o.faults = lines("faultsFound");
    }
    fs::remove_all(folder);
    fs::remove(folder.string() + ".out");
    return o;
}

/// The service looks after its connection, its place and its state.
void watchOver(const fs::path& folder) {
    const fs::path deployment = folder / "vrs.json";
    const std::string level = R"("tracelevel": "0")";
    const std::string protocol = R"("input-protocol": "RTCM3")";
    change(deployment, level,
           level + R"(, "watchdog": "60", "status": ")" + (folder / "status.json").string() + '"');
    change(deployment, protocol, protocol + R"(, "guard": "50")");
}

const std::vector<std::string> kShortRun{"--start", "2026-03-01T12:00:00", "--speed",
                                         "max",     "--duration",          "8"};

Bytes replyOf(const ref::Reply& r) {
    Bytes messages;
    for (const ref::Frame& m : r.messages)
        messages.insert(messages.end(), m.bytes.begin(), m.bytes.end());
    Bytes out = ref::BitString()
                    .u(8, 0xDA)
                    .u(16, messages.size() + 7)
                    .u(8, 0x68)
                    .u(32, r.word)
                    .u(16, r.kind)
                    .bytes();
    out.insert(out.end(), messages.begin(), messages.end());
    const Bytes check = ref::BitString().u(32, ref::crc24q(out)).bytes();
    out.insert(out.end(), check.begin(), check.end());
    return out;
}

/// Alters the third reply, with a check word that is right again.
Alter thirdReply(const std::function<void(ref::Reply&)>& change) {
    return [change, n = 0](Bytes f) mutable -> std::vector<Bytes> {
        if (f[0] == 0xDA && ++n == 3) {
            ref::Reply r = ref::openReply(f);
            change(r);
            f = replyOf(r);
        }
        return {f};
    };
}

/// Changes the first observation message of a reply.
std::function<void(ref::Reply&)> firstMessage(const std::function<void(ref::Msm&)>& change) {
    return [change](ref::Reply& r) {
        ref::Frame& f = r.messages.at(2);
        ref::Msm m = ref::readMsm(f.body);
        change(m);
        f.bytes = ref::frame(ref::writeMsm(m));
    };
}

/// A reply that keeps its 1005 and 1033 alone.
std::vector<Bytes> withoutObservations(Bytes f) {
    if (f[0] != 0xDA)
        return {f};
    ref::Reply r = ref::openReply(f);
    r.messages.resize(2);
    return {replyOf(r)};
}

} // namespace

TEST(Simulator, FindsNothingWrongWithTheService) {
    const std::string allFaults = "garbage,bitflip,truncate,duplicate,reorder,burst,"
                                  "no-ephemerides,old-ephemerides,refused-message";
    const std::vector<std::vector<std::string>> cases{
        {"--start", "2026-02-28T23:59:38", "--duration", "8", "--msm", "7", "--tracking",
         "combined", "--systems", "GRECJS", "--noise", "--ephemerides", "interleaved", "--split",
         "random", "--quirk", "bds-week,week-end,glonass-day,sbas-day"},
        {"--start", "2026-03-01T20:59:50", "--duration", "20", "--msm", "legacy", "--ephemerides",
         "late", "--split", "100"},
        // Across the roll-overs of the 10-bit week, and the end of 32-bit times.
        {"--start", "2019-04-06T23:59:38", "--duration", "8"},
        {"--start", "2038-01-19T03:14:04", "--duration", "8"},
        {"--start", "2038-11-20T23:59:38", "--duration", "8"},
        {"--start", "2026-03-01T12:00:00", "--duration", "30", "--rate", "10", "--fault",
         allFaults},
        {"--start",    "2026-02-28T23:59:38",
         "--duration", "60",
         "--rate",     "5",
         "--msm",      "7",
         "--tracking", "pilot",
         "--systems",  "GRECJS",
         "--answer",   "complete",
         "--output",   "rtcm3",
         "--offset",   "-900,2100,35",
         "--quirk",    "bds-week,week-end,glonass-day,sbas-day",
         "--fault",    allFaults},
        {"--start", "2026-03-01T20:59:50", "--duration", "20", "--rate", "5", "--msm", "legacy",
         "--answer", "complete", "--fault", allFaults},
        {"--start", "2026-03-01T12:00:00", "--duration", "25", "--output", "rtcm3"},
        {"--start", "2026-02-28T23:59:38", "--duration", "40", "--msm", "5", "--tracking",
         "combined", "--answer", "complete", "--quirk", "bds-gps-time,leap-second,two-stations"}};
    const std::string file = testing::TempDir() + "kestrune_replies" + std::to_string(getpid());
    for (std::vector<std::string> options : cases) {
        options.insert(options.end(), {"--speed", "max", "--replies", file});
        const Outcome o = run(options, unaltered, unaltered, watchOver);
        EXPECT_EQ(o.status, 0) << o.printed;
        EXPECT_FALSE(contains(o.log, "No epoch for") || contains(o.log, "held back"));
        const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> state(cJSON_Parse(o.state.c_str()),
                                                                    cJSON_Delete);
        EXPECT_TRUE(state) << o.state;
        EXPECT_EQ(o.answer, "right");
        EXPECT_EQ(o.wrong, 0) << o.faults;
        EXPECT_GE(o.replies, 8);
        EXPECT_TRUE(o.serviceRuns);
        EXPECT_TRUE(readFile(file) == o.passedBack) << "--replies keeps what came back";
    }
    fs::remove(file);
    std::vector<std::string> full = kShortRun;
    full.insert(full.end(), {"--replies", "/dev/full"});
    const Outcome o = run(full, unaltered, unaltered);
    EXPECT_TRUE(o.status == 2 && contains(o.printed, "/dev/full could not be written")) << o.status;
}

TEST(Simulator, FindsWhatIsAlteredOnTheWay) {
    Bytes before; // the reply of the epoch before
    const auto phase = [](double cycles) {
        return firstMessage([cycles](ref::Msm& m) {
            ref::Cell& c = m.cells.at(0);
            *c.phaseRangeM += cycles * ref::kLightSpeed / ref::frequencyHz(c.system, c.signal);
        });
    };
    const struct {
        const char* what;
        Alter replies, stream;
        const char* found;
    } cases[] = {
        {"one bit of a forwarded frame",
         [n = 0](Bytes f) mutable -> std::vector<Bytes> {
             if (f[0] == 0xD3 && ++n == 5)
                 f[20] = static_cast<std::uint8_t>(f[20] ^ 4);
             return {f};
         },
         unaltered, "came back altered"},
        {"a satellite dropped", thirdReply(firstMessage([](ref::Msm& m) {
             const int id = m.cells.at(0).id;
             std::erase_if(m.cells, [id](const ref::Cell& c) { return c.id == id; });
         })),
         unaltered, "is missing at"},
        {"a satellite repeated from the epoch before",
         [&before, n = 0](Bytes f) mutable -> std::vector<Bytes> {
             if (f[0] != 0xDA)
                 return {f};
             const Bytes last = std::exchange(before, f);
             if (++n != 3)
                 return {f};
             ref::Reply r = ref::openReply(f);
             const ref::Msm old = ref::readMsm(ref::openReply(last).messages.at(2).body);
             firstMessage([&old](ref::Msm& m) { m.cells.at(0) = old.cells.at(0); })(r);
             return {replyOf(r)};
         },
         unaltered, "is off by"},
        {"phase moved by half a cycle", thirdReply(phase(0.5)), unaltered, "is off by"},
        {"phase moved by a cycle", thirdReply(phase(1)), unaltered, "is off by"},
        {"phase moved by ten cycles", thirdReply(phase(10)), unaltered, "is off by"},
        {"range moved by 5 cm",
         thirdReply(firstMessage([](ref::Msm& m) { *m.cells.at(0).pseudorangeM += 0.05; })),
         unaltered, "is off by"},
        {"a multiple-message bit", thirdReply(firstMessage([](ref::Msm& m) { m.more = false; })),
         unaltered, "multiple-message bit"},
        {"messages exchanged",
         thirdReply([](ref::Reply& r) { std::swap(r.messages.at(2), r.messages.at(3)); }),
         unaltered, "messages of"},
        {"a satellite of BDS-3 among those of BDS-2", thirdReply([](ref::Reply& r) {
             ref::Msm two = ref::readMsm(r.messages.at(3).body);
             ref::Msm three = ref::readMsm(r.messages.at(4).body);
             const int id = three.cells.at(0).id;
             for (const ref::Cell& c : three.cells)
                 if (c.id == id)
                     two.cells.push_back(c);
             std::erase_if(three.cells, [id](const ref::Cell& c) { return c.id == id; });
             r.messages[3].bytes = ref::frame(ref::writeMsm(two));
             r.messages[4].bytes = ref::frame(ref::writeMsm(three));
         }),
         unaltered, "is in the wrong message"},
        {"a forwarded frame twice",
         [n = 0](Bytes f) mutable -> std::vector<Bytes> {
             if (f[0] == 0xD3 && ++n == 5)
                 return {f, f};
             return {f};
         },
         unaltered, "came unasked"},
        {"a reply withheld",
         [n = 0](Bytes f) mutable -> std::vector<Bytes> {
             if (f[0] == 0xDA && ++n == 3)
                 return {};
             return {f};
         },
         unaltered, "is missing"},
        {"a reply of another epoch",
         thirdReply(firstMessage([](ref::Msm& m) { m.epochField += 1000; })), unaltered,
         "came unasked"},
        {"an observation message withheld from the service", unaltered,
         [n = 0](Bytes f) mutable -> std::vector<Bytes> {
             const int type = f[3] * 16 + f[4] / 16;
             if (type == 1084 && ++n == 3)
                 return {};
             return {f};
         },
         "is missing at"},
        {"a bit of a reply's check word",
         [n = 0](Bytes f) mutable -> std::vector<Bytes> {
             if (f[0] == 0xDA && ++n == 3)
                 f.back() = static_cast<std::uint8_t>(f.back() ^ 1);
             return {f};
         },
         unaltered, "wrong check word"},
    };
    for (const auto& c : cases) {
        const Outcome o = run(kShortRun, c.replies, c.stream);
        EXPECT_EQ(o.status, 1) << c.what;
        EXPECT_GT(o.wrong, 0) << c.what;
        EXPECT_TRUE(contains(o.faults, c.found)) << c.what << ": " << o.faults;
        EXPECT_TRUE(o.serviceRuns) << c.what;
    }
}

TEST(Simulator, NamesTheCauseOfWhatIsWrongEverywhere) {
    const auto file = [](const char* name, const char* old, const char* by) -> Tamper {
        return [=](const fs::path& folder) { change(folder / name, old, by); };
    };
    const struct {
        const char* what;
        Tamper tamper;
        Alter replies;
        std::vector<const char*> causes;
    } cases[] = {
        {"a position 10 km away",
         file("site.crd", "-4460962", "-4450962"),
         unaltered,
         {"satellites, all epochs: ranges off by up to 0.",
          " m, 1005 is 10.0 km away: is this the station's position?", "1005 says -4451111."}},
        {"one satellite that is not configured",
         file("session.obj", " G07 ", "*G07 "),
         unaltered,
         {"G07, all epochs: missing: is it in the configuration?"}},
        {"a system that is not configured",
         [](const fs::path& folder) {
             for (int slot = 1; slot <= 24; ++slot)
                 change(folder / "session.obj", text(" R%02d ", slot), text("*R%02d ", slot));
         },
         unaltered,
         {" of GLONASS, all epochs: missing"}},
        {"GLONASS a leap second off",
         {},
         [](Bytes f) -> std::vector<Bytes> {
             if (f[0] != 0xDA)
                 return {f};
             ref::Reply r = ref::openReply(f);
             for (ref::Frame& m : r.messages)
                 if (m.type == 1084) {
                     ref::Msm late = ref::readMsm(m.body);
                     late.epochField += 1000;
                     m.bytes = ref::frame(ref::writeMsm(late));
                 }
             return {replyOf(r)};
         },
         {"1084, 8 times: its epoch is 1.000 s after that of the reply"}},
        {"replies without observations",
         {},
         withoutObservations,
         {"satellites, all epochs: missing; no reply carries an observation"}},
        {"replies without 1005",
         {},
         [](Bytes f) -> std::vector<Bytes> {
             if (f[0] != 0xDA)
                 return {f};
             ref::Reply r = ref::openReply(f);
             r.messages.erase(r.messages.begin());
             return {replyOf(r)};
         },
         {"8 of 8 replies: 1005 is missing\n"}},
        {"replies that all come one too late",
         {},
         [last = Bytes()](Bytes f) mutable -> std::vector<Bytes> {
             if (f[0] != 0xDA)
                 return {f};
             const Bytes before = std::exchange(last, std::move(f));
             return before.empty() ? std::vector<Bytes>{} : std::vector<Bytes>{before};
         },
         {"epochs were not answered"}},
    };
    for (const auto& c : cases) {
        const Outcome o = run(kShortRun, c.replies, unaltered, c.tamper);
        EXPECT_EQ(o.status, 1) << c.what;
        EXPECT_EQ(o.answer, "wrong") << c.what;
        for (const char* const cause : c.causes)
            EXPECT_TRUE(contains(o.causes, cause)) << c.what << ": " << o.causes;
    }
}

// What the complete answer owes follows from what is received, so values of recordings are known.
TEST(Simulator, JudgesValuesOfRecordingsWithTheCompleteAnswer) {
    CAPTURE_OR_SKIP(canberra, "str24-msm4.rtcm3");
    CAPTURE_OR_SKIP(davis, "antarctica-msm7.rtcm3");
    Bytes ephemeridesFirst; // they are the last that was recorded
    Bytes rest;
    for (const ref::Frame& f : ref::goodFrames(davis)) {
        const bool early = f.type == 1019 || f.type == 1020 || f.type == 1044 || f.type == 1045;
        Bytes& to = early ? ephemeridesFirst : rest;
        to.insert(to.end(), f.bytes.begin(), f.bytes.end());
    }
    ephemeridesFirst.insert(ephemeridesFirst.end(), rest.begin(), rest.end());
    const std::pair<const char*, Bytes> cases[] = {
        {"2018-07-12T23:37:11", Bytes(canberra.begin(), canberra.begin() + 300000)},
        {"2018-01-02T19:57:47", ephemeridesFirst}};
    const std::string file = testing::TempDir() + "kestrune_played" + std::to_string(getpid());
    for (const auto& [start, stream] : cases) {
        std::ofstream(file, std::ios::binary)
            .write(reinterpret_cast<const char*>(stream.data()),
                   static_cast<std::streamsize>(stream.size()));
        const Outcome o = run({"--play", file, "--start", start, "--speed", "max", "--answer",
                               "complete", "--output", "rtcm3"},
                              unaltered, unaltered);
        EXPECT_EQ(o.answer, "right") << start << o.printed;
    }
    fs::remove(file);
}

TEST(Simulator, KnowsTheFormOfARecordingAndNothingOfEmptyReplies) {
    const std::string file = testing::TempDir() + "kestrune_recording" + std::to_string(getpid());
    std::vector<std::string> record = kShortRun;
    record.insert(record.end(), {"--record", file});
    ASSERT_EQ(run(record, unaltered, unaltered).status, 0);
    const std::vector<std::string> play{"--play",  file, "--start", "2026-03-01T12:00:00",
                                        "--speed", "max"};
    const struct {
        const char* what;
        Alter replies;
        const char* answer;
        int status;
    } cases[] = {
        {"as it is", unaltered, "form right", 0},
        {"replies without observations", withoutObservations, "nothing to judge", 1},
        {"a reply lost",
         [n = 0](Bytes f) mutable -> std::vector<Bytes> {
             if (f[0] == 0xDA && ++n == 3)
                 return {};
             return {f};
         },
         "wrong", 1},
    };
    for (const auto& c : cases) {
        const Outcome o = run(play, c.replies, unaltered);
        EXPECT_EQ(o.answer, c.answer) << c.what << o.printed;
        EXPECT_EQ(o.status, c.status) << c.what;
    }
    fs::remove(file);
}
