#include "packets.h"

#include "beside/datapack.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

Events parse(std::string_view stream) {
    return ::parse(stream, [](bool kept, const char* promise) { EXPECT_TRUE(kept) << promise; });
}

struct Packets : testing::Test {
    Packets() { testing::internal::CaptureStdout(); }
    static std::string printed() {
        std::string out = testing::internal::GetCapturedStdout();
        testing::internal::CaptureStdout();
        return out;
    }
    ~Packets() override { testing::internal::GetCapturedStdout(); }
};

} // namespace

TEST_F(Packets, AreTakenByteByByteAndPrinted) {
    PackState state;
    for (const std::string_view packet :
         {Respondto_subscribe,
          std::string_view("type:message\r\nchannel:c\r\nlen:5\r\n\r\nhello")}) {
        initcommand(state); // forgets the header
        for (const char c : packet.substr(0, packet.size() - 1))
            EXPECT_EQ(parsingcommand(state, static_cast<std::uint8_t>(c)), 0);
        EXPECT_EQ(parsingcommand(state, static_cast<std::uint8_t>(packet.back())),
                  packet.back() == 'o' ? 2 : 1);
    }
    EXPECT_EQ(printed(), "onPack1->\xE9\x95\xBF\xE5\xBA\xA6:49,\xE6\x95\xB0\xE6\x8D\xAE:"
                         "type:subscribe\r\nchannel:reference 1,virtual 1\r\n\r\n\n"
                         "\r\n***len:5,\nonPack2->\xE9\x95\xBF\xE5\xBA\xA6:5,"
                         "\xE6\x95\xB0\xE6\x8D\xAE:hello\n");
}

TEST_F(Packets, FollowingOneAreAppendedToItsHeader) { // deliberate
    const std::string a = "type:pub\r\n\r\n";
    EXPECT_EQ(parse("noise\r\ntypo" + a + a + "len:2\r\n\r\nxylen:1\r\n\r\nzz"),
              (Events{{22, 1, a}, {34, 1, a + a}, {45, 2, "xy"}, {56, 2, "zz"}}));
}

TEST_F(Packets, OfALengthThatNoBufferHoldsAreDropped) {
    const std::string line =
        "***WARN(datapack): header is longer than 9216 bytes, it is dropped!\n";
    const struct {
        std::string length, shown;
    } bad[] = {{"0", "0"},       {"-5", "-5"}, {"99999999999999999999", "9999999999999999"},
               {"9217", "9217"}, {"", ""},     {"five\x1B[2J", "five"}};
    for (const auto& c : bad) {
        EXPECT_EQ(parse("type:\r\nlen:" + c.length + "\r\n\r\ntype:len:+1\r\n\r\nx").back().text,
                  "x");
        EXPECT_EQ(printed(),
                  "***WARN(datapack): len = " + c.shown +
                      ",not a number from 1 to 9216, header is dropped!\n\r\n***len:1,\n");
    }
    // The longest header and body; then the buffer is full and the next packet begins anew.
    const std::string body(9216, 'b');
    const std::string header = "type:" + std::string(9216 - 17, 'c') + "len:9216\r\n\r\n";
    EXPECT_EQ(parse(header + body + "type:\r\n\r\n"),
              (Events{{18431, 2, body}, {18440, 1, "type:\r\n\r\n"}}));
    EXPECT_EQ(printed(), "\r\n***len:9216,\n" + line);
    EXPECT_EQ(parse("type:c" + header.substr(5)), Events{});
    EXPECT_EQ(printed(), line);
}

TEST_F(Packets, AreBuiltByType) {
    PackState state;
    EXPECT_EQ(splicingcommand(state, 2, "c", "abc"), 0);
    EXPECT_EQ(state.output, "type:pub\r\nchannel:c\r\nlen:3\r\n\r\nabc");
    EXPECT_EQ(splicingcommand(state, 1, "c", "passed over"), 0);
    EXPECT_EQ(state.output, "type:nsubscribe\r\nchannel:c\r\n\r\n"); // deliberate
    EXPECT_EQ(splicingcommand(state, 9, "c", ""), 0);
    EXPECT_EQ(state.output, "type:\r\nchannel:c\r\n\r\n"); // deliberate
    // "type:pub", "channel:c", "len:9183" with their line ends and an empty line: 33 bytes.
    const std::string longest(9183, 'x');
    EXPECT_EQ(splicingcommand(state, 2, "c", longest), 0);
    EXPECT_EQ(parse(state.output), (Events{{9215, 2, longest}}));
    printed();
    for (const int id : {-1, 10}) {
        EXPECT_EQ(splicingcommand(state, id, "c", "abc"), -1);
        EXPECT_EQ(printed(),
                  "error(1):instruction id=" + std::to_string(id) + ",Invalid instruction\n");
    }
    EXPECT_EQ(splicingcommand(state, 2, "cc", longest), -1);
    EXPECT_EQ(splicingcommand(state, 2, "", longest + "xx"), -1);
    EXPECT_EQ(state.output, "");
    const std::string line = "error(2):instruction id=2,packet is longer than 9216 bytes\n";
    EXPECT_EQ(printed(), line + line);
}

TEST_F(Packets, OfAnyBytesAreFoundAsTheRulesSay) {
    std::mt19937 random{20211};
    const auto below = [&](std::size_t n) { return static_cast<std::size_t>(random()) % n; };
    const std::string parts[] = {"type:",
                                 "t",
                                 "typ",
                                 "channel:c",
                                 "\r\n",
                                 "\r\n\r\n",
                                 "\r",
                                 "\n",
                                 "len:",
                                 "len:3",
                                 "len:40\r\n\r\n",
                                 "len:-1",
                                 "len:9216",
                                 "type:message\r\n\r\n",
                                 "type:pub\r\nlen:7\r\n\r\n1234567"};
    std::size_t packets = 0;
    for (int round = 0; round < 4000; ++round) {
        std::string stream = round % 2 ? "type" : "";
        for (std::size_t n = below(60); n > 0; --n)
            stream += below(4) ? parts[below(std::size(parts))]
                               : std::string(1, static_cast<char>(below(256)));
        if (round % 20 == 0) // across the limits
            stream.insert(below(stream.size() + 1), std::string(9000 + below(600), "xt"[below(2)]));
        const Events events = parse(stream);
        ASSERT_EQ(events, predict(stream)) << "round " << round;
        packets += events.size();
    }
    EXPECT_GT(packets, 4000U);
}
