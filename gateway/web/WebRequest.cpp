#include "gateway/web/WebRequest.h"

#include "gateway/ntrip/Head.h"
#include "gateway/ntrip/Request.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/beast/http.hpp>
#include <boost/url.hpp>

namespace gateway {

namespace http = boost::beast::http;
using boost::system::error_code;

/// Only what has no body can be asked for.
std::optional<WebRequest> parseWebRequest(std::string_view head) {
    http::request_parser<http::empty_body> parser;
    parser.header_limit(2 * ntrip::kLongestHead);
    error_code e;
    parser.put(boost::asio::buffer(head.data(), head.size()), e);
    if (e || !parser.is_header_done())
        return std::nullopt;
    const auto& message = parser.get();
    if (message.method() != http::verb::get && message.method() != http::verb::head)
        return std::nullopt;
    // A body would be taken for the next request.
    if (message.chunked() || parser.content_length().value_or(0) > 0)
        return std::nullopt;
    const auto target = boost::urls::parse_origin_form(message.target());
    if (!target)
        return std::nullopt;
    WebRequest request;
    request.path = target->path();
    for (const auto& part : target->params())
        request.query[part.key] = part.value;
    request.head = message.method() == http::verb::head;
    request.keepAlive = message.keep_alive();
    request.sameAs = std::string(message[http::field::if_none_match]);
    request.host = std::string(message[http::field::host]);
    if (const auto credentials =
            ntrip::basicCredentials(std::string(message[http::field::authorization]))) {
        request.named = true;
        request.user = credentials->first;
        request.password = credentials->second;
    }
    return request;
}

bool isLoopbackName(std::string_view host) {
    host = host.substr(0, host.starts_with('[') ? host.find(']') + 1 : host.find(':'));
    if (host == "localhost" || host == "[::1]")
        return true;
    error_code named;
    const auto address = boost::asio::ip::make_address(std::string(host), named);
    return !named && address.is_loopback();
}

} // namespace gateway
