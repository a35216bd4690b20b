#include "gateway/ntrip/Request.h"

#include "base/Findings.h"
#include "gateway/net/Characters.h"
#include "gateway/ntrip/Head.h"
#include "gateway/ntrip/HttpAnswer.h"

#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>

#include <algorithm>
#include <charconv>
#include <chrono>

namespace gateway::ntrip {

namespace {

namespace http = boost::beast::http;
using RequestHead = http::request<http::empty_body>;

constexpr std::size_t kLongestText = 128;

/// Fields that must not come twice: which of the two counts would be a matter of luck.
constexpr std::string_view kOnce[] = {
    "Host",          "Authorization", "User-Agent", "Source-Agent",
    "Ntrip-Version", "Ntrip-GGA",     "Expect",     "Transfer-Encoding",
};

std::string_view view(boost::beast::string_view text) {
    return {text.data(), text.size()};
}

/// Nothing for a '%' without two hexadecimal digits.
std::optional<std::string> percentDecoded(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
            continue;
        }
        unsigned value = 0;
        const std::string_view digits = text.substr(i + 1, 2);
        const char* const end = digits.data() + digits.size();
        const auto [read, error] = std::from_chars(digits.data(), end, value, 16);
        if (digits.size() != 2 || error != std::errc{} || read != end)
            return std::nullopt;
        out += static_cast<char>(value);
        i += 2;
    }
    return out;
}

/// The mountpoint of "/MOUNT", "MOUNT", "/MOUNT?query" or "http://host/MOUNT".
std::optional<std::string> mountOf(std::string_view target) {
    if (istartsWith(target, "http://")) {
        const std::size_t path = target.find('/', 7);
        target = path == target.npos ? "" : target.substr(path);
    }
    target = target.substr(0, target.find_first_of("?#"));
    target.remove_prefix(std::min(target.find_first_not_of('/'), target.size()));
    std::optional<std::string> mount = percentDecoded(target);
    if (mount && !isPrintable(*mount))
        return std::nullopt;
    return mount;
}

Dialect dialectOf(const RequestHead& head) {
    const std::string_view version = view(head["Ntrip-Version"]);
    const std::string_view agent = view(head[http::field::user_agent]);
    if (istartsWith(version, "Ntrip/2"))
        return Dialect::ntrip2;
    if (head.method() == http::verb::post || head.method() == http::verb::put)
        return Dialect::http; // version 1 has none of them
    if (istartsWith(version, "Ntrip/1") || istartsWith(agent, "NTRIP"))
        return Dialect::icy;
    const bool browser =
        view(head[http::field::accept]).find("text/html") != std::string_view::npos;
    return agent.empty() && !browser ? Dialect::icy : Dialect::http;
}

/// The head of version 1 of a source as one of HTTP, of which the fields are read: its password
/// and mountpoint are taken here.
std::optional<std::string> sourceAsPost(std::string_view head, Request& request) {
    const std::size_t end = head.find("\r\n");
    std::string_view words =
        trimmed(head.substr(0, end).substr(std::string_view("SOURCE ").size()));
    const std::size_t blank = words.find_last_of(" \t");
    const std::string_view mount = words.substr(blank == words.npos ? 0 : blank + 1);
    // One word alone may be the password: it is no mountpoint, which is shown.
    if (!isPrintable(words) || (blank == words.npos && !mount.starts_with('/')))
        return std::nullopt;
    words.remove_suffix(mount.size());
    request.password = Secret(std::string(trimmed(words)));
    request.named = true;
    return "POST /" + std::string(mount.substr(mount.starts_with('/') ? 1 : 0)) + " HTTP/1.0" +
           std::string(head.substr(end));
}

/// What a request line says; nothing for a malformed target.
std::optional<Refusal> takeLine(const RequestHead& head, Request& request) {
    const std::optional<std::string> mount = mountOf(view(head.target()));
    request.mount = mount.value_or("");
    request.head = head.method() == http::verb::head;
    switch (head.method()) {
    case http::verb::get:
    case http::verb::head:
        request.kind = request.mount.empty() ? Request::Kind::table : Request::Kind::stream;
        return mount ? std::nullopt : std::optional(Refusal::malformed);
    case http::verb::post:
    case http::verb::put:
        request.kind = Request::Kind::push;
        return request.mount.empty() ? std::optional(Refusal::malformed) : std::nullopt;
    default:
        return Refusal::method;
    }
}

/// How the body of a push is coded, and what the client understands.
std::optional<Refusal> takeCoding(const http::request_parser<http::empty_body>& parser,
                                  Request& request) {
    const RequestHead& head = parser.get();
    if (request.kind != Request::Kind::push) {
        request.chunked = request.dialect != Dialect::icy && head.version() >= 11;
        return std::nullopt;
    }
    const std::string_view coding = view(head[http::field::transfer_encoding]);
    request.chunked = parser.chunked();
    if (parser.content_length())
        request.length = *parser.content_length();
    request.waits = head.version() >= 11 && iequals(head[http::field::expect], "100-continue");
    return coding.empty() || iequals(coding, "chunked") ? std::nullopt
                                                        : std::optional(Refusal::malformed);
}

std::optional<Refusal> takeHead(std::string_view text, Request& request) {
    std::string head = withCrLf(text);
    const bool source = istartsWith(head, "SOURCE ");
    if (source) {
        request.kind = Request::Kind::push;
        std::optional<std::string> post = sourceAsPost(head, request);
        if (!post)
            return Refusal::malformed;
        head = std::move(*post);
    } else if (std::string_view(head).substr(0, head.find("\r\n")).ends_with("HTTP/1.1")) {
        request.dialect = Dialect::http; // at least
    }
    http::request_parser<http::empty_body> parser;
    parser.header_limit(2 * kLongestHead); // it was longer when its lines got CR LF
    parser.body_limit(boost::none);
    boost::beast::error_code error;
    parser.put(boost::asio::buffer(head), error);
    if (error || !parser.is_header_done())
        return Refusal::malformed;
    const RequestHead& read = parser.get();
    if (std::any_of(std::begin(kOnce), std::end(kOnce),
                    [&read](std::string_view name) { return read.count(name) > 1; }))
        return Refusal::malformed;

    if (!source) {
        request.dialect = dialectOf(read);
        if (auto credentials = basicCredentials(view(read[http::field::authorization]))) {
            request.named = true;
            request.user = std::move(credentials->first);
            request.password = std::move(credentials->second);
        }
    }
    for (const std::string_view name : {"User-Agent", "Source-Agent"})
        if (request.agent.empty())
            request.agent = readable(view(read[name]), kLongestText);
    request.gga = printable(view(read["Ntrip-GGA"]), kLongestText);
    const std::optional<Refusal> refused = takeLine(read, request);
    return refused ? refused : takeCoding(parser, request);
}

/// What the caster says in each case: to HTTP, and to a source of version 1.
struct RefusalTexts {
    Refusal refusal;
    std::string_view status, source, why = {};
};
constexpr RefusalTexts kRefusals[] = {
    {Refusal::malformed, "400 Bad Request", "Bad Request"},
    {Refusal::method, "405 Method Not Allowed", "Bad Request"},
    {Refusal::unauthorized, "401 Unauthorized", "Bad Password"},
    {Refusal::notFound, "404 Not Found", "Bad Mountpoint"},
    {Refusal::taken, "409 Conflict", "Mount Point Taken or Invalid"},
    {Refusal::tooMany, "429 Too Many Requests", "Too Many Requests"},
    {Refusal::lockedOut, "429 Too Many Requests", "Bad Password", kLockedOut},
};

std::string quoted(std::string_view text) {
    std::string out = "\"";
    for (const char c : text)
        out.append(c == '"' || c == '\\' ? "\\" : "").append(1, c);
    return out + '"';
}

/// The fields that every answer in HTTP has.
std::string commonFields(const Request& request, const std::string& date) {
    return std::string(request.dialect == Dialect::ntrip2 ? "Ntrip-Version: Ntrip/2.0\r\n" : "") +
           "Server: " + std::string(product()) + "\r\nDate: " + date +
           "\r\nCache-Control: no-store, no-cache, max-age=0\r\nPragma: no-cache\r\n"
           "Connection: close\r\n";
}

/// The last fields of a head, and the body.
std::string withBody(const Request& request, std::string_view type, const std::string& body) {
    return "Content-Type: " + std::string(type) +
           "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
           (request.head ? "" : body);
}

} // namespace

std::optional<std::size_t> headLength(std::string_view received) {
    const std::size_t first = received.find_first_not_of("\r\n");
    for (std::size_t end = received.find('\n', first); end != received.npos;
         end = received.find('\n', end + 1)) {
        const std::string_view next = received.substr(end + 1, 2);
        if (next.starts_with('\n') || next == "\r\n")
            return end + 1 + (next[0] == '\n' ? 1 : 2);
    }
    return std::nullopt;
}

Parsed parseRequest(std::string_view head) {
    head.remove_prefix(std::min(head.find_first_not_of("\r\n"), head.size()));
    Parsed parsed;
    parsed.refusal = takeHead(head, parsed.request);
    return parsed;
}

std::string httpDate(std::int64_t unixS) {
    using namespace std::chrono;
    constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const sys_seconds time{seconds{unixS}};
    const sys_days day = floor<days>(time);
    const year_month_day date{day};
    const hh_mm_ss<seconds> clock{time - day};
    return text("%s, %02u %s %04d %02d:%02d:%02d GMT", kDays[weekday{day}.c_encoding()],
                static_cast<unsigned>(date.day()), kMonths[static_cast<unsigned>(date.month()) - 1],
                static_cast<int>(date.year()), static_cast<int>(clock.hours().count()),
                static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
}

std::string grantText(const Request& request, const std::string& date) {
    if (request.dialect == Dialect::icy)
        return "ICY 200 OK\r\n\r\n";
    std::string out = request.waits ? "HTTP/1.1 100 Continue\r\n\r\n" : "";
    out += "HTTP/1.1 200 OK\r\n" + commonFields(request, date);
    // A push goes on behind the answer, which has no end of its own.
    if (request.kind != Request::Kind::push)
        out += "Content-Type: gnss/data\r\n";
    if (sendsChunks(request))
        out += "Transfer-Encoding: chunked\r\n";
    return out + "\r\n";
}

std::string tableAnswer(const Request& request, const std::string& table, const std::string& date) {
    if (request.dialect == Dialect::icy)
        return "SOURCETABLE 200 OK\r\nServer: " + std::string(product()) + "\r\nDate: " + date +
               "\r\nConnection: close\r\n" + withBody(request, "text/plain", table);
    return "HTTP/1.1 200 OK\r\n" + commonFields(request, date) +
           withBody(request, "gnss/sourcetable", table);
}

std::string refusalText(const Request& request, Refusal refusal, const std::string& date) {
    const auto* const row =
        std::find_if(std::begin(kRefusals), std::end(kRefusals),
                     [refusal](const RefusalTexts& r) { return r.refusal == refusal; });
    const bool icy = request.dialect == Dialect::icy;
    if (icy && request.kind == Request::Kind::push)
        return "ERROR - " + std::string(row->source) + "\r\n";
    const std::string status(row->status);
    std::string out = (icy ? "HTTP/1.0 " : "HTTP/1.1 ") + status + "\r\n";
    out += commonFields(request, date);
    if (refusal == Refusal::unauthorized)
        out += "WWW-Authenticate: Basic realm=" + quoted("/" + request.mount) + "\r\n";
    else if (refusal == Refusal::method)
        out += "Allow: GET, HEAD, POST, PUT\r\n";
    else if (refusal == Refusal::tooMany || refusal == Refusal::lockedOut)
        out += "Retry-After: 60\r\n";
    const std::string why = row->why.empty() ? "" : std::string(row->why) + "\r\n";
    return out + withBody(request, "text/plain", status + "\r\n" + why);
}

bool sendsChunks(const Request& request) {
    return request.kind == Request::Kind::stream && request.chunked;
}

std::string chunk(std::string_view data) {
    if (data.empty())
        return {};
    std::string out = text("%zx\r\n", data.size());
    out.reserve(out.size() + data.size() + 2);
    return out.append(data).append("\r\n");
}

class PushReader::Reader {
public:
    explicit Reader(const Request& push) {
        // A body is the same in both directions, and only an answer may last until its end.
        std::string head = "HTTP/1.1 200 OK\r\n";
        if (push.chunked)
            head += "Transfer-Encoding: chunked\r\n";
        else if (push.length)
            head += "Content-Length: " + std::to_string(*push.length) + "\r\n";
        state_ = http_.takeHead(head + "\r\n");
    }
    BodyState take(std::span<const std::uint8_t> bytes, std::vector<std::uint8_t>& data) {
        if (state_ != BodyState::flows)
            return state_;
        held_.append(bytes.begin(), bytes.end());
        return state_ = http_.takeBody(held_, data);
    }

private:
    HttpAnswer http_;
    BodyState state_ = BodyState::flows;
    std::string held_; // the beginning of a line between chunks
};

PushReader::PushReader(const Request& push) : reader_(std::make_unique<Reader>(push)) {}
PushReader::~PushReader() = default;

BodyState PushReader::take(std::span<const std::uint8_t> bytes, std::vector<std::uint8_t>& data) {
    return reader_->take(bytes, data);
}

} // namespace gateway::ntrip
