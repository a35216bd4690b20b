#pragma once

#include "gateway/net/Secret.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>

/// WebRequest: what a browser or a program asks of the page, by HTTP 1.1 (RFC 9112). No sockets.

namespace gateway {

struct WebRequest {
    std::string path; // percent signs resolved
    std::map<std::string, std::string> query;
    std::string user;
    Secret password;
    bool named = false; // credentials were sent
    bool head = false;  // no body is wanted
    bool keepAlive = false;
    std::string host, sameAs; // sameAs: If-None-Match
};

/// Of a whole head; nothing where it is malformed or asks for something else than to read.
std::optional<WebRequest> parseWebRequest(std::string_view head);

/// Whether a host (with or without a port) is this machine by the loopback; a browser that a
/// foreign name has led here sends that name.
bool isLoopbackName(std::string_view host);

} // namespace gateway
