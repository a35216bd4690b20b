/// What the test and the fuzz target of packets share.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

/// What a stream led to: the index of the byte that completed a packet, its status, its text.
struct Event {
    std::size_t at;
    int status;
    std::string text;
    bool operator==(const Event&) const = default;
};
using Events = std::vector<Event>;

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
