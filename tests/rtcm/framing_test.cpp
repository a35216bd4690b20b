#include "session.h"

#include <algorithm>
#include <random>

namespace {

using ref::BitString;
using ref::Bytes;
using ref::frame;

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

const Bytes kGps1005 = frame(ref::write1005({.station = 7, .xyzM = kSite}));

/// What one byte, or the last byte of a piece, gave.
struct Event {
    std::size_t at;
    int status;
    int framelen;
    bool operator==(const Event&) const = default;
};

std::vector<Event> events(const Bytes& stream, std::mt19937* random) {
    const auto state = newState();
    std::vector<Event> out;
    int framelen = -1;
    std::span<const std::uint8_t> left(stream);
    for (std::size_t at = 0; !left.empty();) {
        int status = 0;
        std::size_t taken = 1;
        if (random) {
            const auto block =
                left.first(std::min<std::size_t>(left.size(), 1 + (*random)() % 3000));
            const Taken t = input_rtcm3_block(*state, block, framelen);
            status = t.status;
            taken = t.bytes;
        } else {
            status = input_rtcm3_ex(*state, left[0], framelen);
        }
        at += taken;
        left = left.subspan(taken);
        if (status != 0)
            out.push_back({at, status, framelen});
        if (status > 0)
            init_rtcm(*state);
    }
    return out;
}

} // namespace

TEST(Framing, FindsTheNextGoodFrameAfterGarbageAndDropsABadOneWhole) {
    Bytes bad = frame(Bytes{0x3E, 0xD0, 0xD3, 0x00, 0x13, 0x3E});
    bad.back() ^= 1;
    const auto state = newState();
    EXPECT_EQ(feed(*state, Bytes{1, 2, 3} + bad + kGps1005), std::vector<int>{kStation});
    // The 0xD3 inside the dropped frame is not looked at again; a false one in front takes the
    // good frame's bytes for its own.
    const auto again = newState();
    EXPECT_TRUE(feed(*again, Bytes{0xD3, 0x00, 0x10} + kGps1005).empty());
}

TEST(Framing, TellsTheLengthOfEveryCompleteFrame) {
    const auto state = newState();
    Bytes bad = kGps1005;
    bad[5] ^= 0x10;
    for (const Bytes& f : {bad, kGps1005, frame({})}) {
        int framelen = -1;
        for (std::size_t i = 0; i < f.size(); ++i) {
            EXPECT_EQ(framelen, -1) << i;
            input_rtcm3_ex(*state, f[i], framelen);
        }
        EXPECT_EQ(framelen, static_cast<int>(f.size()));
    }
}

TEST(Framing, CountsMessagesByTypeUnlessMalformed) {
    const auto state = newState();
    const auto message = [](int type) {
        return frame(BitString().u(12, type).u(64, 0).u(20, 0).bytes());
    };
    for (const int type : {1013, 1013, 1075, 1118, 4073, 4095, 999, 1300, 1005})
        feed(*state, message(type));
    EXPECT_EQ(state->nmsg3[13], 2U);
    EXPECT_EQ(state->nmsg3[75], 0U); // too short for its header
    EXPECT_EQ(state->nmsg3[118], 1U);
    EXPECT_EQ(state->nmsg3[303], 1U);
    EXPECT_EQ(state->nmsg3[325], 1U);
    EXPECT_EQ(state->nmsg3[0], 2U);
    // A frame without payload takes its type from its check word, 0x47EA4B.
    feed(*state, frame({}));
    EXPECT_EQ(state->nmsg3[0x47E - 1000], 1U);
    init_rtcm(*state);
    EXPECT_EQ(std::count(state->nmsg3.begin(), state->nmsg3.end(), 0U), 400);
}

TEST(Framing, GivesTheSameForBytesAndForBlocks) {
    const FixedClock clock(ref::GpsTime{2009, 430650});
    std::mt19937 random(1);
    ref::Sky sky(kSite);
    Bytes stream;
    for (int epoch = 0; epoch < 8; ++epoch) {
        for (const Bytes& f : sky.epochFrames({2009, 430650.0 + epoch}, 4 + epoch % 4))
            stream = stream + f;
        for (int i = 0; i < 700; ++i)
            stream.push_back(static_cast<std::uint8_t>(random() % 5 ? random() : 0xD3));
        stream = stream + kGps1005;
    }
    stream = stream + capture("pittsburgh-msm4.rtcm3");
    const auto expected = events(stream, nullptr);
    EXPECT_GE(expected.size(), 4U);
    for (int run = 0; run < 20; ++run)
        EXPECT_EQ(events(stream, &random), expected) << run;
}

TEST(StationId, OfAnotherStationEndsTheEpochBeingCollected) {
    const FixedClock clock(ref::GpsTime{2009, 430650});
    ref::Sky sky(kSite);
    sky.station = 5;
    const auto frames = sky.epochFrames({2009, 430650}, 4);
    const auto state = newState();
    feed(*state, frames[0]);
    ASSERT_EQ(state->staid, 5);
    EXPECT_EQ(feed(*state, kGps1005), std::vector<int>{kMalformed}); // station 7
    EXPECT_EQ(state->staid, 0);
    EXPECT_EQ(feed(*state, kGps1005), std::vector<int>{kStation});
    EXPECT_EQ(state->staid, 7);
    init_rtcm(*state);
    state->opt = "-STA=9";
    EXPECT_EQ(feed(*state, kGps1005), std::vector<int>{kMalformed});
    state->opt = "-STA=7";
    EXPECT_EQ(feed(*state, kGps1005), std::vector<int>{kStation});
}

TEST(StationMessages, AreReadWholeOrNotAtAll) {
    const auto antenna = BitString().u(12, 1008).u(12, 9).text("ANT NONE").u(8, 3).text("S/N 1");
    const Bytes full1033 = ref::write1033({9, "A1", 2, "B2", "C3", "D4", "E5"});
    const Bytes biases = BitString()
                             .u(12, 1230)
                             .u(12, 9)
                             .u(1, 1)
                             .u(3, 0)
                             .u(4, 0b1010)
                             .s(16, 50)
                             .s(16, -32768)
                             .bytes();
    const Bytes text =
        BitString().u(12, 1029).u(12, 9).u(16, 0).u(17, 0).u(7, 2).text("hi").bytes();
    const Bytes position = ref::write1005(
        {.type = 1006, .station = 9, .itrf = 14, .xyzM = {0.0, -6378237.0, 0.0}, .heightM = 1.75});
    struct Case {
        Bytes body;
        int status;
        const char* label;
    };
    for (const Case& c : std::vector<Case>{
             {antenna.bytes(), kStation, "RTCM 1008 (  22): staid=   9"},
             {full1033, kStation, "RTCM 1033 (  22): staid=   9"},
             {biases, kStation, "RTCM 1230 (  11):"},
             {text, kNothing, "RTCM 1029 (  14): staid=   9 text=hi"},
             {position, kStation,
              "RTCM 1006 (  24): staid=   9 pos=0.00000000 -90.00000000 100.000 anth=1.750"}}) {
        auto state = newState();
        state->outtype = 1;
        const auto statuses = feed(*state, frame(c.body));
        EXPECT_EQ(statuses, c.status ? std::vector<int>{c.status} : std::vector<int>{}) << c.label;
        EXPECT_EQ(state->msgtype, c.label);
        for (std::size_t n = 3; n < c.body.size(); ++n) {
            state = newState();
            EXPECT_EQ(feed(*state, frame(Bytes(c.body.begin(),
                                               c.body.begin() + static_cast<std::ptrdiff_t>(n)))),
                      std::vector<int>{kMalformed})
                << c.label << " cut to " << n;
        }
    }
    const auto state = newState();
    feed(*state, frame(antenna.bytes()));
    EXPECT_STREQ(state->sta.antdes.data(), "ANT NONE");
    EXPECT_EQ(state->sta.antsetup, 3);
    EXPECT_STREQ(state->sta.antsno.data(), "S/N 1");
    feed(*state, frame(full1033));
    EXPECT_STREQ(state->sta.antdes.data(), "A1");
    EXPECT_STREQ(state->sta.rectype.data(), "C3");
    EXPECT_STREQ(state->sta.recver.data(), "D4");
    EXPECT_STREQ(state->sta.recsno.data(), "E5");
    feed(*state, frame(position));
    EXPECT_EQ(state->sta.pos, (std::array<double, 3>{0.0, -6378237.0, 0.0}));
    EXPECT_EQ(state->sta.hgt, 1.75);
    EXPECT_EQ(state->sta.itrf, 14);
    feed(*state, frame(biases));
    EXPECT_EQ(state->sta.glo_cp_align, 1);
    EXPECT_EQ(state->sta.glo_cp_bias, (std::array<double, 4>{1.0, 0.0, 0.0, 0.0}));
}

TEST(StationMessages, KeepLongTextsWithinTheirFields) {
    const std::string longest(255, 'x');
    const auto state = newState();
    feed(*state, frame(BitString().u(12, 1007).u(12, 9).text(longest).u(8, 77).bytes()));
    EXPECT_EQ(view(state->sta.antdes), longest.substr(0, 63));
    EXPECT_EQ(state->sta.antsetup, 77);
    feed(*state, frame(BitString().u(12, 1029).u(12, 9).u(40, 0).text(longest).bytes()));
    EXPECT_EQ(std::string(state->msg.data()), longest.substr(0, 127));
}
