#include "configured.h"

#include "reference/service/judge.h"
#include "reference/standard/msm.h"

#include <random>

// What a service is said to owe for a stream, against what its intake does with the same bytes.

namespace {

using ref::Bytes;

class Predictions : public testing::Test {
protected:
    void SetUp() override {
        configured.service.intake.onrtcm = [this](std::uint32_t status, const std::uint8_t* frame,
                                                  std::int32_t) {
            passedOn.push_back(status == kEpoch ? 0 : frame[3] * 16 + frame[4] / 16);
        };
    }
    std::vector<int> byIntake(const Bytes& stream) {
        StreamObs_m_restart(configured.service.intake);
        passedOn.clear();
        testing::internal::CaptureStdout();
        configured.read(stream);
        testing::internal::GetCapturedStdout();
        return passedOn;
    }
    static std::vector<int> predicted(const Bytes& stream) {
        ref::Expectation e;
        e.values = false;
        e.near = {2009, 430650};
        std::vector<int> types;
        for (const ref::Expected& x : ref::SpecifiedPredictor(e).take(stream))
            types.push_back(x.type);
        return types;
    }
    void expectBoth(const std::vector<Bytes>& frames, const std::vector<int>& expected) {
        Bytes stream;
        for (const Bytes& f : frames)
            stream.insert(stream.end(), f.begin(), f.end());
        EXPECT_EQ(byIntake(stream), expected);
        EXPECT_EQ(predicted(stream), expected);
    }
    const FixedClock clock{ref::GpsTime{2009, 430650}};
    Configured configured;
    std::vector<int> passedOn; // types of the frames that intake passed on, 0 = an epoch
};

Bytes legacy(int type, int station, bool more) {
    ref::BitString b;
    b.u(12, type).u(12, station).u(type > 1004 ? 27 : 30, type > 1004 ? 9432000 : 430650000);
    b.flag(more).u(5, 1).u(4, 0); // one satellite
    b.u(6, 7).u(1, 0);
    if (type > 1004)
        b.u(5, 8);
    b.u(type > 1004 ? 25 : 24, 5000000).s(20, 1234).u(7, 40);
    const int kind = type - (type > 1004 ? 1009 : 1001);
    if (kind % 2 == 1)
        b.u(type > 1004 ? 7 : 8, 60).u(8, 160);
    if (kind >= 2)
        b.u(2, 0).s(14, 200).s(20, 2345).u(7, 40);
    if (kind == 3)
        b.u(8, 150);
    return ref::frame(b.bytes());
}

Bytes msm(char system, const char* signal, bool more, std::uint32_t epochMs = 430650000,
          int station = 5) {
    ref::Msm m;
    m.system = system;
    m.station = station;
    m.epochField = epochMs;
    m.more = more;
    ref::Cell c;
    c.system = system;
    c.id = 3;
    c.signal = signal;
    c.pseudorangeM = c.phaseRangeM = 2.2e7;
    m.cells = {c};
    return ref::frame(ref::writeMsm(m));
}

/// A station message whose text, or whose biases, the message ends within; whole with `missing` 0.
Bytes cutStation(int type, std::size_t missing) {
    ref::BitString b;
    b.u(12, type).u(12, 5);
    if (type == 1230)
        b.u(4, 0).u(4, 15).s(16, 1).s(16, 2).s(16, 3).s(16, 4);
    else
        b.text("ANTENNA").u(8, 1);
    for (int texts = type == 1033 ? 4 : type == 1008 ? 1 : 0; texts > 0; --texts)
        b.text("TEXT");
    Bytes body = b.bytes();
    body.resize(body.size() - missing);
    return ref::frame(body);
}

/// A message of 8 satellites with 9 signals, which no cell mask can hold.
Bytes overfull(bool more, std::uint32_t epochMs = 430650000) {
    ref::BitString b;
    b.u(12, 1094).u(12, 5).u(30, epochMs).flag(more).u(18, 0).u(64, 0xFF).u(32, 0x1FF);
    return ref::frame(b.u(64, 0).u(64, 0).bytes());
}

Bytes ephemeris(int type, char system, int id) {
    ref::Kepler k;
    k.type = type;
    k.system = system;
    k.id = id;
    k.sqrtA = 5153;
    return ref::frame(ref::writeKepler(k));
}

} // namespace

TEST_F(Predictions, AreRightForMessagesThatTheSimulatorDoesNotSend) {
    const std::pair<std::vector<Bytes>, std::vector<int>> cases[] = {
        {{legacy(1001, 5, false), legacy(1003, 5, false), legacy(1009, 5, false),
          legacy(1011, 5, true), legacy(1012, 5, false)},
         {0, 0, 0, 0}},
        {{msm('G', "1C", true), msm('I', "5A", false)}, {0}},
        {{ephemeris(63, 'C', 12), ephemeris(1042, 'C', 63), ephemeris(1042, 'C', 0),
          ephemeris(1019, 'G', 40), ephemeris(1044, 'J', 11), ephemeris(1045, 'E', 37)},
         {63, 1042}},
        {{ref::frame(ref::BitString().u(12, 1041).u(6, 3).u(30, 0).bytes())}, {}},
        // another station while an epoch is collected; the next message is taken again
        {{msm('G', "1C", true), legacy(1004, 9, true), legacy(1004, 9, false)}, {0}},
        {{msm('G', "1C", true), ref::frame(ref::write1005({.station = 9, .xyzM = kSite})),
          ref::frame(ref::write1005({.station = 9, .xyzM = kSite}))},
         {1005}},
        // a text or a bias that runs past the end
        {{cutStation(1007, 0), cutStation(1007, 2), cutStation(1008, 0), cutStation(1008, 1),
          cutStation(1033, 0), cutStation(1033, 1), cutStation(1230, 0), cutStation(1230, 1),
          cutStation(1230, 2)},
         {1007, 1008, 1033, 1230}},
        {{msm('E', "1X", false, 604800001), msm('E', "1X", false, 604800000)}, {0}}};
    for (const auto& [frames, expected] : cases)
        expectBoth(frames, expected);
}

TEST_F(Predictions, AreRightForRefusedMessages) {
    const auto g = [](bool more, std::uint32_t ms = 430650000) { return msm('G', "1C", more, ms); };
    constexpr bool more = true;
    constexpr bool last = false;
    constexpr std::uint32_t never = 700000000; // ms: no week has it
    const Bytes station = ref::frame(ref::write1005({.station = 5, .xyzM = kSite}));
    const std::pair<std::vector<Bytes>, std::vector<int>> cases[] = {
        // what is refused ends the epoch of the others, whatever the reason
        {{g(more), msm('C', "2I", last, never)}, {0}},
        {{g(more), overfull(last)}, {0}},
        // ... but what another station sends is not of that epoch
        {{g(more), msm('E', "1X", last, 430650000, 9)}, {}},
        {{g(more), msm('E', "1X", last, 430650000, 9), msm('R', "1C", last, 85047000)}, {0}},
        {{legacy(1012, 5, more), msm('E', "1X", last, never)}, {0}},
        // in the middle, or in front, it only brings nothing
        {{g(more), msm('C', "2I", more, never), msm('E', "1X", last)}, {0}},
        {{overfull(more), g(more), msm('E', "1X", last)}, {0}},
        // alone it ends nothing, nor does it end twice
        {{msm('C', "2I", more, never), overfull(last), msm('C', "2I", last, never)}, {}},
        {{g(last), msm('C', "2I", last, never), g(more), overfull(last), overfull(last)}, {0, 0}},
        // an unfinished epoch is not answered at the end of another one
        {{g(more), overfull(last, 430651000)}, {}},
        {{g(more), overfull(more, 430651000), msm('C', "2I", last, never)}, {}},
        // ... of this station; another one may be at another time
        {{g(more), msm('E', "1X", last, 430651000, 9), overfull(last)}, {0}},
        {{g(more), station, overfull(last)}, {1005}},
        // SBAS, with the time of day, ends an epoch of others, which it neither opens nor dates
        {{g(more), msm('S', "1C", last, 85050000)}, {0}},
        {{g(more), msm('S', "1C", more, 85050000), msm('E', "1X", last)}, {0}},
        {{msm('S', "1C", more, never), msm('I', "5A", more, 7), g(more), overfull(last)}, {0}},
        {{g(more), msm('I', "5A", last, never), msm('S', "1C", last, 85050000)}, {0, 0}},
        // its bit counts wherever the head is cut behind it; without the bit it says nothing
        {{g(more), cut(msm('E', "1X", last), 7), cut(msm('E', "1X", last), 20)}, {0}},
        {{g(more), cut(legacy(1012, 5, last), 7)}, {0}},
        {{g(more), cut(msm('E', "1X", last), 6), cut(msm('E', "1X", last, 430651000), 2)}, {}},
        {{g(more), cut(msm('E', "1X", last), 6), g(last)}, {0}}};
    for (const auto& [frames, expected] : cases)
        expectBoth(frames, expected);
}

TEST_F(Predictions, AreRightForRecordedStreamsHoweverBroken) {
    CAPTURE_OR_SKIP(first, "str24-msm4.rtcm3");
    std::mt19937 random(3);
    std::size_t compared = 0;
    for (const char* const name :
         {"str24-msm4.rtcm3", "antarctica-msm7.rtcm3", "japan-msm5.rtcm3", "corsica-legacy.rtcm3",
          "california-legacy-glo-day-rollover.rtcm3", "bds-eph.rtcm3", "gal-eph.rtcm3",
          "glo-eph.rtcm3"}) {
        const Bytes recorded = capture(name);
        for (std::size_t run = 0; run < 5; ++run) {
            Bytes stream(recorded.begin(),
                         recorded.begin() + static_cast<std::ptrdiff_t>(
                                                std::min<std::size_t>(recorded.size(), 90000)));
            // more and more: a flipped bit, a missing piece, bytes in between
            for (std::size_t i = 0; i < 20 * run && stream.size() > 1000; ++i) {
                const auto at = static_cast<std::ptrdiff_t>(random() % (stream.size() - 300));
                stream[static_cast<std::size_t>(at)] ^=
                    static_cast<std::uint8_t>(1U << random() % 8);
                stream.erase(stream.begin() + at + 1,
                             stream.begin() + at + 1 + static_cast<std::ptrdiff_t>(random() % 100));
                stream.insert(stream.begin() + at, {0xD3, static_cast<std::uint8_t>(random() % 4),
                                                    static_cast<std::uint8_t>(random())});
            }
            EXPECT_EQ(predicted(stream), byIntake(stream)) << name << " " << run;
            compared += passedOn.size();
        }
    }
    EXPECT_GT(compared, 2000U);
}

TEST_F(Predictions, LeaveEpochsOfTheStreamThatNobodyAnswersToTheCensus) {
    const Bytes hidden = msm('E', "1X", false);
    ref::BitString longer; // begins like a frame of 300 bytes
    longer.u(8, 0xD3).u(16, 300);
    Bytes stream;
    for (const Bytes& f :
         {msm('G', "1C", true), msm('C', "2I", true, 430636000), // lost its end
          msm('G', "1C", true, 430651000), msm('E', "1X", false, 430651000), legacy(1004, 5, true),
          msm('C', "2I", false, 430650000, 9), // another station's end, at another time
          longer.bytes(), hidden, Bytes(300, 0), msm('G', "1C", true, 430653000)})
        stream.insert(stream.end(), f.begin(), f.end());
    ref::Expectation e;
    e.values = false;
    e.near = {2009, 430650};
    ref::Judge judge(e);
    judge.sent(stream);
    judge.finish();
    const ref::Verdict& v = judge.verdict();
    EXPECT_EQ(v.stream.ended, 3);
    EXPECT_EQ(v.stream.unended, 2);
    EXPECT_EQ(v.ended, 2);
    EXPECT_EQ(v.due, 1);
    EXPECT_EQ(v.stream.cells.at("G1C"), 4); // one of them in 1004
    EXPECT_EQ(v.stream.cells.at("E1X"), 2);
}

TEST(JudgeThroughACaster, WantsEveryForwardedFrameBeforeTheNextEpochInAnyOrder) {
    ref::Sky sky(kSite);
    const ref::GpsTime now = kNow;
    const std::vector<Bytes> frames = sky.ephemerisFrames(now);
    const Bytes &a = frames[0], &b = frames[1], &unknown = frames[2];
    const auto joined = [](std::initializer_list<Bytes> parts) {
        Bytes out;
        for (const Bytes& part : parts)
            out.insert(out.end(), part.begin(), part.end());
        return out;
    };
    Bytes sent = joined({a, b});
    for (const Bytes& f : sky.epochFrames(now, 7))
        sent.insert(sent.end(), f.begin(), f.end());
    ref::Expectation e;
    e.output = ref::Output::rtcm3;
    e.siteM = kSite;
    e.answer = ref::Answer::complete;
    for (const std::string& sat : allSatellites())
        e.satellites.insert(sat);
    e.near = now;
    const struct {
        const char* what;
        Bytes received;
        int wrong, frames, directly; // frames: missed; directly: wrong at the service
    } cases[] = {
        // the epoch is always missing
        {"as sent", joined({a, b}), 0, 0, 1},
        {"in another order", joined({b, a}), 0, 0, 3},
        {"one again", joined({a, b, a}), 0, 0, 2},
        {"one missing", a, 0, 1, 2},
        {"one that was not sent", joined({a, unknown, b}), 1, 0, 2},
    };
    for (const auto& c : cases) {
        e.throughCaster = true;
        const ref::Verdict v = ref::judge(sent, c.received, e);
        EXPECT_EQ(v.wrong, c.wrong) << c.what;
        ASSERT_EQ(v.gaps.size(), 1U) << c.what;
        EXPECT_EQ(v.gaps[0].from - now, 0) << c.what;
        EXPECT_EQ(v.gaps[0].epochs, 1) << c.what;
        EXPECT_EQ(v.gaps[0].frames, c.frames) << c.what;
        e.throughCaster = false;
        EXPECT_EQ(ref::judge(sent, c.received, e).wrong, c.directly) << c.what;
    }
}
