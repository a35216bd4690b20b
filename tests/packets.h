/// What the test and the fuzz target of packets share.
#pragma once

#include "beside/datapack.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

/// What a stream led to: the index of the byte that completed a packet, its status, its text.
struct Event {
    std::size_t at;
    int status;
    std::string text;
    bool operator==(const Event&) const = default;
};
using Events = std::vector<Event>;

inline std::vector<std::string> calls; // of a parser: status and text

/// What a parser of its own makes of the stream; `require(kept, promise)` takes what it promises.
template <class Require> Events parse(std::string_view stream, Require&& require) {
    PackState state;
    state.onHeader = [](std::string_view header) { calls.push_back("1" + std::string(header)); };
    state.onBody = [](int kind, std::string_view body) {
        calls.push_back(std::to_string(2 + kind) + std::string(body));
    };
    Events events;
    calls.clear();
    for (std::size_t i = 0; i < stream.size(); ++i) {
        const int status = parsingcommand(state, static_cast<std::uint8_t>(stream[i]));
        require(state.header.size() <= 9216 && state.body.size() < 9216, "buffers of bounded size");
        require(calls.size() == events.size() + (status == 0 ? 0 : 1), "a call for each status");
        if (calls.size() == events.size())
            continue;
        require(calls.back()[0] == '0' + status, "the call of the status");
        events.push_back({i, status, calls.back().substr(1)});
    }
    return events;
}

/// Its events by the rules of the protocol, with the whole stream at hand.
inline Events predict(const std::string& stream) {
    Events events;
    std::string header;
    for (std::size_t i = 0; i < stream.size();) {
        if (header.empty()) {
            i = std::min(stream.find('t', i), stream.size());
            if (stream.substr(i, 4) == "type")
                header = "type";
            i += 4;
            continue;
        }
        const std::string all = header + stream.substr(i);
        const std::size_t end = all.find("\r\n\r\n", header.size() - 3);
        if (end > 9216 - 4) { // also where there is no end
            i += 9216 - header.size();
            header.clear();
            continue;
        }
        i += end + 4 - header.size();
        header = all.substr(0, end + 4);
        const std::size_t at = header.find("len:");
        if (at == std::string::npos) {
            events.push_back({i - 1, 1, header});
            continue;
        }
        const long long length = std::strtoll(header.c_str() + at + 4, nullptr, 10);
        if (length < 1 || length > 9216) {
            header.clear();
            continue;
        }
        const std::string body = stream.substr(i, static_cast<std::size_t>(length));
        i += body.size();
        if (body.size() == static_cast<std::size_t>(length))
            events.push_back({i - 1, 2, body});
    }
    return events;
}
