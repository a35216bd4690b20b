#pragma once

#include "gateway/net/Secret.h"

#include <boost/beast/http/status.hpp>

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

/// Why a request is refused.
struct WebRefusal {
    boost::beast::http::status status;
    std::string_view why;
};
struct ParsedWeb {
    WebRequest request;
    std::optional<WebRefusal> refusal;
};
/// Of a head, with its end. One that is cut off, as it is too long, is refused for that.
ParsedWeb parseWebRequest(std::string_view head);

/// Whether a host (with or without a port) is this machine by the loopback, however the name is
/// written (RFC 4343, RFC 1034 3.1); a browser that a foreign name has led here sends that name.
bool isLoopbackName(std::string_view host);

} // namespace gateway
