#include "gateway/web/WebRequest.h"

#include "gateway/net/Characters.h"
#include "gateway/ntrip/Head.h"
#include "gateway/ntrip/Request.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/beast/http.hpp>
#include <boost/url.hpp>

namespace gateway {

namespace http = boost::beast::http;
using boost::system::error_code;

namespace {

using Status = http::status;
using RequestHead = http::request<http::empty_body>;

constexpr WebRefusal kMalformed{Status::bad_request, "no request of HTTP 1.1"};

WebRefusal tooLong(std::string_view head) {
    if (head.find("\r\n") == head.npos)
        return {Status::uri_too_long, "the address is longer than 8 KiB"};
    return {Status::request_header_fields_too_large, "the head is longer than 8 KiB"};
}

WebRequest requestOf(const RequestHead& head, const boost::urls::url_view& target) {
    WebRequest request;
    request.path = target.path();
    for (const auto& part : target.params())
        request.query[part.key] = part.value;
    request.head = head.method() == http::verb::head;
    request.keepAlive = head.keep_alive();
    request.sameAs = std::string(head[http::field::if_none_match]);
    request.host = std::string(head[http::field::host]);
    if (const auto credentials =
            ntrip::basicCredentials(std::string(head[http::field::authorization]))) {
        request.named = true;
        request.user = credentials->first;
        request.password = credentials->second;
    }
    return request;
}

} // namespace

ParsedWeb parseWebRequest(std::string_view head) {
    if (!head.ends_with("\r\n\r\n"))
        return {{}, tooLong(head)};
    http::request_parser<http::empty_body> parser;
    parser.header_limit(2 * ntrip::kLongestHead);
    parser.body_limit(boost::none); // it is not read
    error_code e;
    parser.put(boost::asio::buffer(head.data(), head.size()), e);
    if (e || !parser.is_header_done())
        return {{}, kMalformed};
    const RequestHead& read = parser.get();
    if (read.method() != http::verb::get && read.method() != http::verb::head)
        return {{}, WebRefusal{Status::method_not_allowed, "all is read only: ask with GET"}};
    if (read.chunked() || parser.content_length().value_or(0) > 0) // it would be the next request
        return {{}, WebRefusal{Status::bad_request, "a GET has no body here"}};
    const auto target = boost::urls::parse_origin_form(read.target());
    if (!target)
        return {{}, kMalformed};
    return {requestOf(read, *target), std::nullopt};
}

bool isLoopbackName(std::string_view host) {
    host = host.substr(0, host.starts_with('[') ? host.find(']') + 1 : host.find(':'));
    host = host.substr(0, host.size() - (host.ends_with('.') ? 1 : 0));
    if (iequals(host, "localhost") || host == "[::1]")
        return true;
    error_code named;
    const auto address = boost::asio::ip::make_address(std::string(host), named);
    return !named && address.is_loopback();
}

} // namespace gateway
