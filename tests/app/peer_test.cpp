#include "service.h"

#include "gnss/Clock.h"
#include "reference/service/judge.h"

#include <chrono>
#include <sstream>

// The real program beside a peer, a log and terminals that do not do their part.

namespace {

using ref::Bytes;

/// The ephemerides, and epochs once a second.
struct Generated {
    Bytes ephemerides;
    std::vector<Bytes> epochs;
    int frames = 0; // ephemerides
};
Generated generated(int epochs) {
    ref::Sky sky(kSite);
    Generated out;
    for (const Bytes& f : sky.ephemerisFrames(kNow)) {
        out.ephemerides.insert(out.ephemerides.end(), f.begin(), f.end());
        ++out.frames;
    }
    for (int i = 0; i < epochs; ++i) {
        Bytes& epoch = out.epochs.emplace_back();
        for (const Bytes& f : sky.epochFrames(kNow + 1.0 * i, 4))
            epoch.insert(epoch.end(), f.begin(), f.end());
    }
    return out;
}

/// What a log tells of a slow path.
struct DroppedReplies {
    int replies = 0;
    int frames = 0;
    bool told = true; ///< no turn is open, so that all are counted
};
DroppedReplies droppedIn(const std::string& log, const std::string& slow, const std::string& free) {
    DroppedReplies all;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        int replies = 0;
        int frames = 0;
        if (line + "\n" == slow)
            all.told = false;
        else if (std::sscanf(line.c_str(),
                             (free + "%d replies and %d frames were dropped!").c_str(), &replies,
                             &frames) == 2)
            all = {all.replies + replies, all.frames + frames, true};
    }
    return all;
}

/// A stream is answered whole.
void expectAnswers(Peer& peer) {
    const Generated s = generated(2);
    Bytes stream = s.ephemerides;
    for (const Bytes& e : s.epochs)
        stream.insert(stream.end(), e.begin(), e.end());
    const ref::Verdict v =
        ref::judge(stream, peer.exchange(stream, 4096, s.frames + 2), expectation());
    EXPECT_EQ(v.wrong, 0);
    EXPECT_EQ(v.replies, 2);
    EXPECT_EQ(v.forwarded, s.frames);
}

} // namespace

TEST(PeerThatHangsUp, IsConnectedAgainThreeSecondsBehindTheLastConnect) {
    Peer peer;
    peer.listen();
    const RunningService service(peer.port, kClock);
    ASSERT_TRUE(peer.accept());
    auto last = monotonicNow();
    for (int i = 0; i < 2; ++i) {
        peer.drop();
        ASSERT_TRUE(peer.accept());
        const auto now = monotonicNow();
        EXPECT_GT(now - last, std::chrono::milliseconds(2500));
        last = now;
    }
    expectAnswers(peer);
}

TEST(SlowPath, HasRepliesDroppedWholeAndTold) {
    if (*kEmulator != '\0')
        GTEST_SKIP() << "the emulator does not tell what is unsent";
    Peer peer(2048);
    peer.listen();
    const RunningService service(peer.port, kClock);
    ASSERT_TRUE(peer.accept());
    const Generated s = generated(400);
    const std::string place = "127.0.0.1:" + std::to_string(peer.port);
    peer.exchange(s.ephemerides, 4096, s.frames);
    std::size_t sent = 0;
    for (; sent < 40; ++sent) // nobody reads, and few fit
        ASSERT_TRUE(peer.sendOnly(s.epochs[sent]));
    const std::string slow = "***WARN: Path to " + place + " is slow, replies are dropped!\n";
    ASSERT_TRUE(service.tells(slow));
    // How many are dropped, and in how many turns, depends on the pace of the service. Behind the
    // last turn every reply has come or is told as dropped.
    Bytes got = peer.exchange({}, 1, 1);
    DroppedReplies dropped{.told = false};
    do {
        got = peer.exchange(s.epochs[sent], 4096, wholeFrames(got) + 1, got);
        ++sent;
        if (dropped.told) // nothing is waiting: what is not dropped comes
            got = peer.exchange({}, 1, static_cast<int>(sent) - dropped.replies, got);
        dropped = droppedIn(service.log(), slow, "***INFO: Path to " + place + " is free again, ");
    } while (sent < s.epochs.size() &&
             !(dropped.told && wholeFrames(got) + dropped.replies == static_cast<int>(sent)));
    EXPECT_GT(dropped.replies, 0);
    EXPECT_EQ(dropped.frames, 0);
    EXPECT_TRUE(dropped.told);
    EXPECT_EQ(wholeFrames(got) + dropped.replies, static_cast<int>(sent));
}

TEST(LogThatNobodyReads, HoldsNoReplyUp) {
    int pipe[2];
    ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
    while (fcntl(pipe[1], F_SETFL, O_NONBLOCK) == 0 && write(pipe[1], "x", 1) == 1) {
    }
    fcntl(pipe[1], F_SETFL, 0);
    Peer peer;
    peer.listen();
    {
        const RunningService service(peer.port, kClock, {.output = pipe[1]});
        ASSERT_TRUE(peer.accept());
        expectAnswers(peer);
    }
    close(pipe[0]);
    close(pipe[1]);
}

TEST(StandardDescriptors, ThatAreClosedLeadNoLogToThePeer) {
    Peer peer;
    peer.listen();
    const RunningService service(peer.port, kClock, {.output = -1});
    ASSERT_TRUE(peer.accept());
    expectAnswers(peer);
}

TEST(Signals, OfATerminalThatIsGoneEndNothing) {
    Peer peer;
    peer.listen();
    const RunningService service(peer.port, kClock);
    ASSERT_TRUE(peer.accept());
    service.signal(SIGHUP);
    expectAnswers(peer);
}
