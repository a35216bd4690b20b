#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// datapack: text packets to publish and subscribe with. A packet is a header of "key:value"
/// lines, each ended by CR LF, an empty line, and a body where the header gives its length in
/// bytes ("len:5"). Nothing in the service uses them.

/// No header, body or built packet is longer, bytes.
inline constexpr std::size_t kLongestPack = 9216;

/// Packet types by identifier. Deliberate: row 1 lacks the first letter of "unsubscribe", and the
/// rows without a text are types too.
inline constexpr std::array<std::string_view, 10> instruction{"subscribe", "nsubscribe", "pub",
                                                              "message"};

// Answers to the types: channels, each with its number of subscribers. To a message belong its
// length and its body.
inline constexpr std::string_view Respondto_subscribe =
    "type:subscribe\r\nchannel:reference 1,virtual 1\r\n\r\n";
inline constexpr std::string_view Respondto_unsubscribe =
    "type:unsubscribe\r\nchannel:reference 1,virtual 1\r\n\r\n";
inline constexpr std::string_view Respondto_pub =
    "type:pub\r\nchannel:reference 1,virtual 2\r\n\r\n";
inline constexpr std::string_view Respondto_message = "type:message\r\nchannel:reference\r\nlen:";

/// What a connection has received so far, the last packet built, and who is told of packets.
struct PackState {
    std::string header;
    bool inBody = false;
    std::string body;
    std::size_t expectedBody = 0; // bytes
    std::string output;
    void (*onHeader)(std::string_view header) = nullptr;
    void (*onBody)(int kind, std::string_view body) = nullptr; // kind is always 0
};

/// Empties a state, makes room in its buffers and has packets printed.
void initcommand(PackState& state);
/// Index of the first occurrence of the pattern, or -1.
int isPresent(std::string_view text, std::string_view pattern);

/// What a byte completed.
inline constexpr int kPackNothing = 0;
inline constexpr int kPackHeader = 1; // a header without a body
inline constexpr int kPackBody = 2;
/// Takes one received byte; what it completes goes to the callbacks of the state.
int parsingcommand(PackState& state, std::uint8_t byte);

/// Builds a packet in the output of a state. Only "pub" carries the body; other types pass over it.
/// 0, or -1 with a printed line (and nothing in the output) for an identifier without a row and for
/// a packet that is too long.
int splicingcommand(PackState& state, int id, std::string_view channel, std::string_view body);

/// Print a packet.
void onPack1con(std::string_view data);
void onPack2con(std::string_view data);
