#include "service.h"

#include "base/Findings.h"
#include "check.h"
#include "intake/Contradictions.h"
#include "reference/standard/ephemeris.h"
#include "reference/standard/msm.h"

namespace {

using namespace std::chrono_literals;
using ref::Bytes;

int occurrences(const std::string& text, const std::string& part) {
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

} // namespace

TEST(Contradiction, IsToldAgainOnlyAfterAnHourWithoutIt) {
    Contradictions c;
    const GTime clock = epoch2time({2026, 11, 21, 23, 51, 2});
    const GTime old = epoch2time({2018, 7, 12, 23, 59, 44});
    const std::string weekLine =
        "***WARN(StreamObs): G05 eph is of 2018-07-12 23:59, the clock says 2026-11-21 23:51!\n";
    const struct {
        std::string line;
        std::function<void(bool, Contradictions::Instant)> look;
    } kinds[] = {
        {weekLine, [&](bool contradicts,
                       auto now) { c.ephemeris("G05", contradicts ? old : clock, clock, now); }},
        {"***WARN(StreamObs): R07 has channel 5 in session.obj, 6 in the stream!\n",
         [&](bool contradicts, auto now) { c.channel(7, contradicts ? 6 : 5, 5, now); }},
        {"***WARN(StreamObs): 1006 says X = 3.0000, Y = 4.0000, Z = 0.0100, STR2 is configured at "
         "X = 0.0000, Y = 0.0000, Z = 0.0000, distance(5.0)!\n",
         [&](bool contradicts, auto now) {
             c.position(1006, {3.0, 4.0, contradicts ? 0.01 : 0.0}, "STR2", {}, now);
         }}};
    for (const auto& kind : kinds) {
        const auto look = [&](bool contradicts, Contradictions::Instant now) {
            return check::printed([&] { kind.look(contradicts, now); });
        };
        EXPECT_EQ(look(false, 0h), "");
        EXPECT_EQ(look(true, 1s), kind.line);
        EXPECT_EQ(look(true, 5h), "") << "it lasts";
        EXPECT_EQ(look(false, 5h + 1s) + look(true, 5h + 2s), "") << "it flaps";
        EXPECT_EQ(look(false, 6h) + look(false, 6h + 2s), "");
        EXPECT_EQ(look(true, 6h + 3s), kind.line);
    }
    EXPECT_EQ(check::printed([&] { c.channel(8, 1, 2, 9h); }),
              "***WARN(StreamObs): R08 has channel 2 in session.obj, 1 in the stream!\n");
    EXPECT_EQ(check::printed([&] { c.ephemeris("C05", old, clock, 9h); }).size(), weekLine.size());
    // A Saturday night, a Sunday morning and a Wednesday: with toe at midnight before Sunday a
    // message may carry the week that ends or the one that begins.
    const GTime thisWeek = epoch2time({2026, 11, 15, 0, 0, 0});
    const GTime nextWeek = epoch2time({2026, 11, 22, 0, 0, 0});
    const GTime sunday = epoch2time({2026, 11, 22, 0, 30, 0});
    const struct {
        GTime stated, clock;
        bool told;
    } weeks[] = {{thisWeek, clock, false},
                 {nextWeek, clock, false},
                 {timeadd(nextWeek, -16.0), sunday, false},
                 {timeadd(nextWeek, 604784.0), sunday, false},
                 {thisWeek, sunday, false},
                 {nextWeek, epoch2time({2026, 11, 18, 12, 0, 0}), true},
                 {timeadd(nextWeek, kSecondsPerWeek), sunday, true}};
    for (const auto& w : weeks) {
        Contradictions fresh;
        EXPECT_EQ(!check::printed([&] { fresh.ephemeris("E05", w.stated, w.clock, 9h); }).empty(),
                  w.told);
    }
    // A GPS week comes modulo 1024: completed to 2007, it is that of a clock three weeks behind.
    EXPECT_EQ(check::printed([&] {
                  c.ephemeris("J01", timeadd(clock, (3 - 1024) * kSecondsPerWeek), clock, 9h);
              }),
              "***WARN(StreamObs): J01 eph is of 2026-12-12 23:51, the clock says 2026-11-21 "
              "23:51!\n");
    EXPECT_EQ(check::printed([&] {
                  c.channel(9, kUnknownChannel, 2, 9h);
                  c.channel(9, 2, kUnknownChannel, 9h);
                  c.channel(28, 1, 2, 9h);
              }),
              "");
}

TEST(Contradiction, OfStationsIsAnIdThatChangesTwiceInAMinute) {
    Contradictions c;
    const auto ids = [&](std::initializer_list<std::pair<int, Contradictions::Instant>> seen) {
        return check::printed([&] {
            for (const auto& [id, now] : seen)
                c.stationId(id, now);
        });
    };
    const auto line = [](int a, int b) {
        return text("***WARN(StreamObs): stations %d and %d on one stream, replies may mix two "
                    "places!\n",
                    a, b);
    };
    EXPECT_EQ(ids({{5, 0s}, {5, 1s}, {7, 2s}, {7, 3s}, {7, 62s}, {5, 63s}}), "") << "two new ids";
    c.newConnection();
    EXPECT_EQ(ids({{7, 64s}, {5, 65s}}), "");
    EXPECT_EQ(ids({{7, 66s}, {5, 67s}, {7, 68s}, {7, 20min}, {5, 20min}}), line(5, 7));
    EXPECT_EQ(ids({{0, 90min}, {0, 91min}, {4095, 92min}, {0, 92min}}), line(0, 4095));
}

TEST(Contradiction, OfTheRealServiceIsOneLineInItsLog) {
    // A second station 300 m off, whose epochs and position come between those of the first; R07 on
    // another channel than in the object file; BeiDou ephemerides of the week before.
    const ref::GpsTime start = kNow;
    ref::Sky sky(kSite), second({kSite[0], kSite[1], kSite[2] + 300.0});
    sky.systems = second.systems = "GR";
    second.station = 2;
    Bytes stream;
    const auto put = [&](const Bytes& f) { stream.insert(stream.end(), f.begin(), f.end()); };
    for (int epoch = 0; epoch < 3; ++epoch) {
        for (const Bytes& f : sky.ephemerisFrames(start)) {
            const ref::Frame message = ref::goodFrames(f).at(0);
            if (message.type == 1042) {
                ref::Kepler k = ref::readKepler(message.body);
                k.week -= 1;
                put(ref::frame(ref::writeKepler(k)));
            } else if (message.type == 1020) {
                ref::Glonass g = ref::readGlonass(message.body);
                g.channel = g.slot == 7 ? 6 : g.channel;
                put(ref::frame(ref::writeGlonass(g)));
            } else {
                put(f);
            }
        }
        for (ref::Sky* const from : {&sky, &second}) {
            put(ref::frame(ref::write1005({.station = from->station, .xyzM = from->site})));
            for (const Bytes& f : from->epochFrames(start + 1.0 * epoch, 4))
                put(f);
        }
    }
    Peer peer;
    peer.listen();
    RunningService service(peer.port, kClock);
    ASSERT_TRUE(peer.accept());
    peer.exchange(stream, 1000,
                  static_cast<int>(ref::SpecifiedPredictor(expectation()).take(stream).size()));
    const std::string log = service.wholeLog();
    EXPECT_EQ(occurrences(log, "Got observation data"), 6);
    for (const std::string& line :
         {std::string("***WARN(StreamObs): stations 1 and 2 on one stream, replies may mix two "
                      "places!\n"),
          std::string("***WARN(StreamObs): R07 has channel 5 in session.obj, 6 in the stream!\n"),
          std::string("***WARN(StreamObs): 1005 says X = -4467074.3577, Y = 2683011.9038, Z = "
                      "-3666708.2845, STR2 is configured at X = -4467074.3577, Y = 2683011.9038, "
                      "Z = -3667008.2845, distance(300.0)!\n"),
          std::string(" eph is of 2018-07-0"), std::string(", the clock says 2018-07-12 23:37!\n")})
        EXPECT_EQ(occurrences(log, line), 1) << line;
}
