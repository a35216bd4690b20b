#include "configured.h"

#include "reference/standard/msm.h"

#include <random>

// What a broken or hostile peer may send: nothing is read or written out of bounds (the sanitizers
// watch), and the service goes on afterwards.

namespace {

using ref::Bytes;

class HostileStream : public testing::Test {
protected:
    void SetUp() override {
        configured.service.intake.onrtcm = [this](std::uint32_t status, const std::uint8_t* frame,
                                                  std::int32_t length) {
            ASSERT_TRUE(status == kEpoch || status == kEphemeris || status == kStation);
            ASSERT_TRUE(frame[0] == kPreamble && length >= 6 && length <= 1029);
            configured.service.onMessage(status, frame,
                                         length); // the whole road, to a socket that is not there
            ++callbacks;
        };
        testing::internal::CaptureStdout();
    }
    void TearDown() override {
        read(goodEpoch()); // still alive, whatever came before: garbage may swallow a frame
        const int before = callbacks;
        read(goodEpoch());
        read(goodEpoch());
        EXPECT_GT(callbacks, before);
        testing::internal::GetCapturedStdout();
    }
    void read(const Bytes& bytes) { configured.read(bytes); }
    static Bytes goodEpoch() {
        Bytes out(1100, 0); // lets a pending false frame end
        for (const Bytes& f : ref::Sky(kSite).epochFrames(kNow, 4))
            out.insert(out.end(), f.begin(), f.end());
        return out;
    }
    /// One frame of every type there is.
    static std::vector<Bytes> frames() {
        ref::Sky sky(kSite);
        std::map<int, Bytes> byType;
        auto all = sky.ephemerisFrames(kNow);
        for (int form = 4; form <= 7; ++form)
            for (const Bytes& f : sky.epochFrames(kNow, form))
                all.push_back(f);
        for (const char* name : {"corsica-legacy.rtcm3", "antarctica-msm7.rtcm3",
                                 "california-legacy-glo-day-rollover.rtcm3"})
            for (const ref::Frame& f : ref::goodFrames(capture(name)))
                all.push_back(f.bytes);
        all.push_back(ref::frame(ref::write1005({})));
        all.push_back(ref::frame(ref::write1033({1, "A", 2, "B", "C", "D", "E"})));
        for (const Bytes& f : all)
            byType.emplace(ref::goodFrames(f).at(0).type, f);
        std::vector<Bytes> out;
        out.reserve(byType.size());
        for (const auto& [type, f] : byType)
            out.push_back(f);
        return out;
    }

    const FixedClock clock{kNow};
    Configured configured;
    int callbacks = 0;
    std::mt19937 random{12345};
};

} // namespace

TEST_F(HostileStream, OfRandomBytesInBlocksOfAnySize) {
    for (int run = 0; run < 300; ++run) {
        Bytes block(1 + random() % 10240);
        for (std::uint8_t& b : block)
            b = static_cast<std::uint8_t>(random() % 40 ? random() : kPreamble);
        read(block);
    }
}

TEST_F(HostileStream, OfEveryPrefixAndEverySingleBitFlip) {
    for (const Bytes& f : frames()) {
        for (std::size_t n = 0; n < f.size(); ++n)
            read(Bytes(f.begin(), f.begin() + static_cast<std::ptrdiff_t>(n)));
        for (std::size_t bit = 0; bit < 8 * f.size(); ++bit) {
            Bytes flipped = f;
            flipped[bit / 8] ^= static_cast<std::uint8_t>(0x80 >> bit % 8);
            read(flipped);
        }
    }
}

TEST_F(HostileStream, WhoseCheckWordsAreRightAndWhoseContentsLie) {
    for (const Bytes& f : frames()) {
        const Bytes body = ref::goodFrames(f).at(0).body;
        for (std::size_t n = 0; n <= body.size(); ++n) // lengths
            read(ref::frame(Bytes(body.begin(), body.begin() + static_cast<std::ptrdiff_t>(n))));
        for (std::size_t bit = 12; bit < 8 * body.size(); ++bit) { // counts, masks, ids
            Bytes flipped = body;
            flipped[bit / 8] ^= static_cast<std::uint8_t>(0x80 >> bit % 8);
            read(ref::frame(flipped));
        }
        for (int run = 0; run < 200; ++run) { // everything
            Bytes noise(random() % 1024);
            for (std::uint8_t& b : noise)
                b = static_cast<std::uint8_t>(random());
            std::copy_n(body.begin(), std::min<std::size_t>({2, body.size(), noise.size()}),
                        noise.begin());
            read(ref::frame(noise));
        }
    }
}

TEST_F(HostileStream, OfSplicedFrames) {
    const auto all = frames();
    for (int run = 0; run < 3000; ++run) {
        const Bytes& a = all[random() % all.size()];
        const Bytes& b = all[random() % all.size()];
        Bytes spliced(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(random() % a.size()));
        spliced.insert(spliced.end(), b.begin() + static_cast<std::ptrdiff_t>(random() % b.size()),
                       b.end());
        read(spliced);
    }
}

TEST_F(HostileStream, WhoseGlonassOrbitFallsIntoTheEarthLeavesTheSatelliteOut) {
    for (const double km : {0.0, 0.0005, 0.1, 1.0, 10.0, 100.0}) {
        ref::Glonass g;
        g.slot = 3;
        g.channel = 5;
        g.tb = 10; // 02:30 Moscow time, a few minutes from the epoch
        g.pos = {km, 0, 0};
        read(ref::frame(ref::writeGlonass(g)));
        read(goodEpoch());
    }
    EXPECT_GT(callbacks, 0);
}

TEST_F(HostileStream, ThatWalksTheTimeAwayCannotEndTheProcess) {
    // Each empty message moves the decoder's time by three days; a GLONASS ephemeris of that time
    // would lie behind the end of the leap-second table.
    for (std::uint32_t i = 0; i < 3000; ++i) {
        ref::Msm m;
        m.epochField = (430650U + i * 259200U) % 604800U * 1000U;
        m.more = true;
        read(ref::frame(ref::writeMsm(m)));
    }
    const int before = callbacks;
    for (const Bytes& f : frames())
        if (ref::goodFrames(f).at(0).type == 1020)
            read(f);
    EXPECT_EQ(callbacks, before);
}
