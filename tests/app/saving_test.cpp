#include "service.h"

#include "reference/service/judge.h"

#include <chrono>
#include <sstream>

// The real program with -rawsav: what it saves, read back, is what the stream carried.

namespace {

using ref::Bytes;

// Columns of a record by system, as the README lists them.
const std::map<char, std::string> kColumns{{'G', "C1 L1 D1 S1 C2 L2 D2 S2 C5 L5 D5 S5"},
                                           {'R', "C1 L1 D1 S1 C2 L2 D2 S2"},
                                           {'E', "C1 L1 D1 S1 C6 L6 D6 S6 C8 L8 D8 S8 C5 L5 D5 S5"},
                                           {'C', "C1 L1 D1 S1 C2 L2 D2 S2 C6 L6 D6 S6 C7 L7 D7 S7 "
                                                 "C8 L8 D8 S8"},
                                           {'J', ""}};

struct Record {
    double unixS = 0; // GPS time as if it were UTC
    int flag = -1;
    std::map<std::string, std::map<std::string, double>> satellites; // values by type
};

/// Epoch records of RINEX 3 by their columns; anything else is a failure.
std::vector<Record> readRecords(const fs::path& file) {
    std::istringstream in(readFile(file));
    std::vector<Record> out;
    for (std::string line; std::getline(in, line);) {
        EXPECT_EQ(line.substr(0, 2), "> ") << line;
        Record r;
        const auto number = [&](std::size_t at, std::size_t n) {
            return std::stoi(line.substr(at, n));
        };
        const std::chrono::sys_days day{std::chrono::year(number(2, 4)) / number(7, 2) /
                                        number(10, 2)};
        r.unixS = 86400.0 * static_cast<double>(day.time_since_epoch().count()) +
                  3600 * number(13, 2) + 60 * number(16, 2) + std::stod(line.substr(19, 10));
        r.flag = number(29, 3);
        for (int left = number(32, 3); left > 0; --left) {
            EXPECT_TRUE(std::getline(in, line));
            auto& values = r.satellites[line.substr(0, 3)];
            std::istringstream columns(kColumns.at(line[0]));
            std::size_t at = 3;
            for (std::string type; columns >> type; at += 16) {
                EXPECT_EQ(line.substr(at + 14, 2), "  ");
                values[type] = std::stod(line.substr(at, 14));
            }
            EXPECT_EQ(line.substr(at), " ");
        }
        out.push_back(r);
    }
    return out;
}

/// A record against the epoch's messages as the independent readers read them.
void compare(const Record& got, const ref::Expected& epoch, const ref::Expectation& e) {
    constexpr double gpsEpochS = 315964800.0;
    EXPECT_NEAR(got.unixS, gpsEpochS + epoch.time.week * ref::kWeekS + epoch.time.sow, 1e-6);
    EXPECT_EQ(got.flag, 0);
    std::size_t observed = 0;
    for (const auto& [sat, columns] : epoch.observed) {
        if (std::none_of(columns.begin(), columns.end(),
                         [](const auto& c) { return c.second.phaseRangeM.has_value(); }))
            continue;
        ++observed;
        ASSERT_TRUE(got.satellites.contains(sat)) << sat;
        for (const auto& [type, value] : got.satellites.at(sat)) {
            double expected = 0;
            double tolerance = 0.0005 + 1e-5; // half a digit
            if (const auto at = columns.find(type[1]); at != columns.end()) {
                const ref::Cell& c = at->second;
                const double perM =
                    ref::frequencyHz(c.system, c.signal,
                                     e.channels.contains(c.id) ? e.channels.at(c.id) : 0) /
                    ref::kLightSpeed;
                if (type[0] == 'C')
                    expected = c.pseudorangeM.value_or(0);
                if (type[0] == 'L')
                    expected = c.phaseRangeM.value_or(0) * perM;
                if (type[0] == 'D') { // minus the Doppler, of single precision
                    expected = c.rateMps.value_or(0) * perM;
                    tolerance += std::abs(expected) * 1e-7;
                }
                if (type[0] == 'S')
                    expected = c.cnr;
            }
            EXPECT_NEAR(value, expected, tolerance) << sat << ' ' << type;
        }
    }
    EXPECT_EQ(got.satellites.size(), observed);
}

/// Plays a stream to a service with these options; its replies must be right.
void play(Peer& peer, const Bytes& stream, std::vector<ref::Expected>& owed) {
    const ref::Expectation e = expectation();
    owed = ref::SpecifiedPredictor(e).take(stream);
    ASSERT_TRUE(peer.accept());
    const ref::Verdict v =
        ref::judge(stream, peer.exchange(stream, 4096, static_cast<int>(owed.size())), e);
    EXPECT_EQ(v.wrong, 0);
    std::erase_if(owed, [](const ref::Expected& x) { return x.type != 0; });
    EXPECT_EQ(v.replies, static_cast<int>(owed.size()));
}

/// Epochs with rates from a time on, once a second; MSM7 and MSM5 by turns.
Bytes generated(ref::GpsTime start, int epochs) {
    ref::Sky sky(kSite);
    Bytes stream;
    const auto put = [&](const Bytes& f) { stream.insert(stream.end(), f.begin(), f.end()); };
    for (const Bytes& f : sky.ephemerisFrames(start))
        put(f);
    for (int i = 0; i < epochs; ++i)
        for (const Bytes& f : sky.epochFrames(start + 1.0 * i, i % 2 == 0 ? 7 : 5))
            put(f);
    return stream;
}

} // namespace

TEST(Saving, KeepsWhatTheRecordedStreamCarried) {
    CAPTURE_OR_SKIP(stream, "str24-msm4.rtcm3");
    Peer peer;
    peer.listen();
    const RunningService service(peer.port, kClock, {.switches = {"-rawsav"}});
    std::vector<ref::Expected> owed;
    play(peer, stream, owed);
    const std::vector<Record> records = readRecords(service.out() / "str21930.18o");
    ASSERT_EQ(records.size(), 1309U);
    ASSERT_EQ(owed.size(), records.size());
    for (std::size_t i = 0; i < records.size() && !testing::Test::HasFailure(); ++i)
        compare(records[i], owed[i], expectation());
}

TEST(Saving, FillsAFileADay) {
    Peer peer;
    peer.listen();
    const RunningService service(peer.port, "2018-07-12 23:59:30", {.switches = {"-rawsav"}});
    std::vector<ref::Expected> owed;
    play(peer, generated({2009, 432000 - 3}, 6), owed);
    std::vector<Record> records = readRecords(service.out() / "str21930.18o");
    EXPECT_EQ(records.size(), 3U);
    const std::vector<Record> next = readRecords(service.out() / "str21940.18o");
    records.insert(records.end(), next.begin(), next.end());
    ASSERT_EQ(records.size(), 6U);
    ASSERT_EQ(owed.size(), 6U);
    for (std::size_t i = 0; i < records.size(); ++i)
        compare(records[i], owed[i], expectation());
    double rates = 0;
    for (const auto& [sat, values] : records[0].satellites)
        rates += values.contains("D1") && values.at("D1") != 0 ? 1 : 0;
    EXPECT_GT(rates, 15);
}

TEST(Saving, FollowsTheSwitches) {
    // Deliberate: -vrssav saves the reference epochs, too, and both together save nothing.
    const std::string refused = "***ERROR(BaseStation): Not support output vrs, now use -rawsav\n";
    const std::string both = "***WARN(BaseStation): Can't save vrs and raw obs at the same time!\n";
    std::string saved;
    for (const std::vector<std::string>& switches :
         std::vector<std::vector<std::string>>{{"-rawsav"}, {"-vrssav"}, {"-rawsav", "-vrssav"}}) {
        Peer peer;
        peer.listen();
        RunningService service(peer.port, kClock, {.switches = switches});
        std::vector<ref::Expected> owed;
        play(peer, generated(kNow, 2), owed);
        const std::string log = service.wholeLog();
        const std::string file = readFile(service.out() / "str21930.18o");
        if (switches.size() == 2) {
            EXPECT_TRUE(fs::is_empty(service.out()));
        } else if (saved.empty()) {
            saved = file;
            EXPECT_GT(saved.size(), 5000U);
        } else {
            EXPECT_EQ(file, saved);
        }
        EXPECT_EQ(contains(log, refused), switches[0] == "-vrssav");
        EXPECT_EQ(contains(log, both), switches.size() == 2);
    }
}

TEST(Saving, TakesAPartOfARecordBackAndGoesOn) {
    Peer peer;
    peer.listen();
    RunningService service(peer.port, kClock, {.switches = {"-rawsav"}, .largestFile = 20000});
    std::vector<ref::Expected> owed;
    play(peer, generated(kNow, 8), owed);
    const std::vector<Record> records = readRecords(service.out() / "str21930.18o");
    EXPECT_GT(records.size(), 0U);
    EXPECT_LT(records.size(), 8U);
    for (std::size_t i = 0; i < records.size(); ++i)
        compare(records[i], owed[i], expectation());
    EXPECT_TRUE(contains(service.wholeLog(),
                         "***WARN(Rnxobs): file = " + (service.out() / "str21930.18o").string() +
                             ",epoch is not written,"));
}

TEST(Saving, OutlivesAFileAtItsGreatestSize) {
    Peer peer;
    peer.listen();
    RunningService service(peer.port, kClock, {.switches = {"-rawsav"}, .largestFile = 20000});
    const fs::path file = service.out() / "str21930.18o";
    std::ofstream(file) << std::string(20000, '\n');
    std::vector<ref::Expected> owed;
    play(peer, generated(kNow, 3), owed);
    EXPECT_EQ(fs::file_size(file), 20000U);
    EXPECT_TRUE(contains(service.wholeLog(), ",epoch is not written,File too large\n"));
}

TEST(Saving, GoesOnWithoutTheFolderOnceItCouldBeUsed) {
    Peer peer;
    peer.listen();
    RunningService service(peer.port, kClock, {.switches = {"-rawsav"}});
    std::vector<ref::Expected> owed;
    play(peer, generated(kNow, 2), owed);
    fs::remove_all(service.out());
    const Bytes more = generated(kNow + 2.0, 2);
    const auto due = ref::SpecifiedPredictor(expectation()).take(more).size();
    peer.exchange(more, 4096, static_cast<int>(due));
    EXPECT_FALSE(fs::exists(service.out()));
    EXPECT_TRUE(contains(service.wholeLog(), ",epoch is not written,No such file or directory\n"));
}

TEST(Saving, EndsTheProcessWhereTheFileCannotBeOpened) {
    Peer peer;
    peer.listen();
    RunningService service(peer.port, kClock, {.switches = {"-rawsav"}});
    fs::remove_all(service.out());
    ASSERT_TRUE(peer.accept());
    peer.exchange(generated(kNow, 1), 4096, 1 << 20);
    EXPECT_EQ(service.end(), 1);
    EXPECT_TRUE(service.log().ends_with(
        "****ERROR(Rnxobs): file = " + (service.out() / "str21930.18o").string() +
        ",can't access out file\n"));
}
