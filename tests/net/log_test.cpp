#include "base/Findings.h"
#include "base/Signals.h"
#include "check.h"
#include "net/Log.h"

#include <array>
#include <fcntl.h>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <utility>

namespace {

using std::chrono::seconds;

/// A descriptor to write to and the one that reads from it.
struct Ends {
    int reading = -1;
    int writing = -1;
    ~Ends() {
        for (const int fd : {reading, writing})
            if (fd >= 0)
                close(fd);
    }
    std::string readAll() const {
        std::string out;
        std::array<char, 65536> in{};
        for (pollfd p{reading, POLLIN, 0}; poll(&p, 1, 100) > 0 && (p.revents & POLLIN);) {
            const auto n = read(reading, in.data(), in.size());
            out.append(in.data(), static_cast<std::size_t>(n));
        }
        return out;
    }
};

bool makePipe(Ends& ends) {
    int both[2];
    const bool made = pipe2(both, O_CLOEXEC) == 0;
    ends.reading = both[0];
    ends.writing = both[1];
    return made;
}

bool makePair(Ends& ends, int type) {
    int pair[2];
    const bool made = socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, pair) == 0;
    ends.reading = pair[0];
    ends.writing = pair[1];
    return made;
}

bool makeSocket(Ends& ends) {
    return makePair(ends, SOCK_STREAM);
}

bool makeTerminal(Ends& ends) {
    ends.reading = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (ends.reading < 0 || grantpt(ends.reading) != 0 || unlockpt(ends.reading) != 0)
        return false;
    ends.writing = open(ptsname(ends.reading), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios raw{};
    tcgetattr(ends.writing, &raw);
    cfmakeraw(&raw);
    return tcsetattr(ends.writing, TCSANOW, &raw) == 0;
}

/// The n-th line; some are longer than a pipe takes at once.
std::string lineOf(int n) {
    return text("line %d ", n) + std::string(n % 50 == 0 ? 6000U : 40U, 'x') + "\n";
}

TEST(Log, DropsWholeLinesWhereNobodyReadsAndTellsTheirNumber) {
    const std::pair<const char*, bool (*)(Ends&)> kinds[] = {
        {"pipe", makePipe}, {"socket", makeSocket}, {"terminal", makeTerminal}};
    for (const auto& [name, make] : kinds) {
        SCOPED_TRACE(name);
        Ends ends;
        ASSERT_TRUE(make(ends));
        const int flags = fcntl(ends.writing, F_GETFL);
        Log log(ends.writing, nullptr);
        int printed = 0;
        std::string got;
        for (int round = 0; round < 3; ++round) {
            for (int i = 0; i < 20000; ++i)
                log.take(Level::info, lineOf(printed++));
            log.flush();
            got += ends.readAll();
        }
        log.take(Level::info, lineOf(printed++));
        // A terminal hands on what it took some time later, and then has room for the rest.
        for (int tries = 0; tries < 200 && !got.ends_with(lineOf(printed - 1)); ++tries) {
            log.flush();
            got += ends.readAll();
        }
        EXPECT_EQ(fcntl(ends.writing, F_GETFL), flags); // others may share the description
        int expected = 0;                               // the number of the next line
        int told = 0;
        std::istringstream lines(got);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("***WARN: ")) {
                int dropped = 0;
                ASSERT_EQ(std::sscanf(line.c_str(), "***WARN: %d lines of the log", &dropped), 1);
                expected += dropped;
                ++told;
            } else {
                ASSERT_EQ(line + "\n", lineOf(expected));
                ++expected;
            }
        }
        EXPECT_EQ(expected, printed);
        EXPECT_GE(told, 3);
    }
}

TEST(Log, ShowsLevelsToTheJournalOnly) {
    for (const bool journal : {true, false}) {
        Ends ends;
        ASSERT_TRUE(makeSocket(ends));
        struct stat is {};
        fstat(ends.writing, &is);
        const std::string name = text("%llu:%llu", static_cast<unsigned long long>(is.st_dev),
                                      static_cast<unsigned long long>(is.st_ino) + !journal);
        Log log(ends.writing, name.c_str());
        log.take(Level::notice, "a\nb\n");
        log.take(Level::debug, "c");
        log.take(Level::info, "d\n");
        for (int i = 0; i < 2; ++i)
            log.take(Lasting{Cause::noConnection}, "e\n");
        log.ended(Cause::noConnection);
        log.take(Lasting{Cause::noConnection}, "e\n");
        log.take(Level::error, "f\n");
        log.flush();
        EXPECT_EQ(ends.readAll(), journal ? "<5>a\n<5>b\n<7>cd\n<4>e\n<7>e\n<5>***INFO: Ended: e\n"
                                            "<4>e\n<3>f\n"
                                          : "a\nb\ncd\ne\ne\ne\nf\n");
    }
}

/// The pieces that arrive when the log lets three lines out, the last of them unfinished.
std::vector<std::string> piecesOf(const Ends& ends) {
    fcntl(ends.reading, F_SETFL, O_NONBLOCK);
    Log log(ends.writing, nullptr);
    log.take(Level::info, "a\nb");
    log.take(Level::info, "c\nd");
    std::array<char, 64> in{};
    EXPECT_EQ(read(ends.reading, in.data(), in.size()), -1); // nothing waits for nothing
    log.flush();
    std::vector<std::string> pieces;
    for (ssize_t n = 0; (n = read(ends.reading, in.data(), in.size())) > 0;)
        pieces.emplace_back(in.data(), static_cast<std::size_t>(n));
    return pieces;
}

TEST(Log, LetsWholeLinesOutTogetherButOneInADatagram) {
    Ends pipe; // one read gives one write
    int both[2];
    ASSERT_EQ(pipe2(both, O_CLOEXEC | O_DIRECT), 0);
    pipe.reading = both[0];
    pipe.writing = both[1];
    EXPECT_EQ(piecesOf(pipe), std::vector<std::string>{"a\nbc\n"});
    Ends datagrams;
    ASSERT_TRUE(makePair(datagrams, SOCK_DGRAM));
    EXPECT_EQ(piecesOf(datagrams), (std::vector<std::string>{"a\n", "bc\n"}));
}

TEST(Log, IsOutWhenASignalEndsTheProcess) {
    for (const int signal : {SIGTERM, SIGINT, SIGABRT})
        for (const bool inBetween : {false, true}) { // while the lines are being changed
            Ends ends;
            ASSERT_TRUE(makePipe(ends));
            const pid_t child = fork();
            if (child == 0) {
                endOnSignals();
                Log log(ends.writing, nullptr);
                printTarget = &log;
                print("a\n");
                if (!inBetween)
                    raise(signal);
                const SignalsDeferred outer;
                {
                    const SignalsDeferred inner;
                    raise(signal);
                }
                print("b\n");
            }
            int status = 0;
            EXPECT_EQ(waitpid(child, &status, 0), child);
            EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal);
            EXPECT_EQ(ends.readAll(), inBetween ? "a\nb\n" : "a\n");
        }
}

TEST(Signals, OfTwoTheFirstEndsTheProcessAndCallsOnce) {
    for (const bool inBetween : {false, true}) {
        Ends ends;
        ASSERT_TRUE(makePipe(ends));
        const pid_t child = fork();
        if (child == 0) {
            endOnSignals();
            Log log(ends.writing, nullptr);
            printTarget = &log;
            callBeforeEnd([] {
                print("called\n");
                printFlush();
                raise(SIGINT);
            });
            if (!inBetween)
                raise(SIGTERM);
            const SignalsDeferred until;
            raise(SIGTERM);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
        EXPECT_EQ(ends.readAll(), "called\n");
    }
}

TEST(LastingWarnings, AreToldWhenTheyBeginAndWhenEpochsGoOnWithoutThem) {
    LastingWarnings lasting;
    std::string ended;
    const auto tell = [&](std::string_view line) { ended += std::string(line) + ";"; };
    const Lasting old{Cause::oldEphemeris, 4};
    const Lasting other{Cause::oldEphemeris, 5};
    const Lasting connection{Cause::noConnection};
    EXPECT_EQ(lasting.levelOf(old, "G05 old\n", seconds(10)), Level::warning);
    EXPECT_EQ(lasting.levelOf(other, "G06 old\n", seconds(10)), Level::warning);
    EXPECT_EQ(lasting.levelOf(connection, "none\n", seconds(10)), Level::warning);
    EXPECT_EQ(lasting.levelOf(old, "G05 old\n", seconds(40)), Level::debug);
    lasting.epochEnd(seconds(70), tell);
    EXPECT_EQ(ended, "");
    lasting.epochEnd(seconds(71), tell);
    EXPECT_EQ(ended, "G06 old;");
    EXPECT_EQ(lasting.levelOf(old, "G05 old\n", seconds(600)), Level::debug); // no epoch between
    lasting.epochEnd(seconds(600), tell);
    lasting.ended(Cause::noConnection, tell);
    EXPECT_EQ(ended, "G06 old;none;");
    EXPECT_EQ(lasting.levelOf(other, "G06 old\n", seconds(601)), Level::warning);
    for (std::size_t i = 0; i < 1000; ++i) // bounded, and what is known stays known
        static_cast<void>(
            lasting.levelOf({Cause::noOrbit, i}, std::string(1000, 'x'), seconds(601)));
    EXPECT_EQ(lasting.levelOf(other, "G06 old\n", seconds(602)), Level::debug);
}

TEST(Log, LetsTheLastLineOutIfItCanAndEndsAnyway) {
    for (const bool reader : {true, false}) {
        Ends ends;
        ASSERT_TRUE(makePipe(ends));
        const pid_t child = fork();
        if (child == 0) {
            Log log(ends.writing, nullptr);
            printTarget = &log;
            for (int i = 0; i < 20000; ++i)
                print("%s", lineOf(i).c_str());
            fatal("the end");
        }
        close(std::exchange(ends.writing, -1));
        std::string got;
        if (reader)
            for (std::string piece = ends.readAll(); !piece.empty(); piece = ends.readAll())
                got += piece;
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1);
        EXPECT_EQ(got.ends_with("\nthe end\n"), reader);
    }
}

} // namespace
