#include "check.h"
#include "process.h"

#include "base/ComText.h"
#include "ctl/status/Metrics.h"
#include "ctl/status/Screen.h"
#include "ctl/status/StatusFile.h"

#include <set>
#include <sstream>

namespace ctl::status {

namespace {

constexpr double kNow = 1795365661.3;

std::string example() {
    return readFile(std::string(kSourceFolder) + "/tests/data/status/abcd.json");
}

/// The lines of metrics that are no samples, and names of metrics in the order of their samples.
struct Exposition {
    std::vector<std::string> types;
    std::vector<std::string> samples;
};

Exposition readMetrics(const std::string& content) {
    Exposition out;
    std::istringstream in(content);
    for (std::string line; std::getline(in, line);)
        if (line.starts_with("# TYPE "))
            out.types.push_back(line.substr(7, line.rfind(' ') - 7));
        else if (!line.starts_with("#"))
            out.samples.push_back(line);
    return out;
}

} // namespace

TEST(Status, TellsPeopleHowAServiceIs) {
    const StatusFile s("x", example());
    EXPECT_EQ(
        screenOf(s, kNow),
        "ABCD: connected to 192.0.2.7:2101 for 60.8 s; process 4711 since 2026-11-22 16:40:00 UTC\n"
        "    last epoch    0.4 s ago; the clock is 0.4 s ahead of its time\n"
        "    epochs        64 complete, 3 unfinished, 59 answered; not answered: no satellite 2, "
        "slow path 5\n"
        "    in            123456 bytes, 12 skipped, 1 wrong check word; messages 1006 6, 1077 60; "
        "refused 1087 2\n"
        "    out           120000 bytes, 59 answers (5 dropped), 20 frames passed on (8 dropped)\n"
        "    delay         50 % within 0.0002 s, 99 % within 0.001 s\n"
        "    GPS           11 seen, 9 answered; low 1, no ephemeris 1; ephemerides of 30, the "
        "oldest of 90 min ago\n"
        "                  1C 660 received, 540 answered; satellite not answered 120\n"
        "                  2W 650 received, 535 answered; satellite not answered 115\n"
        "    GLONASS       8 seen, 7 answered; ephemerides of 9\n"
        "    sender        station 7, 0.01 m from the configured place; receiver RX 1; antenna "
        "ADVNULLANTENNA\n"
        "    losses        closed 1\n"
        "    leap seconds  the file ends on 2030-01-01 00:00:00 UTC\n");
    EXPECT_EQ(lineOf(s, kNow),
              "ABCD  connected   last epoch 0.4 s ago       59 of 64 epochs answered, "
              "16 of 19 satellites\n");
    const StatusFile ended("x", replaced(example(), "\"connected\"", "\"ended\""));
    EXPECT_TRUE(
        screenOf(ended, kNow)
            .starts_with(
                "ABCD: ended 60.8 s ago; its peer was 192.0.2.7:2101; process 4711 since "));
    const StatusFile held("x",
                          replaced(example(), "\"guard_holds\": false", "\"guard_holds\": true"));
    EXPECT_TRUE(contains(screenOf(held, kNow), "ANSWERS ARE HELD BACK"));
    EXPECT_TRUE(contains(lineOf(held, kNow), "ANSWERS ARE HELD BACK"));
}

TEST(Status, TakesAnyFileForWhatItIs) {
    const std::string format = "{\"format\": \"kestrune-status-1\"";
    for (const std::string& content :
         {std::string(), std::string("{"), std::string("[]"), example().substr(0, 700),
          std::string("{\"format\": \"kestrune-status-2\"}"), std::string("{\"format\": 1}"),
          format + ", \"x\": \"" + std::string(1 << 20, 'x') + "\"}", std::string(5000, '[')})
        EXPECT_THROW(StatusFile("x", content), std::runtime_error) << content.substr(0, 40);
    // What is not there, or is of another kind, is not known.
    for (const std::string& rest :
         {std::string("}"),
          std::string(", \"epochs\": 5, \"systems\": [1, 2], \"connection\": \"x\"}"),
          std::string(
              ", \"station\": 5, \"systems\": {\"G\": {\"seen_count\": \"x\", \"signals\": 3}}}"),
          std::string(", \"input\": {\"messages_total\": {\"1077\": \"x\"}, "
                      "\"skipped_bytes_total\": -1e300}}")}) {
        const StatusFile s("x", format + rest);
        EXPECT_TRUE(contains(screenOf(s, kNow), "last epoch    none yet")) << rest;
        EXPECT_TRUE(contains(lineOf(s, kNow), "0 of 0 epochs answered")) << rest;
        EXPECT_EQ(lastEpochAgeS(s, kNow), std::nullopt);
        for (const std::string& line : readMetrics(metricsOf({&s, 1})).samples)
            EXPECT_FALSE(contains(line, "x")) << line;
    }
    // Nothing that a terminal obeys gets out.
    const StatusFile s("x", replaced(example(), "RX 1", "RX\\u001b[2J\\u009b"));
    for (const char c : screenOf(s, kNow))
        EXPECT_TRUE(c == '\n' || (c >= ' ' && c < 127));
}

TEST(Status, HasMetricsOfEveryNumber) {
    const StatusFile files[] = {
        {"a", example()},
        {"b", replaced(replaced(example(), "ABCD", "E\\\"F\\\\"), "192.0.2.7", "192.0.2.8")}};
    const Exposition all = readMetrics(metricsOf(files));
    EXPECT_EQ(std::set<std::string>(all.types.begin(), all.types.end()).size(), all.types.size());
    const std::set<std::string> samples(all.samples.begin(), all.samples.end());
    EXPECT_EQ(samples.size(), all.samples.size());
    for (
        const char* sample :
        {"kestrune_info{station=\"ABCD\",version=\"2.5\",peer=\"192.0.2.7:2101\"} 1",
         "kestrune_info{station=\"E\\\"F\\\\\",version=\"2.5\",peer=\"192.0.2.8:2101\"} 1",
         "kestrune_connected{station=\"ABCD\"} 1",
         "kestrune_received_bytes_total{station=\"ABCD\"} 123456",
         "kestrune_connections_lost_total{station=\"ABCD\",cause=\"closed\"} 1",
         "kestrune_received_messages_total{station=\"ABCD\",message=\"1077\"} 60",
         "kestrune_satellites_left_out{station=\"ABCD\",system=\"G\",reason=\"no ephemeris\"} 1",
         R"(kestrune_observations_dropped_total{station="ABCD",system="G",signal="2W",reason="satellite not answered"} 115)",
         "kestrune_answer_delay_seconds_bucket{station=\"ABCD\",le=\"0.0002\"} 40",
         "kestrune_answer_delay_seconds_bucket{station=\"ABCD\",le=\"+Inf\"} 59",
         "kestrune_answer_delay_seconds_sum{station=\"ABCD\"} 0.0123",
         "kestrune_last_epoch_timestamp_seconds{station=\"ABCD\"} 1795365660.9",
         "kestrune_sender_distance_meters{station=\"ABCD\"} 0.0125",
         "kestrune_guard_holds{station=\"ABCD\"} 0"})
        EXPECT_TRUE(samples.contains(sample)) << sample;
    // Numbers of the example, less those of which there is no metric: process, station, channel
    // and the epoch's own time; with info, connected and "+Inf".
    std::size_t numbers = 0;
    const std::string text = example();
    for (std::size_t at = text.find("\": "); at != std::string::npos;
         at = text.find("\": ", at + 1))
        numbers += (text[at + 3] >= '0' && text[at + 3] <= '9') || text[at + 3] == 'f' ? 1U : 0U;
    EXPECT_EQ(all.samples.size(), 2 * (numbers - 4 + 3));
    const StatusFile twice[] = {{"a", example()}, {"b", example()}};
    EXPECT_THROW(metricsOf(twice), std::runtime_error);
}

TEST(Status, IsPrintedForPeopleAndPrograms) {
    const ::check::Scratch s;
    const std::string one = s.write("one", example());
    const std::string two = s.write("two", replaced(example(), "ABCD", "EFGH"));
    const auto run = [](const std::string& arguments) {
        return runInShell(kCtlProgram, arguments + " 2>&1");
    };
    EXPECT_TRUE(run("status " + one).output.starts_with("ABCD: connected to 192.0.2.7:2101"));
    const Ran both = run("status " + one + " " + s.path + "none " + two);
    EXPECT_EQ(both.status, 1);
    EXPECT_EQ(std::count(both.output.begin(), both.output.end(), '\n'), 3);
    EXPECT_TRUE(contains(both.output, "none: No such file or directory\n")) << both.output;
    const Ran json = run("status --json " + one + " " + two);
    EXPECT_EQ(json.status, 0);
    EXPECT_EQ(std::count(json.output.begin(), json.output.end(), '\n'), 2);
    EXPECT_TRUE(
        contains(json.output,
                 "\n{\"format\":\"kestrune-status-1\",\"version\":\"2.5\",\"station\":\"EFGH\""));
    EXPECT_TRUE(run("status --prometheus " + one).output.starts_with("# HELP kestrune_info "));
    EXPECT_EQ(run("status --prometheus --json " + one).status, 2);
}

TEST(Health, IsTheAgeOfTheLastEpoch) {
    const ::check::Scratch s;
    const auto health = [&](double ageS, const std::string& options) {
        s.write("status", replaced(example(), "1795365660.9", std::to_string(nowUnixS() - ageS)));
        return runInShell(kCtlProgram, "health " + s.path + "status " + options);
    };
    EXPECT_EQ(health(5, "").status, 0);
    EXPECT_EQ(health(5, "").output, "");
    EXPECT_EQ(health(-5, "").status, 0); // a clock that was set back
    EXPECT_EQ(health(35, "--max-age 60").status, 0);
    const Ran old = health(35, "");
    EXPECT_EQ(old.status, 1);
    EXPECT_TRUE(old.output.starts_with("ABCD: the last epoch came 35.")) << old.output;
    EXPECT_TRUE(old.output.ends_with(" s ago, the connection is connected\n")) << old.output;
    s.write("none", "{\"format\": \"kestrune-status-1\", \"station\": \"ABCD\"}");
    EXPECT_EQ(runInShell(kCtlProgram, "health " + s.path + "none").status, 1);
    const Ran missing = runInShell(kCtlProgram, "health " + s.path + "missing");
    EXPECT_EQ(missing.status, 1);
    EXPECT_TRUE(contains(missing.output, "No such file")) << missing.output;
    EXPECT_EQ(runInShell(kCtlProgram, "health --max-age 0 x 2>&1").status, 2);
}

} // namespace ctl::status
