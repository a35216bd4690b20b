#include "check.h"
#include "process.h"
#include "session.h"

#include "config/Deploy.h"
#include "ctl/init/Files.h"

#include <map>

// `kestrunectl init`: what it writes is what the service reads.

namespace {

namespace fs = std::filesystem;
using ref::Bytes;

/// A folder; a file that has the name of an endpoint stands for its stream.
class Init : public testing::Test {
protected:
    Init() { fs::permissions(scratch.path, fs::perms::owner_all | fs::perms(055)); }
    Ran init(const std::string& arguments) const {
        return runInFolder(scratch.path, kCtlProgram, "init " + arguments + " 2>&1");
    }
    void stream(const std::vector<Bytes>& frames) const {
        std::string content;
        for (const Bytes& f : frames)
            content.append(f.begin(), f.end());
        scratch.write("127.0.0.1:2101", content);
    }
    /// Files by name, from the folder on.
    std::map<std::string, std::string> files() const {
        std::map<std::string, std::string> out;
        for (const auto& e : fs::recursive_directory_iterator(scratch.path))
            if (e.is_regular_file() && e.path().filename() != "127.0.0.1:2101")
                out[fs::relative(e.path(), scratch.path)] = readFile(e.path());
        return out;
    }
    Deployment read(const std::string& name) const {
        Deployment d;
        const Findings findings = readDeployment(d, scratch.path + name);
        for (const Finding& f : findings.list())
            ADD_FAILURE() << printedLine(f);
        return d;
    }

    check::Scratch scratch;
};

constexpr const char* kAddress = "127.0.0.1:2101";
const std::string kPosition = " --position -4467074.3577,2683011.9038,-3667008.2845 ";

Bytes positionFrame(const ref::Vec3& xyz) {
    return ref::frame(ref::write1005({.station = 7, .xyzM = xyz}));
}

/// Epochs of GPS, GLONASS and Galileo, a second apart, behind position and ephemerides.
std::vector<Bytes> threeSystems(int epochs, const ref::Vec3& position) {
    ref::Sky sky(kSite);
    sky.systems = "GRE";
    sky.station = 7;
    std::vector<Bytes> out{positionFrame(position)};
    const auto add = [&](const std::vector<Bytes>& frames) {
        out.insert(out.end(), frames.begin(), frames.end());
    };
    add(sky.ephemerisFrames(kNow));
    for (int i = 0; i < epochs; ++i)
        add(sky.epochFrames(kNow + 1.0 * i, 7));
    return out;
}

} // namespace

TEST_F(Init, WritesADeploymentThatTheServiceTakesAsMeant) {
    const Ran ran = init("st2r-north " + std::string(kAddress) + kPosition);
    EXPECT_EQ(ran.status, 0) << ran.output;
    EXPECT_TRUE(contains(ran.output, "st2r-north.json: no findings")) << ran.output;
    const Deployment d = read("st2r-north.json");
    EXPECT_EQ(d.input.host + ":" + std::to_string(d.input.port), kAddress);
    ASSERT_EQ(d.stations.size(), 1U);
    EXPECT_EQ(d.stations[0].name, "ST2R");
    EXPECT_EQ(d.stations[0].xyz, (Vector3{-4467074.3577, 2683011.9038, -3667008.2845}));
    std::map<char, int> count;
    for (const std::string& name : d.satelliteNames)
        ++count[name[0]];
    EXPECT_EQ(count, (std::map<char, int>{{'G', 32}, {'R', 24}, {'E', 34}, {'C', 47}, {'J', 7}}));
    EXPECT_EQ(d.glonassChannels()[9], -7 + 8); // of R10
    EXPECT_EQ(d.systems, "GRECJ");
    const std::string own = fs::canonical(scratch.path) / "st2r-north";
    EXPECT_EQ(d.statePath, own);
    EXPECT_EQ(d.statusPath, own + "/status.json");
    EXPECT_EQ(d.watchdogS, 60.0);
    EXPECT_TRUE(d.answering.complete && d.answering.plain);
    EXPECT_FALSE(d.clock);
}

// The specified answer moves C59 to C62 as if they were no geostationary satellites.
TEST(Templates, HaveC59ToC62ForTheCompleteAnswerAlone) {
    for (const bool complete : {true, false}) {
        ctl::init::Station station;
        station.answer = complete ? "complete" : "specified";
        std::string object;
        for (const ctl::init::NewFile& f : ctl::init::filesOf(station, {}))
            if (f.path.filename() == "session.obj")
                object = f.content;
        EXPECT_TRUE(contains(object, "\n C46  BEIDOU "));
        EXPECT_EQ(contains(object, "\n C59  BEIDOU   -       -\n"), complete);
        EXPECT_EQ(contains(object, "\n C62  BEIDOU   -       -\n J01"), complete);
        EXPECT_FALSE(contains(object, "\n C15") || contains(object, "\n E35"));
    }
}

TEST_F(Init, TakesPositionAndSystemsFromTheStream) {
    stream(threeSystems(6, kSite));
    const Ran ran = init(std::string("a ") + kAddress);
    EXPECT_EQ(ran.status, 0) << ran.output;
    for (const char* part : {"epochs of station 7; messages 1005 1019 1020", "GLONASS 1C 1P 2P",
                             "1005 of station 7: -4467074.3577 2683011.9038 -3667008.2845"})
        EXPECT_TRUE(contains(ran.output, part)) << part << "\n" << ran.output;
    const Deployment d = read("a.json");
    ASSERT_EQ(d.stations.size(), 1U);
    EXPECT_EQ(d.stations[0].name, "A000");
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_NEAR(d.stations[0].xyz[i], kSite.v[i], 1e-4);
    EXPECT_EQ(d.systems, "GRE");
    EXPECT_EQ(d.satelliteNames.size(), 90U);
    EXPECT_EQ(init(std::string("b --systems GJ ") + kAddress).status, 0);
    EXPECT_EQ(read("b.json").systems, "GJ");
}

TEST_F(Init, LeavesNothingWhereItCannotSucceed) {
    const std::vector<Bytes> good = threeSystems(6, kSite);
    const std::vector<Bytes> noPosition(good.begin() + 1, good.end());
    std::vector<Bytes> twoPlaces = good;
    twoPlaces.insert(twoPlaces.begin(), positionFrame({6378137.0 + 100.0, 10.0, 10.0}));
    const struct {
        std::vector<Bytes> frames;
        std::string arguments;
        int status;
        std::string told;
    } cases[] = {
        {{}, "a 127.0.0.1:2101", 1, "no RTCM 3 message came"},
        {{good[0]}, "a 127.0.0.1:2101", 1, "no epoch of observations came"},
        {noPosition, "a 127.0.0.1:2101", 1, "no position came (1005 or 1006)"},
        {twoPlaces, "a 127.0.0.1:2101", 1, "states several positions"},
        {good, "a 127.0.0.1:2101 --position 1,2,3", 1, "cannot work; nothing is written"},
        {good, "a 127.0.0.1:2101 --position 1,2", 2, "three numbers"},
        {good, "a 127.0.0.1:70000", 2, "write HOST:PORT"},
        {good, "../a 127.0.0.1:2101", 2, "is no name of a unit"},
        {good, "- 127.0.0.1:2101", 2, "a name has letters and digits"},
        {good, "a 127.0.0.1:2101 --systems GX", 2, "letters of G R E C J"},
        {good, "a 127.0.0.1:2101 --folder 'a b'" + kPosition, 2, "cannot stand in a configuration"},
        {good, "a 127.0.0.1:2101 --folder /proc" + kPosition, 2, "/proc"}};
    for (const auto& c : cases) {
        stream(c.frames);
        const Ran ran = init(c.arguments);
        EXPECT_EQ(ran.status, c.status) << c.arguments << "\n" << ran.output;
        EXPECT_TRUE(contains(ran.output, c.told)) << c.told << "\n" << ran.output;
        EXPECT_TRUE(files().empty()) << c.arguments;
        EXPECT_FALSE(fs::exists(scratch.path + "a")) << c.arguments;
    }
}

TEST_F(Init, NeverOverwrites) {
    for (const char* name :
         {"a.json", "a/tables.json", "a/session.obj", "a/site.crd", "a/leapsec.tab"}) {
        fs::create_directories(scratch.path + "a");
        fs::create_symlink("nowhere", scratch.path + name); // nor follows it
        const Ran ran = init(std::string("a ") + kAddress + kPosition);
        EXPECT_EQ(ran.status, 2) << ran.output;
        EXPECT_TRUE(contains(ran.output, std::string(name) + ": is there already")) << ran.output;
        EXPECT_TRUE(files().empty()) << name;
        fs::remove_all(scratch.path + "a");
        fs::remove(scratch.path + "a.json");
    }
}
