#include "gateway/kept_lines.h"
#include "gateway/station/EphemerisWatch.h"
#include "gateway/station/Feed.h"
#include "gateway/station/Heard.h"
#include "gateway/station/Sky.h"
#include "gateway/station/StationWatch.h"
#include "gateway/watch/Alarms.h"
#include "gateway/watch/EventLog.h"
#include "reference/service/predict.h"
#include "reference/standard/sky.h"

#include <gtest/gtest.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>

#include <cmath>
#include <set>
#include <string_view>

// What the gateway keeps in mind of its stations.

using namespace gateway;
using namespace std::chrono_literals;

namespace {

constexpr Instant kStart{1000h};

struct Told {
    std::vector<std::string> lines;
    Alarms alarms{[this](const Alarm& a) {
        lines.push_back((a.lasted ? "-" : "+") + std::string(nameOf(a.kind)) + " " + a.station +
                        ": " + wordsOf(a));
    }};
};

Block blockOf(const std::vector<ref::Bytes>& frames, Block::Kind kind) {
    Block out{{}, kind, {}};
    for (const ref::Bytes& f : frames)
        out.bytes.insert(out.bytes.end(), f.begin(), f.end());
    return out;
}

Block epochAt(ref::Sky& sky, const ref::GpsTime& time) {
    Block out = blockOf(sky.epochFrames(time, 7), Block::Kind::epoch);
    out.first = headOf(std::span(out.bytes).first(wholeFrame(out.bytes)));
    return out;
}

const ref::Vec3 kHere{-4467074.3577, 2683011.9038, -3667008.2845};
const ref::GpsTime kThen{2408, 300000.0};

/// An epoch of GPS, and of so many satellites of Galileo.
Block withGalileo(int satellites) {
    ref::Sky sky(kHere);
    sky.systems = "GE";
    Block out{{}, Block::Kind::epoch, {}};
    for (ref::Msm m : sky.epoch(kThen, 7)) {
        std::set<std::string> kept;
        if (m.system == 'E')
            std::erase_if(m.cells, [&](const ref::Cell& cell) {
                if (kept.size() < static_cast<std::size_t>(satellites))
                    kept.insert(cell.sat);
                return !kept.contains(cell.sat);
            });
        if (m.cells.empty())
            continue;
        const ref::Bytes f = ref::frame(ref::writeMsm(m));
        out.bytes.insert(out.bytes.end(), f.begin(), f.end());
    }
    out.first = headOf(std::span(out.bytes).first(wholeFrame(out.bytes)));
    return out;
}

} // namespace

TEST(Alarms, BeginOnceWhatLastsAndEndItOnce) {
    Told t;
    const auto look = [&](const std::string& wrong, Duration at) {
        t.alarms.look(AlarmKind::fewSatellites, "CANB", wrong, kStart + at);
    };
    look("4 where 30 are usual", 0s);
    look("", 30s); // a blink
    look("5", 40s);
    look("6", 99s);
    EXPECT_TRUE(t.lines.empty());
    look("7", 100s);
    look("8", 101s);
    look("", 110s); // a blink of the other kind
    look("9", 120s);
    ASSERT_EQ(t.lines, std::vector<std::string>{"+few_satellites CANB: 7"});
    ASSERT_EQ(t.alarms.ofStation("CANB").size(), 1U);
    EXPECT_EQ(t.alarms.ofStation("CANB")[0].text, "9");
    EXPECT_TRUE(t.alarms.ofStation("CAN").empty());
    look("", 130s);
    look("", 189s);
    EXPECT_EQ(t.alarms.count(), 1U);
    look("", 190s);
    ASSERT_EQ(t.lines.size(), 2U);
    EXPECT_EQ(t.lines[1], "-few_satellites CANB: lasted 90 s; last: 9");
    EXPECT_EQ(t.alarms.count(), 0U);

    // While it cannot be told, nothing begins or ends, and what was before does not count.
    const auto blind = [&](Duration at) {
        t.alarms.look(AlarmKind::fewSatellites, "CANB", std::nullopt, kStart + at);
    };
    look("4", 200s);
    blind(210s);
    look("4", 300s);
    EXPECT_EQ(t.lines.size(), 2U);
    look("4", 360s);
    EXPECT_EQ(t.lines.size(), 3U);
    look("", 370s);
    blind(380s);
    look("", 1000s);
    blind(2000s);
    EXPECT_EQ(t.alarms.count(), 1U);
    look("", 3000s);
    look("", 3060s);
    EXPECT_EQ(t.lines.size(), 4U);

    t.alarms.look(AlarmKind::moved, "CANB", "50 m", kStart);
    EXPECT_TRUE(t.lines.back().starts_with("+moved CANB: 50 m: nothing goes to rovers until"));
    t.alarms.look(AlarmKind::moved, "SYDN", "9 m", kStart);
    t.alarms.forget("CANB", kStart + 12h);
    EXPECT_EQ(t.lines.back(), "-moved CANB: lasted 12.0 h; last: 50 m");
    EXPECT_EQ(t.alarms.now().size(), 1U);
    EXPECT_EQ(t.alarms.begun()[static_cast<std::size_t>(AlarmKind::moved)], 2U);
}

TEST(Feed, NamesSoonWhatIsNoRtcm) {
    ref::Sky sky(kHere);
    const Bytes epoch = epochAt(sky, kThen).bytes;
    const auto bytes = [](std::string_view text) { return Bytes(text.begin(), text.end()); };
    Bytes both = bytes("$GNGGA,\r\n");
    both.insert(both.end(), epoch.begin(), epoch.end());
    constexpr Duration never = 100s;
    const struct {
        const char* what;
        Bytes come;
        Duration told;
        const char* line;
    } cases[] = {
        {"a few bytes", bytes("\xB5\x62\x01\x07"), 3s, ": this looks like UBX"},
        {"a preamble by chance", bytes("\xD3\x03\xFF$GNRMC,1\r\n"), 3s, ": this looks like NMEA"},
        {"RTCM 3", epoch, never, ""},
        {"RTCM 3 between other things", both, never, ""},
        {"a page, after RTCM 3 came", bytes("<html>"), 3s, ": this looks like HTML"},
        {"what nobody knows", Bytes(3000, 0x55), 30s, ""},
        {"half a message", Bytes(epoch.begin(), epoch.begin() + 50), never, ""},
        {"nothing", {}, never, ""},
    };
    boost::asio::io_context context;
    PushDoor door(context.get_executor());
    std::vector<std::string> lines;
    Feed feed(
        context.get_executor(), {parseAddress("caster:", Use::source)}, door,
        [&](Level, const std::string& text) { lines.push_back(text); }, [](const Block&) {});
    feed.start();
    context.poll();
    for (const auto& c : cases) {
        door.enter("192.0.2.1:9", {});
        const Instant now = std::chrono::steady_clock::now();
        for (std::size_t at = 0; at < c.come.size(); at += 100)
            door.deliver(
                std::span(c.come).subspan(at, std::min<std::size_t>(100, c.come.size() - at)));
        lines.clear();
        std::optional<Duration> told;
        for (Duration after = 1s; after < 60s; after += 1s) {
            feed.tick(now + after);
            if (!told && !lines.empty())
                told = after;
        }
        EXPECT_EQ(told.value_or(never), c.told) << c.what;
        std::vector<std::string> wanted;
        if (told)
            wanted.push_back("caster: what comes is no RTCM 3" + std::string(c.line));
        EXPECT_EQ(lines, wanted);
        door.leave("");
    }
    feed.stop();
    context.run();
}

TEST(Feed, SaysWhatACasterMayWantThatSendsNothing) {
    const struct {
        const char *gga, *data;
        bool told;
    } cases[] = {{"", "", true}, {"?gga=1,2,3", "", false}, {"", "0123456789", false}};
    for (const auto& c : cases) {
        boost::asio::io_context context;
        using boost::asio::ip::tcp;
        tcp::acceptor caster(context, {boost::asio::ip::address_v4::loopback(), 0});
        PushDoor door(context.get_executor());
        std::string said;
        Feed feed(
            context.get_executor(),
            {parseAddress("ntrip://127.0.0.1:" + std::to_string(caster.local_endpoint().port()) +
                              "/M" + c.gga,
                          Use::source)},
            door, [&](Level, const std::string& text) { said += text + "\n"; },
            [](const Block&) {});
        feed.start();
        tcp::socket peer(context);
        caster.async_accept(peer, [&](const auto&) {
            const std::string answer = std::string("ICY 200 OK\r\n\r\n") + c.data;
            boost::asio::write(peer, boost::asio::buffer(answer));
            peer.shutdown(tcp::socket::shutdown_send);
        });
        for (int i = 0; i < 100 && said.find("next attempt") == said.npos; ++i)
            context.run_for(100ms);
        EXPECT_NE(said.find(": the caster has ended the stream"), said.npos) << said;
        EXPECT_EQ(said.find("add gga=LAT,LON,HEIGHT; next attempt in") != said.npos, c.told)
            << said;
        feed.stop();
        context.run();
    }
}

TEST(EphemerisWatch, TellsInOneLineWhatLastsAMinute) {
    std::vector<std::string> lines;
    EphemerisWatch watch([&](Level level, const std::string& text) {
        lines.push_back((level == Level::warning ? "warning: " : "") + text);
    });
    const auto look = [&](int gps, int galileo, int fromS, int toS) {
        const auto system = [](int missing) {
            return R"({"seen_count": 9, "left_out_count": {"low": 1, "no ephemeris": )" +
                   std::to_string(missing) + "}}";
        };
        const ctl::status::StatusFile status(
            "status.json", R"({"format": "kestrune-status-1", "systems": {"G": )" + system(gps) +
                               R"(, "E": )" + system(galileo) + "}}");
        for (int s = fromS; s <= toS; s += 15)
            watch.look(status, kStart + std::chrono::seconds(s));
    };
    look(8, 6, 0, 45); // the stream has begun
    look(0, 0, 60, 60);
    look(1, 0, 75, 120); // one rises
    look(0, 0, 135, 135);
    EXPECT_TRUE(lines.empty());
    look(7, 0, 150, 195);
    look(7, 2, 210, 300);
    ASSERT_EQ(lines,
              std::vector<std::string>{"warning: no ephemeris has come for a minute: GPS 7 (1019), "
                                       "Galileo 2 (1045, 1046); these satellites are left out"});
    look(0, 0, 315, 360);
    look(0, 1, 375, 375); // not for long enough
    look(0, 0, 390, 435);
    EXPECT_EQ(lines.size(), 1U);
    look(0, 0, 450, 600);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines.back(), "every satellite has its ephemeris");
}

TEST(Repeated, HoldsUntilItHasNotHappenedForTheSpan) {
    Repeated r;
    const auto look = [&](std::uint64_t count, Duration at) {
        return r.look(count, /*tooOften=*/3, kStart + at, 10min);
    };
    EXPECT_EQ(look(2, 0s), 0U);
    EXPECT_EQ(look(2, 11min), 0U);
    EXPECT_EQ(look(5, 12min), 3U);
    for (int i = 0; i < 10; ++i) // once in 9 min: at the most two in 10
        EXPECT_GT(look(static_cast<std::uint64_t>(5 + i), 12min + i * 9min), 0U) << i;
    EXPECT_EQ(look(14, 103min), 1U);
    EXPECT_EQ(look(14, 104min), 0U);
    r.restart();
    EXPECT_EQ(look(3, 105min), 3U);
}

TEST(Series, HasNoValueWhereNothingCame) {
    Series s(10s, 5);
    s.set(kStart, 1);
    s.set(kStart + 9s, 2);
    s.set(kStart + 30s, 3);
    const auto is = [](const std::vector<float>& got, const std::vector<float>& want) {
        ASSERT_EQ(got.size(), want.size());
        for (std::size_t i = 0; i < got.size(); ++i)
            EXPECT_TRUE(std::isnan(want[i]) ? std::isnan(got[i]) : got[i] == want[i]) << i;
    };
    is(s.whole(kStart + 40s), {2, Series::kNone, Series::kNone, 3});
    is(s.whole(kStart + 24h), std::vector<float>(4, Series::kNone));
}

TEST(StationWatch, MeasuresDelayAndTellsWhatIsUnusual) {
    ref::Sky sky(kHere);
    sky.systems = "GE";
    ref::Sky poor(kHere);
    poor.systems = "G";
    StationWatch watch;
    int satellites = 0;
    for (int i = 0; i < 700; ++i) {
        const Instant at = kStart + i * 1s;
        const Block in = epochAt(sky, kThen + i);
        watch.cameIn(in, at);
        if (i % 2 == 0)
            watch.wentOut(in, at + (i == 100 ? 800ms : 5ms));
        satellites = watch.in(at).cells.count();
    }
    const Instant end = kStart + 700s;
    EXPECT_EQ(watch.out(end).cells.count(), satellites);
    EXPECT_EQ(watch.in(end + 1min).cells.count() + watch.out(end + 1min).cells.count(), 0);
    StationWatch unanswered = watch;
    for (int i = 0; i < 20; ++i)
        unanswered.cameIn(epochAt(sky, kThen + 700.0 + i), end + i * 1s);
    EXPECT_EQ(unanswered.in(end + 20s).cells.count(), satellites);
    EXPECT_EQ(unanswered.out(end + 20s).cells.count(), 0);
    EXPECT_EQ(watch.epochsIn(), 700U);
    EXPECT_EQ(watch.epochsOut(), 350U);
    EXPECT_DOUBLE_EQ(watch.intervalS().value(), 2.0);
    EXPECT_NEAR(watch.delayS(end).value(), 0.005, 1e-6);
    EXPECT_EQ(watch.delays().upTo[2], 349U); // up to 5 ms
    EXPECT_EQ(watch.delays().upTo[8], 1U);   // up to 1 s
    EXPECT_FLOAT_EQ(watch.epochs.whole(end).back(), 5.0F);
    EXPECT_GT(satellites, 12);
    EXPECT_EQ(watch.fewerThanUsual(end), std::nullopt);
    EXPECT_EQ(watch.goneSystems(end), "");
    watch.cameIn(epochAt(sky, kThen + 699.0), end); // a recording begins again
    watch.wentOut(epochAt(sky, kThen + 699.0), end + 5ms);
    EXPECT_EQ(watch.delays().upTo[9], 0U);

    // Until it is as before, also when fewer would be usual by now; not longer than a day.
    const Block without = epochAt(poor, kThen + 700.0), all = epochAt(sky, kThen + 700.0);
    const auto goesOn = [&](const Block& epoch, Instant from, Duration time) {
        for (Duration s = 0s; s < time; s += 10s) {
            watch.wentOut(epoch, from + s);
            watch.fewerThanUsual(from + s);
            watch.goneSystems(from + s);
        }
    };
    goesOn(without, end, 2h);
    const auto fewer = watch.fewerThanUsual(end + 2h);
    ASSERT_TRUE(fewer.has_value());
    EXPECT_EQ(fewer->have, watch.out(end + 2h - 10s).cells.count());
    EXPECT_NEAR(fewer->usual, satellites, 3);
    EXPECT_EQ(watch.goneSystems(end + 2h), "E");
    watch.wentOut(all, end + 2h);
    EXPECT_EQ(watch.fewerThanUsual(end + 2h), std::nullopt);
    EXPECT_EQ(watch.goneSystems(end + 2h), "");
    goesOn(all, end + 2h, 2h);
    goesOn(without, end + 4h, 23h);
    EXPECT_EQ(watch.goneSystems(end + 27h), "E");
    goesOn(without, end + 27h, 2h);
    EXPECT_EQ(watch.fewerThanUsual(end + 29h), std::nullopt);
    EXPECT_EQ(watch.goneSystems(end + 29h), "");
}

// What is no fault: satellites rise and set, the last of a system too; some systems come in every
// fifth epoch alone.
TEST(StationWatch, TakesAnOrdinarySkyForUsual) {
    struct Case {
        const char* systems;
        ref::Vec3 siteM;
    };
    const Case cases[] = {{"G", {6378137, 0, 0}},
                          {"GE", {-3961905, 3348994, 3698212}},
                          {"GRECJ", {4075580, 931854, 4801568}}};
    for (const Case& c : cases) {
        ref::Sky sky(c.siteM);
        sky.systems = c.systems;
        sky.maskDeg = 5;
        for (auto& [system, signals] : sky.signals)
            signals.resize(1);
        Told t;
        StationWatch watch;
        for (Duration s = 0s; s < 24h; s += 30s) {
            watch.wentOut(epochAt(sky, kThen + std::chrono::duration<double>(s).count()),
                          kStart + s);
            const auto fewer = watch.fewerThanUsual(kStart + s);
            t.alarms.look(AlarmKind::fewSatellites, "", fewer ? "few" : "", kStart + s);
            t.alarms.look(AlarmKind::systemGone, "", watch.goneSystems(kStart + s), kStart + s);
        }
        EXPECT_TRUE(t.lines.empty()) << c.systems << " " << t.lines.front();
    }

    struct Galileo {
        const char* what;
        int satellites, every, last; // in an epoch of so many; from 12 min on
        const char* gone;
    };
    const Galileo systems[] = {{"switched off", 2, 1, 0, "E"},
                               {"its only satellite sets", 1, 1, 0, ""},
                               {"every fifth epoch alone has it", 4, 5, 4, ""},
                               {"that one no longer", 4, 5, 0, "E"}};
    for (const Galileo& g : systems) {
        StationWatch watch;
        std::string gone;
        for (int i = 0; i < 800; ++i) {
            const int satellites = i < 720 ? g.satellites : g.last;
            watch.wentOut(withGalileo(i % g.every == 0 ? satellites : 0), kStart + i * 1s);
            if (i % 10 == 7)
                gone = watch.goneSystems(kStart + i * 1s);
        }
        EXPECT_EQ(gone, g.gone) << g.what;
        EXPECT_EQ(watch.fewerThanUsual(kStart + 800s), std::nullopt) << g.what;
    }
}

TEST(Heard, LeavesInterruptionsOutOfWhatItMeasures) {
    ref::Sky sky(kHere);
    sky.systems = "G";
    Heard heard;
    std::size_t bytes = 0;
    for (int i = 0; i < 240; ++i) { // nothing for two hours in the middle
        const Instant at = kStart + i * 1s + (i < 120 ? 0h : 2h);
        const Block epoch = epochAt(sky, kThen + i);
        bytes = epoch.bytes.size();
        heard.take(epoch, at);
        if (i % 30 == 0)
            heard.take(blockOf(sky.ephemerisFrames(kThen), Block::Kind::between), at);
    }
    ntrip::StreamEntry entry;
    heard.describe(entry);
    ASSERT_EQ(entry.messages.size(), 7U);
    for (const auto& [number, intervalS] : entry.messages)
        EXPECT_EQ(intervalS, number == 1077 ? 1.0 : 30.0) << number;
    EXPECT_GT(entry.bitRate, 8 * static_cast<int>(bytes));
    EXPECT_LT(entry.bitRate, 16 * static_cast<int>(bytes)); // ephemerides, too
}

TEST(EventLog, KeepsTheLastLinesOfEachStation) {
    KeptLines next;
    EventLog log(next);
    log.take(Level::warning, "CANB: lost: the \x1b[31mpeer\xff\n");
    log.take(Level::error, "a word: that names no station\nCANB: second\n");
    for (int i = 0; i < 997; ++i)
        log.take(Level::info, "SYDN: " + std::to_string(i) + "\n");
    ASSERT_EQ(log.events().size(), EventLog::kMost);
    EXPECT_EQ(log.events()[0].station, "CANB");
    EXPECT_EQ(log.events()[0].text, "lost: the ?[31mpeer?");
    EXPECT_EQ(log.events()[1].station, "");
    EXPECT_EQ(log.events()[2].text, "second");
    log.take(Level::info, "SYDN: " + std::string(5000, 'x') + "\n");
    EXPECT_EQ(log.events().front().number, 2U);
    EXPECT_LE(log.events().back().text.size(), 500U);
    EXPECT_TRUE(next.all.starts_with("CANB: lost"));
}

// Places are those of the sky that the frames were made from.
TEST(Sky, SaysWhereSatellitesAreAndWhatBecameOfThem) {
    ref::Sky sky(kHere);
    sky.systems = "GREC";
    ref::Bytes ephemerides;
    for (const ref::Bytes& f : sky.ephemerisFrames(kThen))
        ephemerides.insert(ephemerides.end(), f.begin(), f.end());
    const Block in = epochAt(sky, kThen);
    sky.systems = "G";
    const Block out = epochAt(sky, kThen);
    const SkyTerms terms{kHere, ref::virtualPoint(kHere), kThen + 1000.0};
    const auto all = skyOf(in.bytes, out.bytes, ephemerides, terms);
    ASSERT_GT(all.size(), 20U);
    const ref::Navigation truth = sky.navigation(kThen);
    int answered = 0, leftOut = 0;
    for (const SatelliteLook& s : all) {
        SCOPED_TRACE(s.name);
        const ref::Direction is =
            ref::direction(terms.virtualM, truth.satellite(s.name)(kThen + -0.075));
        ASSERT_TRUE(s.elevationDeg.has_value());
        EXPECT_NEAR(*s.elevationDeg, is.elevationDeg, 0.01);
        EXPECT_NEAR(std::remainder(*s.azimuthDeg - is.azimuthDeg, 360.0), 0.0, 0.05);
        EXPECT_LE(std::abs(*s.changeM), 301.0);
        EXPECT_FALSE(s.cn0DbHz.empty());
        EXPECT_GE(s.ephemerisAgeS.value(), 0.0);
        EXPECT_LE(*s.ephemerisAgeS, 7200.0);
        answered += std::string_view(s.fate) == "answered" ? 1 : 0;
        leftOut += std::string_view(s.fate) == "left_out" ? 1 : 0;
        EXPECT_EQ(s.kept.empty(), s.name[0] != 'G' || s.fate == std::string_view("low"));
    }
    EXPECT_GT(answered, 5);
    EXPECT_GT(leftOut, 10);
    SkyTerms later = terms;
    later.agoS = 4 * 3600; // past every reference time
    const auto then = skyOf(in.bytes, out.bytes, ephemerides, later);
    for (std::size_t i = 0; i < all.size(); ++i)
        EXPECT_NEAR(std::abs(*then[i].ephemerisAgeS - later.agoS), *all[i].ephemerisAgeS, 0.001)
            << all[i].name;
    const auto blind = skyOf(in.bytes, out.bytes, {}, terms);
    ASSERT_EQ(blind.size(), all.size());
    for (const SatelliteLook& s : blind)
        EXPECT_EQ(s.elevationDeg, std::nullopt) << s.name;
}
