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
    std::map<std::string, std::uint64_t> messages; // by number
    std::uint64_t skipped = 0;
};

std::string typeText(const Bytes& frame) {
    return std::to_string(frame[3] << 4 | frame[4] >> 4);
}

/// Epochs of a station near the place of the example, with bytes between that are no frames.
StatusStream streamOfStation(int epochs) {
    StatusStream out;
    const auto add = [&](const std::vector<Bytes>& frames) {
        for (const Bytes& f : frames) {
            out.bytes.insert(out.bytes.end(), f.begin(), f.end());
            ++out.messages[typeText(f)];
        }
    };
    const auto addNoise = [&](const Bytes& noise) {
        out.bytes.insert(out.bytes.end(), noise.begin(), noise.end());
        out.skipped += noise.size();
    };
    ref::Sky sky(kSite);
    sky.station = 7;
    add({ref::frame(
        ref::write1005({.station = 7, .xyzM = {kSite[0] + 3.0, kSite[1], kSite[2] + 4.0}}))});
    add(sky.ephemerisFrames(kNow));
    addNoise({'n', 'o', 'i', 's', 'e'});
    for (int i = 0; i < epochs; ++i)
        add(sky.epochFrames(kNow + 1.0 * i, 7));
    Bytes broken = ref::frame(ref::write1005({.station = 7, .xyzM = kSite}));
    broken[10] ^= 1;
    addNoise(broken);
    add(sky.epochFrames(kNow + 1.0 * epochs, 7));
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
        ++messages[typeText(last)];
        EXPECT_EQ(s.count("input/received_bytes_total"), stream.bytes.size() + last.size());
        EXPECT_EQ(s.count("input/skipped_bytes_total"), stream.skipped);
        EXPECT_EQ(s.count("input/wrong_check_words_total"), 1U);
        for (const auto& [type, n] : messages)
            EXPECT_EQ(s.count("input/messages_total/" + type), n) << type;
        EXPECT_EQ(s.count("epochs/complete_total"), 6U);
        EXPECT_EQ(s.count("epochs/answered_total"), 6U);
        EXPECT_EQ(s.count("output/sent_bytes_total"), received.size());
        EXPECT_EQ(s.count("output/delay/at_most_total/1"), 6U);
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
            std::uint64_t dropped = 0;
            s.forEach(signal + "/dropped_total/*", [&](const auto&, const cJSON& n) {
                dropped += static_cast<std::uint64_t>(n.valuedouble);
            });
            EXPECT_EQ(dropped, cells(in) - cells(out)) << signal;
            ++signals;
        });
        EXPECT_EQ(signals, in.counts().cells.size());
        for (const char* const system : {"G", "R", "E", "C", "J"}) {
            const std::string of = std::string("systems/") + system;
            std::uint64_t leftOut = 0;
            s.forEach(of + "/left_out_count/*", [&](const auto&, const cJSON& n) {
                leftOut += static_cast<std::uint64_t>(n.valuedouble);
            });
            EXPECT_GT(s.count(of + "/seen_count"), 0U);
            EXPECT_EQ(s.count(of + "/seen_count"), s.count(of + "/answered_count") + leftOut);
        }
    }
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
    EXPECT_EQ(s.count("epochs/not_answered_total/guard"), 3U);
    EXPECT_EQ(s.count("epochs/answered_total"), 0U);
    EXPECT_FALSE(s.isTrue("sender/guard_holds"));
    const std::string log = service.log();
    EXPECT_EQ(log.find(line), log.rfind(line)); // once
    fs::remove_all(path.parent_path());
}
