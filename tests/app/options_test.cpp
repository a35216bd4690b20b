#include "service.h"

#include "base/ComText.h"
#include "base/Findings.h"
#include "reference/standard/ephemeris.h"
#include "reference/standard/sky.h"
#include "reference/standard/station.h"

#include <sys/stat.h>

// The real program with keys that a plain deployment does not have.

namespace {

using ref::Bytes;

Bytes joined(const std::vector<Bytes>& frames) {
    Bytes out;
    for (const Bytes& f : frames)
        out.insert(out.end(), f.begin(), f.end());
    return out;
}

/// Numbers of the RTCM 3 frames behind one another, and the station ids of those that tell theirs.
std::string typesOf(const Bytes& stream) {
    std::string out;
    for (std::size_t at = 0; at + 6 <= stream.size();) {
        const std::size_t size = (256U * stream[at + 1] + stream[at + 2]) & 0x3FF;
        ref::BitSource in(
            Bytes(stream.begin() + static_cast<std::ptrdiff_t>(at) + 3, stream.end()));
        const auto type = in.u(12);
        out += text("%s%d", out.empty() ? "" : " ", static_cast<int>(type));
        if (type < 1019 || type == 1033 || type > 1046)
            out += text(":%d", static_cast<int>(in.u(12)));
        at += size + 6;
    }
    return out;
}

} // namespace

TEST(PlainStream, IntroducesTheVirtualStationInsteadOfTheSender) {
    ref::Sky sky(kSite);
    sky.systems = "G";
    const Bytes ephemerides = joined(sky.ephemerisFrames(kNow));
    Peer peer;
    RunningService service(peer.port, kClock,
                           {.keys = {{"vrs", R"("answer": "complete", "output": "rtcm3")"}}});
    ASSERT_TRUE(service.started() && peer.accept());
    const auto count = static_cast<int>(sky.ephemerisFrames(kNow).size());
    EXPECT_EQ(peer.exchange(ephemerides, 4096, count), ephemerides);
    const Bytes own = joined({ref::frame(ref::write1005({.station = 1, .xyzM = kSite})),
                              ref::frame(ref::write1008({1, "LEIAR25.R4", 0, "7", "", "", ""})),
                              ref::frame(ref::write1230(1, true, {0.5, 0.25, -0.5, 1.0}))});
    const auto epoch = [&](double at) { return joined(sky.epochFrames(kNow + at, 7)); };
    EXPECT_EQ(typesOf(peer.exchange(own, 4096, 1)), "1230:4095");
    EXPECT_EQ(typesOf(peer.exchange(epoch(0), 4096, 3)), "1005:4095 1033:4095 1077:4095");
    EXPECT_EQ(typesOf(peer.exchange(epoch(9), 4096, 1)), "1077:4095");
    const Bytes high =
        ref::frame(ref::write1005({.type = 1006, .station = 1, .xyzM = kSite, .heightM = 1.5}));
    const Bytes again = peer.exchange(joined({high, epoch(10)}), 4096, 3);
    EXPECT_EQ(typesOf(again), "1006:4095 1033:4095 1077:4095");
    const Bytes place(again.begin() + 3, again.begin() + 3 + 21);
    EXPECT_DOUBLE_EQ(ref::read1005(place).heightM, 1.5);
    const Bytes names(again.begin() + 27 + 3, again.end());
    EXPECT_EQ(
        ref::read1033(Bytes(names.begin(), names.begin() + (256 * again[28] + again[29]))).antenna,
        "LEIAR25.R4");
    peer.reset();
    ASSERT_TRUE(peer.accept());
    EXPECT_EQ(typesOf(peer.exchange(epoch(11), 4096, 3)), "1006:4095 1033:4095 1077:4095");
}

TEST(State, LetsAServiceThatStartsAgainAnswerItsFirstEpochInFull) {
    ref::Sky sky(kSite);
    const std::vector<Bytes> ephemerides = sky.ephemerisFrames(kNow);
    const Bytes epoch = joined(sky.epochFrames(kNow, 4));
    const fs::path folder =
        fs::path(testing::TempDir()) / ("kestrune_state_" + std::to_string(getpid()));
    fs::create_directories(folder);
    const ServiceOptions options{.keys = {{"path", "\"state\": \"" + folder.string() + "\""}}};
    const fs::path file = folder / "vrs.rtcm3";
    const auto answerOf = [&](const Bytes& before, int framesBefore, std::string& log) {
        Peer peer;
        RunningService service(peer.port, kClock, options);
        EXPECT_TRUE(service.started() && peer.accept());
        peer.exchange(before, 4096, framesBefore);
        const Bytes reply = peer.exchange(epoch, 4096, 1);
        log = service.wholeLog();
        return reply;
    };
    std::string log;
    // A pipe in the way of the new file is not waited for.
    ASSERT_EQ(mkfifo((file.string() + ".new").c_str(), 0600), 0);
    const Bytes full = answerOf(joined(ephemerides), static_cast<int>(ephemerides.size()), log);
    EXPECT_GT(full.size(), 800U);
    EXPECT_TRUE(fs::exists(file) && !fs::exists(file.string() + ".new")) << log;
    const std::string saved = readFile(file);
    EXPECT_EQ(answerOf({}, 0, log), full) << log;
    EXPECT_TRUE(contains(
        log, text(",%zu of %zu ephemerides are taken up", ephemerides.size(), ephemerides.size())))
        << log;

    // What is no such file is told and passed over.
    std::string spoilt = saved;
    spoilt[spoilt.size() / 2] ^= 1;
    for (const std::string& content :
         {spoilt, saved.substr(0, saved.size() - 9), std::string("hello"), saved.substr(15)}) {
        std::ofstream(file, std::ios::binary) << content;
        EXPECT_LT(answerOf({}, 0, log).size(), 200U);
        EXPECT_TRUE(contains(log, ",holds no saved ephemerides,passed over!\n")) << log;
    }
    // A week later to the hour the elements would look fresh.
    {
        std::ofstream(file, std::ios::binary) << saved;
        Peer peer;
        RunningService service(peer.port, "2018-07-19 23:37:11", options);
        ASSERT_TRUE(service.started() && peer.accept());
        peer.exchange(epoch, 4096, 1);
        EXPECT_TRUE(contains(service.wholeLog(), ",0 of "));
    }
    fs::remove_all(folder);
}

TEST(Guard, HoldsRepliesBackWhileTheSenderStatesAnotherPlace) {
    ref::Sky sky(kSite);
    sky.systems = "G";
    const std::vector<Bytes> ephemerides = sky.ephemerisFrames(kNow);
    const ref::Vec3 elsewhere{kSite[0], kSite[1] + 30.0, kSite[2]};
    const Bytes there = ref::frame(ref::write1005({.station = 1, .xyzM = elsewhere}));
    const Bytes here = ref::frame(ref::write1005({.station = 1, .xyzM = kSite}));
    for (const bool warnOnly : {false, true}) {
        Peer peer;
        RunningService service(
            peer.port, kClock,
            {.keys = {{"vrs", warnOnly ? R"("guard": "20 warn")" : R"("guard": "20")"}}});
        ASSERT_TRUE(service.started() && peer.accept());
        peer.exchange(joined(ephemerides), 4096, static_cast<int>(ephemerides.size()));
        const Bytes epoch = joined(sky.epochFrames(kNow, 4));
        // Forwarded, the epoch, forwarded: what comes between is the reply.
        const Bytes held = peer.exchange(joined({there, epoch, here}), 4096, warnOnly ? 3 : 2);
        EXPECT_EQ(wholeFrames(held), warnOnly ? 3 : 2);
        EXPECT_EQ(wholeFrames(peer.exchange(epoch, 4096, 1)), 1);
        const std::string log = service.wholeLog();
        EXPECT_TRUE(contains(log, warnOnly ? "1005 is 30.0 m from STR2, replies go on!\n"
                                           : "1005 is 30.0 m from STR2, replies are held back!\n"))
            << log;
        EXPECT_TRUE(contains(log, "1005 is 0.0 m from STR2, which is in order again!\n"));
    }
}

TEST(Watchdog, MakesAConnectionWithoutEpochsAnew) {
    Peer peer;
    RunningService service(peer.port, kClock, {.keys = {{"common", R"("watchdog": "1")"}}});
    ASSERT_TRUE(service.started() && peer.accept());
    peer.sendOnly(ref::frame(ref::write1005({.station = 1, .xyzM = kSite}))); // no epoch
    ASSERT_TRUE(peer.accept()) << "a second connection";
    EXPECT_TRUE(service.tells("***WARN: No epoch for 1 s, connection to 127.0.0.1:"));
}
