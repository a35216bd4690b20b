#include "service.h"

#include "ctl/status/StatusFile.h"
#include "reference/standard/census.h"

#include <atomic>
#include <cjson/cJSON.h>
#include <thread>

// The file that the real program writes of itself, against a census of what it got and sent.

namespace {

using ctl::status::StatusFile;
using ref::Bytes;

struct StatusStream {
    Bytes bytes;
    std::map<std::string, std::uint64_t> messages, sizes; // by number; bytes
    std::uint64_t skipped = 0;
};

std::string typeText(const Bytes& frame) {
    return std::to_string(frame[3] << 4 | frame[4] >> 4);
}

/// Epochs of a station near the place of the example, the last of them behind one without its end,
/// with bytes between that are no frames.
StatusStream streamOfStation(int epochs) {
    StatusStream out;
    const auto add = [&](const std::vector<Bytes>& frames) {
        for (const Bytes& f : frames) {
            out.bytes.insert(out.bytes.end(), f.begin(), f.end());
            ++out.messages[typeText(f)];
            out.sizes[typeText(f)] += f.size();
        }
    };
    const auto addNoise = [&](const Bytes& noise) {
        out.bytes.insert(out.bytes.end(), noise.begin(), noise.end());
        out.skipped += noise.size();
    };
    ref::Sky sky(kSite);
    sky.station = 7;
    const ref::GpsTime first = kNow + 0.6; // systems write such a time differently
    add({ref::frame(
        ref::write1005({.station = 7, .xyzM = {kSite[0] + 3.0, kSite[1], kSite[2] + 4.0}}))});
    add(sky.ephemerisFrames(kNow));
    addNoise({'n', 'o', 'i', 's', 'e'});
    for (int i = 0; i < epochs; ++i)
        add(sky.epochFrames(first + 1.0 * i, 7));
    Bytes broken = ref::frame(ref::write1005({.station = 7, .xyzM = kSite}));
    broken[10] ^= 1;
    addNoise(broken);
    std::vector<Bytes> unfinished = sky.epochFrames(first + 1.0 * epochs, 7);
    unfinished.pop_back();
    add(unfinished);
    add({ref::frame(ref::write1005({.station = 7, .xyzM = {kSite[0], kSite[1] + 5.0, kSite[2]}}))});
    add(sky.epochFrames(first + 1.0 * (epochs + 1), 7));
    return out;
}

/// The file once it says that the connection was lost, or after 20 s.
StatusFile afterTheLoss(const fs::path& path) {
    for (int i = 0; i < 1000; ++i, sleepms(20)) {
        StatusFile s(path.string());
        if (s.count("connection/lost_total/closed") + s.count("connection/lost_total/failed") == 1)
            return s;
    }
    return StatusFile(path.string());
}

/// A frame that is passed on, and is in no stream of the tests but at its end.
Bytes lastFrame() {
    return ref::Sky(kSite).ephemerisFrames(kNow + 7200.0).front();
}

/// Sends a stream and the last frame; all that comes back up to that.
Bytes exchangeToTheEnd(Peer& peer, Bytes stream) {
    const Bytes last = lastFrame();
    stream.insert(stream.end(), last.begin(), last.end());
    Bytes received = peer.exchange(stream, 700, 0);
    for (;;) {
        if (received.size() >= last.size() &&
            std::ranges::equal(last, std::span(received).last(last.size())))
            return received;
        const std::size_t before = received.size();
        received = peer.exchange({}, 700, wholeFrames(received) + 1, received);
        if (received.size() == before) {
            ADD_FAILURE() << "the last frame did not come back";
            return received;
        }
    }
}

/// Reads the file until told to stop; how often it was whole, and how often not.
struct FileReader {
    explicit FileReader(const fs::path& path)
        : thread([this, path] {
              while (!stop)
                  try {
                      if (const std::string content = readFile(path); !content.empty()) {
                          const StatusFile s("read", content);
                          ++whole;
                      }
                  } catch (const std::runtime_error&) {
                      ++broken;
                  }
          }) {}
    ~FileReader() {
        stop = true;
        thread.join();
    }
    std::atomic<bool> stop = false;
    std::atomic<int> whole = 0;
    std::atomic<int> broken = 0;
    std::thread thread;
};

} // namespace

TEST(StatusOfService, IsWhatAStreamBroughtAndWhatLeft) {
    for (const bool complete : {true, false}) {
        Peer peer;
        peer.listen();
        const fs::path path = fs::path(testing::TempDir()) / "status.json";
        fs::remove(path);
        const RunningService service(
            peer.port, kClock,
            {.keys = {{"common", "\"status\": \"" + path.string() + "\""},
                      {"vrs", complete ? R"("answer": "complete", "output": "rtcm3")"
                                       : R"("answer": "specified", "output": "rtcm3")"}}});
        const StatusStream stream = streamOfStation(5);
        ASSERT_TRUE(peer.accept());
        const Bytes last = lastFrame();
        Bytes received;
        {
            const FileReader reader(path);
            received = exchangeToTheEnd(peer, stream.bytes);
            for (int i = 0; i < 10000 && reader.whole + reader.broken < 100; ++i)
                sleepms(1);
            EXPECT_EQ(reader.broken, 0);
            EXPECT_GE(reader.whole, 100);
        }
        peer.drop();
        const StatusFile s = afterTheLoss(path);
        auto messages = stream.messages;
        auto sizes = stream.sizes;
        ++messages[typeText(last)];
        sizes[typeText(last)] += last.size();
        EXPECT_EQ(s.count("input/received_bytes_total"), stream.bytes.size() + last.size());
        EXPECT_EQ(s.count("input/skipped_bytes_total"), stream.skipped);
        EXPECT_EQ(s.count("input/wrong_check_words_total"), 1U);
        for (const auto& [type, n] : messages)
            EXPECT_EQ(s.count("input/messages_total/" + type), n) << type;
        for (const auto& [type, n] : sizes)
            EXPECT_EQ(s.count("input/message_bytes_total/" + type), n) << type;
        // The complete answer has what came of the unfinished one.
        const std::uint64_t answered = complete ? 7 : 6;
        EXPECT_EQ(s.count("epochs/complete_total"), 6U);
        EXPECT_EQ(s.count("epochs/unfinished_total"), 1U);
        EXPECT_EQ(s.count("epochs/answered_total"), answered);
        EXPECT_EQ(s.count("output/sent_bytes_total"), received.size());
        std::uint64_t sentFrames = 0;
        std::uint64_t sentBytes = 0;
        for (const ref::Frame& f : ref::goodFrames(received)) {
            ++sentFrames;
            sentBytes += f.body.size() + 6;
        }
        const auto sum = [&](const std::string& of) {
            std::uint64_t n = 0;
            s.forEach(of + "/*", [&](const auto&, const cJSON& value) {
                n += static_cast<std::uint64_t>(value.valuedouble);
            });
            return n;
        };
        EXPECT_EQ(sum("output/messages_total"), sentFrames);
        EXPECT_EQ(sum("output/message_bytes_total"), sentBytes);
        EXPECT_EQ(s.count("output/delay/at_most_total/1"), answered);
        EXPECT_EQ(s.number("sender/station_id"), 7.0);
        EXPECT_NEAR(s.number("sender/distance_m").value_or(0), 5.0, 1e-3);
        EXPECT_EQ(s.count("connection/made_total"), 1U);
        EXPECT_EQ(s.number("log/dropped_lines_total"), 0.0);
        EXPECT_EQ(s.number("leap_seconds/file_end_unix_s"), 86400.0 * (62502 - 40587));
        ref::Census in;
        ref::Census out;
        in.take(stream.bytes);
        out.take(received);
        std::size_t signals = 0;
        s.forEach("systems/*/signals/*", [&](const std::vector<std::string>& names, const cJSON&) {
            const auto cells = [&](const ref::Census& census) {
                const auto at = census.counts().cells.find(names[0] + names[1]);
                return at == census.counts().cells.end() ? 0
                                                         : static_cast<std::uint64_t>(at->second);
            };
            const std::string signal = "systems/" + names[0] + "/signals/" + names[1];
            EXPECT_EQ(s.count(signal + "/received_total"), cells(in)) << signal;
            EXPECT_EQ(s.count(signal + "/answered_total"), cells(out)) << signal;
            EXPECT_EQ(sum(signal + "/dropped_total"), cells(in) - cells(out)) << signal;
            ++signals;
        });
        EXPECT_EQ(signals, in.counts().cells.size());
        for (const char* const system : {"G", "R", "E", "C", "J"}) {
            const std::string of = std::string("systems/") + system;
            EXPECT_GT(s.count(of + "/seen_count"), 0U);
            EXPECT_EQ(s.count(of + "/seen_count"),
                      s.count(of + "/answered_count") + sum(of + "/left_out_count"));
        }
    }
}

TEST(StatusOfService, SaysWhyASignalIsNotAnswered) {
    Peer peer;
    peer.listen();
    const fs::path path = fs::path(testing::TempDir()) / "status.json";
    const RunningService service(peer.port, kClock,
                                 {.keys = {{"common", "\"status\": \"" + path.string() + "\""},
                                           {"vrs", R"("output": "rtcm3")"}}});
    ref::Sky sky(kSite);
    sky.signals['G'] = {"1C", "2W", "2X", "5X"};
    sky.signals['E'] = {"1X", "5X", "8I"};
    Bytes stream;
    for (const auto& frames :
         {sky.ephemerisFrames(kNow), sky.epochFrames(kNow, 5), sky.epochFrames(kNow + 1.0, 5)})
        for (const Bytes& f : frames)
            stream.insert(stream.end(), f.begin(), f.end());
    ASSERT_TRUE(peer.accept());
    exchangeToTheEnd(peer, stream);
    peer.drop();
    const StatusFile s = afterTheLoss(path);
    const struct {
        const char* signal;
        const char* why; // nothing: it is answered
    } cases[] = {{"G/signals/1C", nullptr},
                 {"G/signals/2W", "another signal took its carrier"},
                 {"G/signals/2X", "not in the reply's list"},
                 {"G/signals/5X", "not in the reply's list"},
                 {"E/signals/5X", nullptr},
                 {"E/signals/id 18", "unknown"},
                 {"C/signals/2I", nullptr}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.signal);
        const std::string at = std::string("systems/") + row.signal;
        const std::uint64_t received = s.count(at + "/received_total");
        const std::uint64_t low = s.count(at + "/dropped_total/satellite not answered");
        EXPECT_GT(received, 0U);
        EXPECT_EQ(s.count(at + "/answered_total"), row.why ? 0 : received - low);
        if (row.why) {
            EXPECT_EQ(s.count(at + "/dropped_total/" + row.why), received - low);
        }
    }
}

TEST(StatusOfService, IsWrittenInASilenceAndAtTheEnd) {
    Peer peer;
    peer.listen();
    const fs::path path = fs::path(testing::TempDir()) / "status.json";
    RunningService service(peer.port, kClock,
                           {.keys = {{"common", "\"status\": \"" + path.string() + "\""}}});
    ASSERT_TRUE(peer.accept());
    const StatusStream stream = streamOfStation(2);
    EXPECT_TRUE(peer.sendOnly(stream.bytes));
    // Nothing more comes; what came is told all the same, and the time goes on.
    const auto writtenS = [&] {
        return StatusFile(path.string()).number("process/written_unix_s").value_or(0.0);
    };
    const auto waitFor = [](const auto& what) {
        for (int i = 0; i < 1000 && !what(); ++i)
            sleepms(20);
        return what();
    };
    EXPECT_TRUE(waitFor([&] {
        return StatusFile(path.string()).count("input/received_bytes_total") == stream.bytes.size();
    }));
    const double before = writtenS();
    EXPECT_TRUE(waitFor([&] { return writtenS() > before + 1.5; }));
    const StatusFile silent(path.string());
    EXPECT_EQ(silent.text("connection/state"), "connected");
    EXPECT_EQ(silent.count("epochs/answered_total"), 3U);
    EXPECT_GT(silent.number("process/written_unix_s").value_or(0.0) -
                  silent.number("epochs/last/received_unix_s").value_or(0.0),
              1.4);
    EXPECT_TRUE(peer.sendOnly(Bytes{'e', 'n', 'd'}));
    service.signal(SIGTERM);
    EXPECT_EQ(service.end(), -SIGTERM);
    const StatusFile last(path.string());
    EXPECT_EQ(last.text("connection/state"), "ended");
    EXPECT_GE(last.number("process/written_unix_s").value_or(0.0),
              silent.number("process/written_unix_s").value_or(1e18));
    EXPECT_EQ(last.count("epochs/answered_total"), 3U);
}

TEST(StatusOfService, SaysWhyNothingIsAnsweredAndThatItCannotBeWritten) {
    Peer peer;
    peer.listen();
    const fs::path path = fs::path(testing::TempDir()) / "none/status.json";
    const RunningService service(
        peer.port, kClock,
        {.keys = {{"common", "\"status\": \"" + path.string() + "\""},
                  {"vrs", R"("answer": "complete", "output": "rtcm3", "guard": "1")"}}});
    ASSERT_TRUE(peer.accept());
    const StatusStream stream = streamOfStation(2);
    exchangeToTheEnd(peer, stream.bytes);
    const std::string line =
        "***WARN: file = " + path.string() + ",cannot be written,No such file or directory\n";
    EXPECT_TRUE(service.tells(line));
    fs::create_directory(path.parent_path());
    exchangeToTheEnd(peer, ref::frame(ref::write1005({.station = 7, .xyzM = kSite})));
    peer.drop();
    EXPECT_TRUE(service.tells("***INFO: file = " + path.string() + ",is written again\n"));
    const StatusFile s = afterTheLoss(path);
    EXPECT_EQ(s.count("epochs/not_answered_total/guard"), 4U);
    EXPECT_GT(s.count("systems/G/left_out_count/epoch not answered"), 0U);
    EXPECT_EQ(s.count("systems/G/signals/1C/dropped_total/epoch not answered"),
              s.count("systems/G/signals/1C/received_total"));
    EXPECT_EQ(s.count("epochs/answered_total"), 0U);
    EXPECT_FALSE(s.isTrue("sender/guard_holds"));
    const std::string log = service.log();
    EXPECT_EQ(log.find(line), log.rfind(line)); // once
    fs::remove_all(path.parent_path());
}
