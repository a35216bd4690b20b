#include "process.h"
#include "session.h"

#include "ctl/dump/Dump.h"
#include "reference/standard/ephemeris.h"
#include "reference/standard/msm.h"

#include <cjson/cJSON.h>

#include <csignal>
#include <map>
#include <random>
#include <sstream>
#include <sys/socket.h>

namespace ctl::dump {

namespace {

using ref::BitString;
using ref::Bytes;
using ref::frame;

constexpr DumpOptions kPlain{};
constexpr DumpOptions kVerbose{.verbose = true};
constexpr DumpOptions kAllJson{.verbose = true, .json = true};

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

struct Dumped {
    std::string text;
    int status = 0;
    bool has(const std::string& part) const { return text.find(part) != std::string::npos; }
    std::vector<std::string> lines() const {
        std::vector<std::string> out;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);)
            out.push_back(line);
        return out;
    }
};

/// Dumps bytes that come in blocks of a size.
Dumped dump(const Bytes& bytes, DumpOptions options = kPlain, std::size_t block = 1000) {
    std::ostringstream out;
    Dump dump(options, out);
    for (std::span<const std::uint8_t> left(bytes); !left.empty();
         left = left.subspan(std::min(block, left.size())))
        dump.take(left.first(std::min(block, left.size())));
    dump.finish();
    return {out.str(), dump.status()};
}

using Json = std::unique_ptr<cJSON, void (*)(cJSON*)>;
std::vector<Json> objects(const Dumped& dumped) {
    std::vector<Json> out;
    for (const std::string& line : dumped.lines()) {
        out.emplace_back(cJSON_Parse(line.c_str()), cJSON_Delete);
        EXPECT_TRUE(cJSON_IsObject(out.back().get())) << line;
    }
    return out;
}
double number(const cJSON* object, const char* key) {
    const cJSON* const item = cJSON_GetObjectItem(object, key);
    EXPECT_TRUE(cJSON_IsNumber(item)) << key;
    return item ? item->valuedouble : -1.0;
}
/// Value of a message's field by its DF number.
const cJSON* field(const cJSON* message, int df) {
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, cJSON_GetObjectItem(message, "fields")) {
        const cJSON* const sent = cJSON_GetObjectItem(item, "df");
        if (sent && sent->valueint == df)
            return cJSON_GetObjectItem(item, "value");
    }
    ADD_FAILURE() << "no DF" << df;
    return nullptr;
}

const Bytes kPosition = frame(ref::write1005({.station = 7, .itrf = 14, .xyzM = kSite}));

ref::Cell cell(int id, const char* signal, double rangeM) {
    ref::Cell c;
    c.id = id;
    c.signal = signal;
    c.pseudorangeM = rangeM;
    c.phaseRangeM = rangeM + 5.0;
    c.rateMps = 123.4567;
    c.lock = 600;
    c.cnr = 41.25;
    return c;
}

Bytes msm7(char system, std::uint32_t epoch, std::vector<ref::Cell> cells, bool more = false) {
    ref::Msm m;
    m.system = system;
    m.msm = 7;
    m.station = 9;
    m.epochField = epoch;
    m.more = more;
    m.cells = std::move(cells);
    return frame(ref::writeMsm(m));
}

} // namespace

TEST(DumpLine, SaysWhatAMessageIsAbout) {
    ref::Kepler k{.type = 1042, .id = 11, .week = 654, .health = 1, .toe = 432000};
    ref::Glonass g{.slot = 3, .channel = -4, .tb = 11};
    struct Case {
        Bytes bytes;
        std::vector<std::string> parts;
    };
    const auto head = [](int type) { return BitString().u(12, type).u(12, 20); };
    for (const Case& c : std::vector<Case>{
             {msm7('G', 430951000, {cell(5, "1C", 22e6), cell(7, "2W", 23e6)}, true),
              {"good 1077  GPS MSM7 ", "st 9 ", "GPS tow 430951.000 ",
               "2 sat: G05 G07 | 1C 2W | more"}},
             {msm7('R', 5U << 27 | 9432250U, {cell(8, "1P", 22e6)}),
              {"1087  GLONASS MSM7", "Moscow Fri 02:37:12.250", "1 sat: R08 | 1P | last of epoch"}},
             {msm7('S', 604800001, {cell(1, "1C", 38e6)}), {"GPS tow 604800.001 (no time)", "S20"}},
             {msm7('C', 1073727824, {cell(1, "2I", 38e6)}), {"BDT tow -14.000", "C01"}},
             {msm7('C', 430937000, {}), {"BDT tow 430937.000", "0 sat:"}},
             {kPosition,
              {"good 1005", "st 7", "X -4467074.3577 Y 2683011.9038 Z -3667008.2845 m (-35.3"}},
             {frame(ref::write1033({20, "ANT\x1b[2J", 0, "", "RX", "1.0", "\xFF"})),
              {"\"ANT?[2J\" no. \"\", receiver \"RX\" version \"1.0\" no. \"?\""}},
             {frame(ref::writeKepler(k)),
              {"BDS ephemeris", "toe BDT week 654 tow 432000", "C11 | health 1"}},
             {frame(ref::writeGlonass(g)), {"tb Moscow 02:45", "R03", "channel -4"}},
             {frame(head(1013)
                        .u(16, 58311)
                        .u(17, 85031)
                        .u(5, 1)
                        .u(8, 18)
                        .u(12, 1077)
                        .u(1, 0)
                        .u(16, 10)
                        .bytes()),
              {"system parameters", "st 20", "UTC 2018-07-12 23:37:11", "announces 1077/1s"}},
             {frame(head(1029).u(16, 0).u(17, 0).u(7, 2).text("m\xC3\xBC\n").bytes()),
              {"UTC MJD 0", "\"m\xC3\xBC?\""}},
             {frame(head(1029).u(40, 0).text("a\xE2\x80\xAE\xD8\x9C\xE2\x81\xA9z").bytes()),
              {"\"a\\u202E\\u061C\\u2069z\""}},
             {frame(head(1230).u(4, 0b1000).u(4, 0b0101).s(16, 50).s(16, -32768).bytes()),
              {"aligned, L1 P bias 1 m, L2 P bias - m"}},
             {frame(head(1012)
                        .u(27, 78441000)
                        .u(1, 0)
                        .u(5, 1)
                        .u(4, 0)
                        .u(6, 9)
                        .u(64, 0)
                        .u(60, 0)
                        .bytes()),
              {"GLONASS L1/L2 extended", "Moscow 21:47:21.000", "1 sat: R09"}},
             {frame(head(1001).u(30, 5500).u(1, 0).u(5, 1).u(4, 0).u(6, 40).u(52, 0).bytes()),
              {"GPS tow 5.500", "1 sat: S20"}},
             {frame(head(4094).bytes()), {"good 4094  type 4094, unknown"}},
             {frame({}), {"good    -  empty"}},
             {frame(head(1019).bytes()), {"GPS ephemeris", "ends before its fields do"}},
             {frame(ref::write1005({}) + Bytes{1, 2}),
              {"not on the ground", "2 bytes beyond its fields"}}}) {
        const Dumped d = dump(c.bytes);
        EXPECT_EQ(d.status, 0);
        for (const std::string& part : c.parts)
            EXPECT_NE(d.lines().at(1).find(part), std::string::npos) << part << "\n" << d.text;
    }
}

TEST(DumpFields, BelongToTheirNumbers) {
    ref::Kepler k{.type = 1019, .id = 7, .week = 985, .ura = 3, .iode = 21, .iodc = 533};
    k.toe = 302400;
    k.toc = 309600;
    k.sqrtA = 5153.6;
    k.e = 0.0123;
    k.crs = -33.6875;
    k.m0 = -0.4;
    k.nodeDot = -8.1e-9;
    k.tgd[0] = -1.02e-8;
    k.fit = 1;
    const auto gps = objects(dump(frame(ref::writeKepler(k)), kAllJson));
    const std::vector<std::tuple<int, double, double>> expected{
        {2, 1019, 0},
        {9, 7, 0},
        {76, 985, 0},
        {77, 3, 0},
        {71, 21, 0},
        {85, 533, 0},
        {81, 309600, 0},
        {93, 302400, 0},
        {92, 5153.6, 1e-5},
        {90, 0.0123, 1e-9},
        {86, -33.6875, 0},
        {88, -0.4 / 3.1415926535898, 1e-9},
        {101, -1.02e-8, 3e-10},
        {137, 1, 0},
        {100, -8.1e-9 / 3.1415926535898, 1e-12}};
    for (const auto& [df, value, tolerance] : expected)
        EXPECT_NEAR(field(gps[0].get(), df)->valuedouble, value, tolerance) << df;
    const Dumped text = dump(frame(ref::writeKepler(k)), kVerbose);
    EXPECT_TRUE(text.has("DF092  sqrt(A)                        5153.6")) << text.text;
    EXPECT_TRUE(text.has("DF086  Crs                            -33.6875 m\n"));

    ref::Glonass g{.slot = 3, .channel = -4, .nt = 923, .n4 = 6, .tb = 11};
    g.pos = {-12345.5, 20001.25, 0.5};
    const auto glonass = objects(dump(frame(ref::writeGlonass(g)), kAllJson));
    for (const auto& [df, value] : std::map<int, double>{{40, -4},
                                                         {110, 11},
                                                         {112, -12345.5},
                                                         {115, 20001.25},
                                                         {118, 0.5},
                                                         {129, 923},
                                                         {134, 6}})
        EXPECT_EQ(field(glonass[0].get(), df)->valuedouble, value) << df;

    const auto position = objects(dump(kPosition, kAllJson));
    EXPECT_EQ(field(position[0].get(), 21)->valuedouble, 14);
    EXPECT_EQ(field(position[0].get(), 26)->valuedouble, 2683011.9038);
    const auto texts =
        objects(dump(frame(ref::write1033({1, "A", 2, "B", "C", "D", "E"})), kAllJson));
    EXPECT_STREQ(field(texts[0].get(), 30)->valuestring, "A");
    EXPECT_STREQ(field(texts[0].get(), 230)->valuestring, "D");
    EXPECT_STREQ(field(texts[0].get(), 232)->valuestring, "E");
}

TEST(DumpFields, OfObservationsAreWholeValues) {
    ref::Cell none = cell(7, "2W", 23e6);
    none.phaseRangeM.reset();
    none.half = true;
    const auto m =
        objects(dump(msm7('G', 430951000, {cell(5, "1C", 22000000.125), none}), kAllJson));
    EXPECT_EQ(field(m[0].get(), 4)->valuedouble, 430951000);
    EXPECT_STREQ(field(m[0].get(), 394)->valuestring, "0x0A00000000000000");
    const cJSON* const rows = cJSON_GetObjectItem(m[0].get(), "observations");
    ASSERT_EQ(cJSON_GetArraySize(rows), 2);
    const cJSON* const row = cJSON_GetArrayItem(rows, 0);
    EXPECT_STREQ(cJSON_GetObjectItem(row, "satellite")->valuestring, "G05");
    EXPECT_STREQ(cJSON_GetObjectItem(row, "signal")->valuestring, "1C");
    EXPECT_NEAR(number(row, "pseudorange_m"), 22000000.125, 6e-4);
    EXPECT_NEAR(number(row, "phase_range_m"), 22000005.125, 3e-4);
    EXPECT_NEAR(number(row, "rate_mps"), 123.4567, 1e-4);
    EXPECT_NEAR(number(row, "lock_s"), 7340.032, 1e-9); // DF407: 2^17 (600 - 544) ms
    EXPECT_EQ(number(row, "cnr_dbhz"), 41.25);
    EXPECT_TRUE(cJSON_IsNull(cJSON_GetObjectItem(cJSON_GetArrayItem(rows, 1), "phase_range_m")));
    EXPECT_EQ(number(cJSON_GetArrayItem(rows, 1), "half_cycle"), 1);

    const Bytes legacy = frame(BitString()
                                   .u(12, 1004)
                                   .u(12, 3)
                                   .u(30, 1000)
                                   .u(1, 0)
                                   .u(5, 1)
                                   .u(4, 0)
                                   .u(6, 7)
                                   .u(1, 1)
                                   .u(24, 1234567)
                                   .s(20, 2222)
                                   .u(7, 50)
                                   .u(8, 70)
                                   .u(8, 180)
                                   .u(2, 3)
                                   .s(14, -333)
                                   .s(20, -524288)
                                   .u(7, 9)
                                   .u(8, 150)
                                   .bytes());
    const Dumped d = dump(legacy, kVerbose);
    // 1234567 * 0.02 + 70 * 299792.458 and 2222 * 0.0005, L2 6.66 less
    EXPECT_TRUE(d.has("G07      1P  21010163.4000  21010164.5110    50      45.00\n")) << d.text;
    EXPECT_TRUE(d.has("G07      2W  21010156.7400              -     9      37.50\n"));
}

TEST(DumpFraming, TellsBrokenBytesAndFindsTheNextFrame) {
    Bytes bad = kPosition;
    bad[10] ^= 1;
    const Bytes noise{1, 2, 0xD3, 4, 5, 0xDA, 0, 50, 0x69};
    const Bytes cut(kPosition.begin(), kPosition.end() - 1);
    const Bytes liar{0xD3, 0x00, 0x30}; // announces bytes that are others' frames
    struct Case {
        Bytes bytes;
        int status;                     // a stream may be joined and left anywhere
        std::vector<std::string> lines; // beginnings
    };
    for (const Case& c : std::vector<Case>{
             {bad + kPosition, 0, {"         0    25  BAD  1005", "        25    25  good 1005"}},
             {bad, 1, {"         0    25  BAD  1005"}},
             {kPosition + bad, 1, {"         0    25  good", "        25    25  BAD  1005"}},
             {bad + Bytes{0} + kPosition,
              0,
              {"         0    26  --         no frame: D3 00 13", "        26    25  good"}},
             {noise + kPosition,
              0,
              {"         0     9  --         no frame: 01 02 D3", "         9    25  good"}},
             {kPosition + noise + kPosition, 1, {"         0    25  good", "        25     9  --"}},
             {kPosition + cut,
              0,
              {"         0    25  good",
               "        25    24  --         no frame, cut off by the end"}},
             {kPosition + Bytes{0} + cut, 1, {"         0    25  good", "        25    25  --"}},
             {kPosition + liar + kPosition,
              1,
              {"         0    25  good", "        25     3  --", "        28    25  good"}},
             {liar + kPosition + kPosition + kPosition,
              0,
              {"         0     3  --", "         3    25  good", "        28    25  good",
               "        53    25  good"}},
             {kPosition + replyFrame(kPosition, 1) + kPosition,
              1,
              {"         0    25  good", "        25    39  BAD  0xDA", "        64    25  good"}},
             {Bytes(5000, 'x') + kPosition,
              0,
              {"         0  4096  --         no frame: \"xxx", "      4096   904  --",
               "      5000    25  good"}}}) {
        const Dumped d = dump(c.bytes);
        EXPECT_EQ(d.status, c.status) << d.text;
        const auto lines = d.lines();
        ASSERT_GT(lines.size(), c.lines.size() + 1) << d.text;
        for (std::size_t i = 0; i < c.lines.size(); ++i)
            EXPECT_EQ(lines[i + 1].substr(0, c.lines[i].size()), c.lines[i]);
        for (const std::size_t block : {1U, 2U, 7U})
            EXPECT_EQ(dump(c.bytes, kPlain, block).text, d.text) << block;
    }
}

TEST(DumpFraming, TakesAStreamThatIsJoinedAndLeftAnywhere) {
    Bytes stream;
    for (int second = 0; second < 2; ++second)
        for (const Bytes& f : ref::Sky(kSite).epochFrames({2009, 430650.0 + second}, 4))
            stream = stream + f;
    stream = stream + replyFrame(kPosition + kPosition);
    for (std::size_t at = 1; at <= stream.size(); ++at) {
        const Bytes head(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(at));
        const Dumped d = dump(head);
        EXPECT_EQ(d.status, d.has(" good ") ? 0 : 1) << at << "\n" << d.text;
    }
    stream.resize(stream.size() - replyFrame(kPosition + kPosition).size());
    for (std::size_t at = 0; at < stream.size(); at += 3) {
        const Dumped d = dump({stream.begin() + static_cast<std::ptrdiff_t>(at), stream.end()});
        EXPECT_EQ(d.status, d.has(" good ") ? 0 : 1) << at << "\n" << d.text;
    }
    EXPECT_EQ(dump({}).status, 1);
}

TEST(DumpReply, OpensTheFrame) {
    const Bytes messages = kPosition + msm7('E', 1000, {cell(3, "1X", 24e6)});
    const Dumped d = dump(replyFrame(messages) + kPosition);
    const auto lines = d.lines();
    EXPECT_EQ(d.status, 0);
    EXPECT_TRUE(lines.at(1).starts_with("         0   ") && d.has("good 0xDA  reply frame"))
        << d.text;
    EXPECT_TRUE(d.has("request word FFFFFFFF\n"));
    EXPECT_TRUE(lines.at(2).starts_with("        10    25  good 1005    reference point"));
    EXPECT_TRUE(lines.at(3).starts_with("        35 ") && d.has("1097    Galileo MSM7"));
    EXPECT_FALSE(lines.at(4).find("  good 1005  reference point") == std::string::npos);
    EXPECT_TRUE(d.has("3  messages in all, 1 reply frames, 0 frames with"));
    // Bytes between its messages are as broken as elsewhere.
    EXPECT_EQ(dump(replyFrame(kPosition + Bytes{0, 1})).status, 1);
}

TEST(DumpSummary, TellsWhatAReceiverWouldMiss) {
    const auto more = msm7('G', 1000, {cell(5, "1C", 22e6)}, true);
    EXPECT_TRUE(dump(more).has("note: no epoch ends"));
    EXPECT_TRUE(dump(more).has("note: no station position"));
    EXPECT_TRUE(dump(kPosition).has("note: no observations"));
    EXPECT_TRUE(dump({}).has("note: no RTCM 3 message at all"));
    const Dumped all =
        dump(more + msm7('R', 1000, {}) + kPosition + frame(ref::writeGlonass({.slot = 1})));
    EXPECT_FALSE(all.has("note:")) << all.text;
    EXPECT_TRUE(all.has("       1  1087  GLONASS MSM7\n"));
}

TEST(DumpJson, CountsTheRecordedStreams) {
    struct Case {
        const char* file;
        std::map<const char*, int> counts;
        int status;
    };
    for (const Case& c : {Case{"bds-eph.rtcm3", {{"1042", 96}}, 1},
                          Case{"gal-eph.rtcm3", {{"1045", 118}, {"1046", 70}}, 1},
                          Case{"glo-eph.rtcm3", {{"1020", 94}}, 1},
                          Case{"corsica-legacy.rtcm3", {{"1004", 21}, {"1012", 21}}, 0},
                          Case{"antarctica-msm7.rtcm3", {{"1077", 56}, {"1019", 1}}, 0}}) {
        CAPTURE_OR_SKIP(stream, c.file);
        const Dumped d = dump(stream, kAllJson);
        EXPECT_EQ(d.status, c.status) << c.file;
        const auto all = objects(d);
        double end = 0;
        for (std::size_t i = 0; i + 1 < all.size(); ++i) { // pieces lie side by side
            EXPECT_EQ(number(all[i].get(), "offset"), end);
            end += number(all[i].get(), "length");
        }
        EXPECT_EQ(end, static_cast<double>(stream.size()));
        for (const auto& [type, count] : c.counts)
            EXPECT_EQ(number(cJSON_GetObjectItem(all.back().get(), "messages_by_type"), type),
                      count)
                << c.file;
    }
}

TEST(DumpOfHostileInput, EndsAndStaysPrintable) {
    std::mt19937 random(99);
    Bytes stream;
    for (const char* name : {"corsica-legacy.rtcm3", "california-legacy-glo-day-rollover.rtcm3"})
        stream = stream + capture(name);
    for (int form = 4; form <= 7; ++form)
        for (const Bytes& f : ref::Sky(kSite).epochFrames({2009, 430650}, form))
            stream = stream + f;
    for (const Bytes& f : ref::Sky(kSite).ephemerisFrames({2009, 430650}))
        stream = stream + f;
    std::vector<Bytes> inputs;
    for (int run = 0; run < 20; ++run) {
        Bytes flipped = stream; // damaged on the way
        for (int i = 0; i < 200; ++i)
            flipped[random() % flipped.size()] ^= static_cast<std::uint8_t>(1U << random() % 8);
        flipped.resize(flipped.size() - random() % 1000);
        Bytes lies; // right check words around damaged contents
        for (const ref::Frame& f : ref::goodFrames(stream)) {
            Bytes body = f.body;
            for (int i = 0; i < 3; ++i)
                body[1 + random() % (body.size() - 1)] ^=
                    static_cast<std::uint8_t>(1U << random() % 4);
            body.resize(body.size() - random() % 2 * (random() % body.size()));
            lies = lies + (random() % 8 ? frame(body) : replyFrame(frame(body)));
        }
        Bytes noise(20000);
        for (std::uint8_t& b : noise)
            b = static_cast<std::uint8_t>(random() % 20 ? random() : random() % 2 ? 0xD3 : 0xDA);
        inputs.insert(inputs.end(), {flipped, lies, noise});
    }
    for (const Bytes& input : inputs) {
        objects(dump(input, kAllJson));
        for (const char c : dump(input, kVerbose).text)
            ASSERT_TRUE(static_cast<unsigned char>(c) >= 0x20 || c == '\n') << int{c};
    }
}

TEST(Kestrunectl, TellsByItsStatusHowItWent) {
    const std::string good = testing::TempDir() + "kestrunectl_good:2101"; // a file wins
    const std::string bad = testing::TempDir() + "kestrunectl_bad";
    std::ofstream(good, std::ios::binary)
        .write(reinterpret_cast<const char*>(kPosition.data()), 25);
    std::ofstream(bad, std::ios::binary).write(reinterpret_cast<const char*>(kPosition.data()), 24);
    for (const auto& [arguments, status, part] :
         std::vector<std::tuple<std::string, int, std::string>>{
             {"--version", 0, "kestrunectl 2.5\n"},
             {"dump --help", 0, "--json"},
             {"", 2, "subcommand"},
             {"dump --nonsense", 2, "--nonsense"},
             {"simulate --host 127.0.0.7 --replies /no/file", 2, "/no/file cannot be written"},
             {"dump /no/such/file", 2, "/no/such/file: No such file"},
             {"dump " + testing::TempDir(), 2, "directory"},
             {"dump 127.0.0.1:1", 2, "127.0.0.1:1: cannot connect"},
             {"dump " + good, 0, "good 1005"},
             {"dump - --json < " + good, 0, "\"type\":1005"},
             {"dump < " + bad, 1, "cut off"},
             {"dump < /dev/null", 1, "no RTCM 3 message"}}) {
        const Ran ran = runInShell(kCtlProgram, arguments + " 2>&1");
        EXPECT_EQ(ran.status, status) << arguments;
        EXPECT_NE(ran.output.find(part), std::string::npos) << arguments << "\n" << ran.output;
    }
}

TEST(Kestrunectl, ReadsALiveStreamByName) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in at = {};
    at.sin_family = AF_INET;
    at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof at;
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&at), size), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    getsockname(listener, reinterpret_cast<sockaddr*>(&at), &size);
    const std::string command = std::string("echo $$; exec ") + kMortal + shellWords(kCtlProgram) +
                                "dump localhost:" + std::to_string(ntohs(at.sin_port));
    FILE* const pipe = popen(command.c_str(), "r");
    const auto line = [pipe] {
        char text[200] = "";
        return std::string(fgets(text, sizeof text, pipe) ? text : "");
    };
    const pid_t program = std::stoi(line());
    const int fd = accept(listener, nullptr, nullptr);
    EXPECT_EQ(send(fd, kPosition.data(), kPosition.size(), 0), 25);
    std::string all = line() + line(); // the heading, and the message as soon as it is there
    EXPECT_NE(all.find("good 1005"), std::string::npos) << all;
    kill(program, SIGINT);
    for (std::string next = line(); !next.empty(); next = line())
        all += next;
    EXPECT_EQ(WEXITSTATUS(pclose(pipe)), 0);
    EXPECT_NE(all.find("       1  1005  reference point"), std::string::npos) << all;
    close(fd);
    close(listener);
}

} // namespace ctl::dump
