#include "process.h"
#include "session.h"

#include "check.h"
#include "reference/standard/census.h"
#include "reference/standard/msm.h"

#include <cjson/cJSON.h>

#include <memory>
#include <sys/socket.h>

namespace {

namespace fs = std::filesystem;
using ref::Bytes;

/// The worked example in a folder of its own, and streams beside it.
class CheckStream : public testing::Test {
protected:
    CheckStream() {
        fs::permissions(scratch.path, fs::perms::owner_all | fs::perms(055));
        fs::create_directory(scratch.path + "examples");
        fs::copy(fs::path(kSourceFolder) / "examples/canberra", scratch.path + "examples/canberra",
                 fs::copy_options::recursive);
        fs::rename(scratch.path + "examples/canberra/vrs.json", scratch.path + "vrs.json");
        change("vrs.json", "2018-07-12 23:37:11", "2018-07-12 23:37:12");
    }
    void change(const std::string& file, const std::string& from, const std::string& to) const {
        scratch.write(file, replaced(readFile(scratch.path + file), from, to));
    }
    /// `kestrunectl check` with these arguments; both streams.
    Ran check(const std::string& arguments) const {
        return runInFolder(scratch.path, kCtlProgram, "check vrs.json " + arguments + " 2>&1");
    }
    Ran check(const Bytes& stream, const std::string& arguments) const {
        scratch.write("stream", std::string(stream.begin(), stream.end()));
        return check("--stream stream " + arguments);
    }

    check::Scratch scratch;
};

// 2018-07-12 23:37:12 UTC
constexpr ref::GpsTime kStart{2009, 430650};

/// Seconds of a station in the example's place.
Bytes station(int seconds, bool ephemerides = true) {
    ref::Sky sky(kSite);
    Bytes out;
    const auto add = [&](const std::vector<Bytes>& frames) {
        for (const Bytes& f : frames)
            out.insert(out.end(), f.begin(), f.end());
    };
    if (ephemerides)
        add(sky.ephemerisFrames(kStart));
    add({ref::frame(ref::write1005({.station = 7, .xyzM = kSite}))});
    for (int s = 0; s < seconds; ++s)
        add(sky.epochFrames({kStart.week, kStart.sow + s}, 4));
    return out;
}

TEST_F(CheckStream, CountsWhatComesAndWhatRepliesHold) {
    const Bytes stream = station(61);
    ref::Census census; // counts by itself
    census.take(stream);
    const ref::StreamCounts& counts = census.counts();
    ASSERT_EQ(counts.ended, 61);
    std::map<std::string, double> incomplete;
    ref::Sky sky(kSite);
    for (int s = 0; s < 61; ++s)
        for (const ref::Cell& c : sky.observe({kStart.week, kStart.sow + s}, false))
            incomplete[c.system + c.signal] += c.pseudorangeM && c.phaseRangeM ? 0 : 1;
    const Ran ran = check(stream, "--json");
    EXPECT_EQ(ran.status, 0) << ran.output;
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> root(cJSON_Parse(ran.output.c_str()),
                                                               cJSON_Delete);
    const cJSON* const trial = cJSON_GetObjectItem(root.get(), "stream");
    const auto number = [](const cJSON* o, const char* key) {
        return cJSON_GetNumberValue(cJSON_GetObjectItem(o, key));
    };
    EXPECT_EQ(number(trial, "epochs"), 61) << ran.output;
    EXPECT_EQ(number(trial, "answered"), 61);
    EXPECT_EQ(number(trial, "ephemerides"), static_cast<double>(counts.ephemerides));
    const cJSON* row = nullptr;
    cJSON_ArrayForEach(row, cJSON_GetObjectItem(trial, "signals")) {
        const std::string name =
            std::string(cJSON_GetStringValue(cJSON_GetObjectItem(row, "system"))) +
            cJSON_GetStringValue(cJSON_GetObjectItem(row, "signal"));
        EXPECT_GE(number(row, "received"), number(row, "in_replies")) << name;
        EXPECT_EQ(number(row, "in_replies") > 0, name != "R1C") << name;
        EXPECT_EQ(number(row, "received"), static_cast<double>(counts.cells.at(name))) << name;
        EXPECT_EQ(number(row, "without_range_or_phase"), incomplete[name]) << name;
        EXPECT_GE(number(row, "received"), number(row, "kept") + incomplete[name]) << name;
    }
    EXPECT_GT(incomplete["C2I"], 0);
    const std::string text = check(stream, "").output;
    for (const char* part :
         {"GLONASS  1C", "no reply carries it", " without range or phase",
          "0.00 m from the configured", "the service would answer 61 of 61 epochs"})
        EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text;
}

TEST_F(CheckStream, SaysWhyNothingWouldBeAnswered) {
    const std::string caster = "SOURCETABLE 200 OK\r\n";
    const struct {
        Bytes stream;
        std::string part;
    } cases[] = {{{}, "nothing came"},
                 {Bytes(caster.begin(), caster.end()), "begin with \"SOURCETABLE 200 OK"},
                 {station(0), "no observations came"},
                 {station(5, false), "no ephemerides came"}};
    for (const auto& c : cases) {
        const Ran ran = check(c.stream, "");
        EXPECT_EQ(ran.status, 1) << ran.output;
        EXPECT_NE(ran.output.find(c.part), std::string::npos) << c.part << "\n" << ran.output;
    }
}

TEST_F(CheckStream, ComparesThePlaceOfTheStation) {
    change("examples/canberra/site.crd", "-3667008.2845", " 3667008.2845");
    const Ran ran = check(station(2), "");
    for (const char* part :
         {"which lands at 35.3 N 149.0 E", "it is there with the sign of Z turned",
          "places the station at 35.3 S 149.0 E"})
        EXPECT_NE(ran.output.find(part), std::string::npos) << part << "\n" << ran.output;
}

TEST_F(CheckStream, EndsWhereNothingComes) {
    int port = 0;
    const int listener = boundSocket(port);
    const std::string at = "127.0.0.1:" + std::to_string(port);
    EXPECT_EQ(check("--stream " + at).status, 2); // nothing listens yet
    ASSERT_EQ(listen(listener, 1), 0);
    const Ran silent = check("--seconds 1 --stream " + at);
    EXPECT_EQ(silent.status, 1);
    EXPECT_NE(silent.output.find("nothing came for 1 s"), std::string::npos) << silent.output;
    close(listener);
    EXPECT_EQ(check("--stream /no/such/file").status, 2);
    EXPECT_EQ(check("--seconds 0 --stream stream").status, 2);
}

} // namespace
