#include "beside/datapack.h"

#include "base/ComText.h"
#include "base/Findings.h"
#include "base/Print.h"

#include <algorithm>

namespace {

constexpr std::string_view kStart = "type";
constexpr std::string_view kEnd = "\r\n\r\n";
constexpr std::string_view kLength = "len:";
constexpr int kPub = 2;

void printPack(const char* name, std::string_view data) {
    const int length = static_cast<int>(data.size());
    print("%s->长度:%d,数据:%.*s\n", name, length, length, data.data());
}

/// The start of a text up to the first byte that has no place in the log.
std::string_view printable(std::string_view text) {
    const auto isPrintable = [](char c) { return c >= ' ' && c <= '~'; };
    text = text.substr(0, 16);
    return {text.begin(), std::find_if_not(text.begin(), text.end(), isPrintable)};
}

int takeBodyByte(PackState& state, char byte) {
    state.body += byte;
    if (state.body.size() < state.expectedBody)
        return kPackNothing;
    print("\r\n***len:%d,\n", static_cast<int>(state.body.size()));
    if (state.onBody)
        state.onBody(0, state.body);
    state.body.clear();
    state.inBody = false;
    return kPackBody;
}

/// The header keeps its bytes. Deliberate: a further header is appended to it, and the first
/// "len:" of them all is the one that counts.
int finishHeader(PackState& state) {
    const int at = isPresent(state.header, kLength);
    if (at < 0) {
        if (state.onHeader)
            state.onHeader(state.header);
        return kPackHeader;
    }
    const std::string_view value =
        std::string_view(state.header).substr(static_cast<std::size_t>(at) + kLength.size());
    int length = 0;
    if (!TextScanner(value).integer(length) || length <= 0 ||
        static_cast<std::size_t>(length) > kLongestPack) {
        const std::string_view start = printable(value);
        print("***WARN(datapack): len = %.*s,not a number from 1 to %zu, header is dropped!\n",
              static_cast<int>(start.size()), start.data(), kLongestPack);
        state.header.clear();
        return kPackNothing;
    }
    state.expectedBody = static_cast<std::size_t>(length);
    state.inBody = true;
    return kPackNothing;
}

} // namespace

void initcommand(PackState& state) {
    state = {};
    for (std::string* buffer : {&state.header, &state.body, &state.output})
        buffer->reserve(kLongestPack);
    state.onHeader = onPack1con;
    state.onBody = [](int, std::string_view body) { onPack2con(body); };
}

int isPresent(std::string_view text, std::string_view pattern) {
    const std::size_t at = text.find(pattern);
    return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

int parsingcommand(PackState& state, std::uint8_t byte) {
    const char c = static_cast<char>(byte);
    if (state.inBody)
        return takeBodyByte(state, c);
    std::string& header = state.header;
    if (header.size() == kLongestPack) {
        print("***WARN(datapack): header is longer than %zu bytes, it is dropped!\n", kLongestPack);
        header.clear(); // the byte may begin the next one
    }
    if (header.empty() && c != kStart[0])
        return kPackNothing;
    header += c;
    if (header.size() == kStart.size() && header != kStart)
        header.clear();
    return header.ends_with(kEnd) ? finishHeader(state) : kPackNothing;
}

int splicingcommand(PackState& state, int id, std::string_view channel, std::string_view body) {
    std::string& out = state.output;
    out.clear();
    if (id < 0 || static_cast<std::size_t>(id) >= instruction.size()) {
        print("error(1):instruction id=%d,Invalid instruction\n", id);
        return -1;
    }
    const bool carriesBody = id == kPub;
    const std::string rest = carriesBody ? text("len:%zu\r\n\r\n", body.size()) : "\r\n";
    const std::string_view type = instruction[static_cast<std::size_t>(id)];
    for (const std::string_view piece :
         {std::string_view("type:"), type, std::string_view("\r\nchannel:"), channel,
          std::string_view("\r\n"), std::string_view(rest),
          carriesBody ? body : std::string_view()}) {
        if (piece.size() > kLongestPack - out.size()) {
            print("error(2):instruction id=%d,packet is longer than %zu bytes\n", id, kLongestPack);
            out.clear();
            return -1;
        }
        out += piece;
    }
    return 0;
}

void onPack1con(std::string_view data) {
    printPack("onPack1", data);
}

void onPack2con(std::string_view data) {
    printPack("onPack2", data);
}
