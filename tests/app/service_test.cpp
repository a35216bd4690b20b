#include "recordings.h"
#include "service.h"

#include "reference/service/judge.h"

// The real program against a peer: recorded or generated stream in, every byte of the replies out.

namespace {

using ref::Bytes;

void expectRight(const ref::Verdict& v) {
    EXPECT_EQ(v.wrong, 0);
    for (const std::string& fault : v.faults)
        ADD_FAILURE() << fault;
}

} // namespace

TEST(Service, AnswersEveryEpochOfTheRecordedStream) {
    CAPTURE_OR_SKIP(stream, "str24-msm4.rtcm3");
    const ref::Expectation e = expectation();
    for (const std::size_t block : {std::size_t{4096}, std::size_t{333}, stream.size()}) {
        Peer peer;
        peer.listen();
        const RunningService service(peer.port, kClock);
        ASSERT_TRUE(peer.accept());
        const ref::Verdict v = judge(stream, peer.exchange(stream, block, 1309 + 1243), e);
        expectRight(v);
        EXPECT_EQ(v.replies, 1309);
        EXPECT_EQ(v.forwarded, 1243);
        EXPECT_GT(v.cells, 30000);
        RecordProperty("worstRangeM", std::to_string(v.worstRangeM()));
        RecordProperty("worstPhaseM", std::to_string(v.worstPhaseM()));
        for (const auto& [signal, count] : v.signals)
            RecordProperty(signal, count);
    }
}

TEST(Service, AnswersAGeneratedStreamOfAllSystems) {
    // Three epochs of each form, with new ephemerides, a station message in mid-epoch, garbage and
    // a frame with a wrong check word between them.
    const ref::GpsTime start = kNow;
    ref::Sky sky(kSite);
    sky.systems = "GRECJ";
    Bytes stream;
    const auto put = [&](const Bytes& f) { stream.insert(stream.end(), f.begin(), f.end()); };
    int frames = 0;
    for (int epoch = 0; epoch < 12; ++epoch) {
        const ref::GpsTime t = start + epoch * 1.0;
        if (epoch % 6 == 0)
            for (const Bytes& f : sky.ephemerisFrames(t)) {
                put(f);
                ++frames;
            }
        auto observations = sky.epochFrames(t, 4 + epoch % 4);
        for (std::size_t i = 0; i < observations.size(); ++i) {
            if (epoch == 5 && i == 2) {
                put(ref::frame(ref::write1005({.station = 1, .xyzM = kSite})));
                ++frames;
            }
            if (epoch == 7 && i == 1)
                observations[i][40] ^= 4;
            put(observations[i]);
            if (i % 2 == 0)
                put(Bytes{0, 1, 2, 0xD2, 0xFF});
        }
        ++frames;
    }
    const ref::Expectation e = expectation();
    Peer peer;
    peer.listen();
    const RunningService service(peer.port, kClock);
    ASSERT_TRUE(peer.accept());
    const ref::Verdict v = judge(stream, peer.exchange(stream, 1000, frames), e);
    expectRight(v);
    EXPECT_EQ(v.replies, 12);
    EXPECT_GT(v.signals.at("C6I"), 100);
    for (const char* const signal : {"G1C", "G2W", "G5Q", "R1P", "R2P", "E1X", "E6X", "C2I", "J2X"})
        EXPECT_GT(v.signals.count(signal), 0U) << signal;
    EXPECT_LT(v.worstPhaseM(), 0.00038);
}

TEST(Service, AnswersEveryEpochOfReceiversWithTheirQuirks) {
    const struct {
        const char* file;
        int replies; // of 40; in the others the last message is not of the first one's station
        std::map<char, int> leastCells; // by system
    } cases[] = {
        {"week-start-msm.rtcm3", 39, {{'G', 500}, {'R', 300}, {'E', 500}, {'C', 500}, {'J', 80}}},
        {"week-start-legacy.rtcm3", 38, {{'G', 200}, {'R', 200}}}};
    for (const auto& c : cases) {
        const Bytes stream = recording(c.file);
        ref::Expectation e = expectation();
        e.near = {2407, 604788};
        const std::vector<ref::Expected> owed = ref::SpecifiedPredictor(e).take(stream);
        Peer peer;
        peer.listen();
        RunningService service(peer.port, "2026-02-28 23:59:30");
        ASSERT_TRUE(peer.accept());
        const ref::Verdict v =
            judge(stream, peer.exchange(stream, 700, static_cast<int>(owed.size())), e);
        expectRight(v);
        EXPECT_EQ(v.replies, c.replies) << c.file;
        std::map<char, int> cells;
        for (const auto& [signal, count] : v.signals)
            cells[signal[0]] += count;
        for (const auto& [system, least] : c.leastCells)
            EXPECT_GE(cells[system], least) << c.file << " " << system;
        EXPECT_TRUE(contains(service.wholeLog(), " refused, epoch time "));
    }
}

TEST(Service, AnswersInPostMode) {
    ref::Sky sky(kSite);
    const ref::GpsTime t = kNow;
    Bytes stream;
    for (const Bytes& f : sky.ephemerisFrames(t))
        stream.insert(stream.end(), f.begin(), f.end());
    for (const Bytes& f : sky.epochFrames(t, 4))
        stream.insert(stream.end(), f.begin(), f.end());
    ref::Expectation e = expectation();
    e.satellites = {"G01", "G10", "G32", "R01", "R05", "R24", "E01",
                    "E11", "C01", "C06", "C11", "C20", "J01"};
    const std::vector<ref::Expected> owed = ref::SpecifiedPredictor(e).take(stream);
    Peer peer;
    peer.listen();
    const RunningService service(peer.port, kClock, {.example = "post", .switches = {"-post"}});
    ASSERT_TRUE(peer.accept());
    const ref::Verdict v =
        judge(stream, peer.exchange(stream, 4096, static_cast<int>(owed.size())), e);
    expectRight(v);
    EXPECT_EQ(v.replies, 1);
    EXPECT_GT(v.cells, 9);
    EXPECT_TRUE(service.log().starts_with("Kestrune v2.5\nppppp:"));
}

TEST(Service, SendsSixtyThreeCellsOfMoreThanSixtyFour) {
    // 17 Galileo satellites of four signals, all on the orbit of one that stands high.
    const ref::GpsTime t = kNow;
    ref::Sky sky(kSite);
    sky.systems = "E";
    const std::vector<ref::Cell> seen = sky.observe(t, false);
    const auto highest =
        std::max_element(seen.begin(), seen.end(),
                         [](const ref::Cell& a, const ref::Cell& b) { return a.cnr < b.cnr; });
    ref::Kepler k = sky.navigation(t).kepler.at(highest->sat);
    k.type = 1046;
    Bytes stream;
    const auto put = [&](const Bytes& f) { stream.insert(stream.end(), f.begin(), f.end()); };
    ref::Msm m;
    m.system = 'E';
    m.epochField = ref::epochField('E', t);
    for (int id = 1; id <= 17; ++id) {
        k.id = id;
        put(ref::frame(ref::writeKepler(k)));
    }
    for (int id = 1; id <= 17; ++id) {
        for (const char* const signal : {"1X", "5X", "6X", "7X"}) {
            ref::Cell c = *highest;
            c.id = id;
            c.signal = signal;
            c.pseudorangeM = c.phaseRangeM = 2.4e7 + 10 * id + signal[0];
            m.cells.push_back(c);
        }
        m.more = id == 16;
        if (id >= 16) {
            put(ref::frame(ref::writeMsm(m)));
            m.cells.clear();
        }
    }
    Peer peer;
    peer.listen();
    const RunningService service(peer.port, kClock);
    ASSERT_TRUE(peer.accept());
    const ref::Verdict v = judge(stream, peer.exchange(stream, 4096, 18), expectation());
    expectRight(v);
    EXPECT_EQ(v.replies, 1);
    EXPECT_EQ(v.cells, 63);
}

TEST(Service, IsBackOnTheSameDescriptorWhateverThePeerDoes) {
    ref::Sky sky(kSite);
    Bytes epoch;
    const ref::GpsTime t = kNow;
    std::vector<Bytes> frames = sky.ephemerisFrames(t);
    const int answers = static_cast<int>(frames.size()) + 1;
    for (const Bytes& f : sky.epochFrames(t, 4))
        frames.push_back(f);
    for (const Bytes& f : frames)
        epoch.insert(epoch.end(), f.begin(), f.end());
    // A whole message of another epoch part, then half a frame that could swallow what follows.
    Bytes half = sky.epochFrames(t + 1.0, 4).at(0);
    half.insert(half.end(), {0xD3, 0x03, 0xFF, 0x43});
    Peer peer;
    peer.listen();
    RunningService service(peer.port, kClock);
    std::vector<std::string> descriptors;
    for (const std::string end : {"close", "reset", "half-close", "mid-frame", "last"}) {
        ASSERT_TRUE(peer.accept()) << end;
        const ref::Verdict v = judge(epoch, peer.exchange(epoch, 512, answers), expectation());
        expectRight(v);
        EXPECT_GT(v.cells, 50) << "before " << end;
        if (descriptors.empty())
            descriptors = service.sockets();
        EXPECT_EQ(service.sockets(), descriptors);
        EXPECT_EQ(descriptors.size(), 1U);
        if (end == "reset")
            peer.reset();
        if (end == "half-close")
            peer.halfClose();
        if (end == "mid-frame") // the half epoch must not reach into the next connection
            peer.exchange(half, 512, 0);
        if (end != "half-close")
            peer.drop();
    }
    EXPECT_TRUE(contains(service.wholeLog(), "ppppp:Success\n"));
}

TEST(Service, RetriesWhileThePeerRefuses) {
    Peer peer; // bound, not yet listening: connections are refused
    const RunningService service(peer.port, kClock);
    const std::string warning =
        "***WARN: Connect input failed, 127.0.0.1:" + std::to_string(peer.port);
    EXPECT_TRUE(service.tells("Kestrune v2.5\nppppp:Unknown error -1\n" + warning + "\n"));
    EXPECT_TRUE(peer.accept());
}

TEST(Service, ExplainsItselfWithoutArguments) {
    for (const std::string arguments : {"", " -mode vrs", " -debug -post -mode vrs"}) {
        const Ran ran = runInShell(kServiceProgram, arguments);
        EXPECT_EQ(ran.status, 1);
        EXPECT_EQ(ran.output, "Kestrune v2.5\nWelcome to Kestrune!\n"
                              "Example: Kestrune -mode vrs vrs.json -rawsav/vrssav(*)\n"
                              "Example: where (*) denotes optional parameter.\n");
    }
}
