#include "gateway/web/WebServer.h"

#include "gateway/net/Say.h"
#include "gateway/ntrip/Head.h"
#include "gateway/ntrip/Request.h"
#include "gateway/web/PageFile.h"
#include "gnss/Clock.h"

#include <boost/beast/http.hpp>
#include <boost/url.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <sstream>
#include <utility>

namespace gateway {

using namespace std::chrono_literals;
using boost::system::error_code;
namespace http = boost::beast::http;

namespace {

constexpr Duration kRequestLimit = 10s;
constexpr Duration kIdleLimit = 60s; // of a connection between two requests
constexpr Duration kTellLimit = 30s; // for an answer
constexpr unsigned kQuietTicks = 10; // then a comment keeps the stream alive
constexpr std::string_view kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
    "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

using Answer = http::response<http::string_body>;

Answer answerOf(http::status status, std::string_view type, std::string body) {
    Answer answer{status, 11};
    answer.set(http::field::content_type, type);
    answer.set(http::field::cache_control, "no-store");
    answer.body() = std::move(body);
    return answer;
}

Answer problem(http::status status, const std::string& what) {
    return answerOf(status, "application/json", nlohmann::json{{"error", what}}.dump() + "\n");
}

std::string headOfAll(Answer& answer) {
    answer.set(http::field::date, ntrip::httpDate(utcNow().time));
    answer.set(http::field::server, "kestrune-gateway");
    answer.set("Content-Security-Policy", kPolicy);
    answer.set("X-Content-Type-Options", "nosniff");
    answer.set("Referrer-Policy", "no-referrer");
    std::ostringstream out;
    out << answer.base();
    return std::move(out).str();
}

std::string whole(Answer answer, bool keepAlive, bool head) {
    answer.keep_alive(keepAlive);
    answer.content_length(answer.body().size());
    std::string out = headOfAll(answer);
    if (!head)
        out += answer.body();
    return out;
}

/// Whether a browser that was led here by a foreign name would send it.
bool isLoopbackName(std::string_view host) {
    host = host.substr(0, host.starts_with('[') ? host.find(']') + 1 : host.find(':'));
    if (host == "localhost" || host == "[::1]")
        return true;
    error_code named;
    const auto address = asio::ip::make_address(std::string(host), named);
    return !named && address.is_loopback();
}

std::string eventText(const char* kind, const std::string& json) {
    return std::string("event: ") + kind + "\ndata: " + json + "\n\n";
}

SharedBytes shared(const std::string& text) {
    return std::make_shared<const Bytes>(text.begin(), text.end());
}

std::string fleetJson(const WebView& view, const std::map<std::string, std::string>& summaries,
                      const std::vector<std::string>& removed) {
    std::string out = "{" + view.fleetHead() + ",\"stations\":[";
    const char* between = "";
    for (const auto& [name, summary] : summaries) {
        out += between + summary;
        between = ",";
    }
    out += "]";
    if (!removed.empty())
        out += ",\"removed\":" + nlohmann::json(removed).dump();
    return out + "}";
}

/// Nothing where the client goes or sends no head in time.
awaitable<std::optional<std::string>> readHead(Channel& channel, std::string& held) {
    std::array<std::uint8_t, 2048> buffer;
    for (;;) {
        const std::size_t end = held.find("\r\n\r\n");
        if (end < ntrip::kLongestHead) {
            std::string head = held.substr(0, end + 4);
            held.erase(0, end + 4);
            co_return head;
        }
        if (held.size() > ntrip::kLongestHead)
            co_return std::string();
        const std::size_t n = co_await channel.read(buffer);
        if (n == 0)
            co_return std::nullopt;
        held += textOf(std::span(buffer).first(n));
    }
}

} // namespace

const char* mediaTypeOf(std::string_view path) {
    constexpr std::pair<std::string_view, const char*> types[] = {
        {".html", "text/html; charset=utf-8"},
        {".css", "text/css; charset=utf-8"},
        {".js", "text/javascript; charset=utf-8"},
        {".json", "application/json"},
        {".svg", "image/svg+xml"}};
    for (const auto& [ending, type] : types)
        if (path.ends_with(ending))
            return type;
    return nullptr;
}

WebServer::WebServer(const asio::any_io_executor& executor, const WebView& view, Admits admits)
    : executor_(executor), view_(view), admits_(std::move(admits)),
      listeners_(executor, {"page", "http://", "/"},
                 [this](tcp::socket socket) {
                     if (connections_ < kMostConnections)
                         conversations_.start(converse(std::move(socket)));
                 }),
      conversations_(executor, [](const std::string&) {}) {
    for (const PageFile& file : pageFiles())
        pages_[file.path] = {file.content,
                             "\"" + std::to_string(std::hash<std::string_view>{}(file.content)) +
                                 "\""};
}

/// The stations work without it. Who may look may have changed: those who listen come again.
void WebServer::apply(const WebSettings& settings) {
    settings_ = settings;
    for (Hearer* const hearer : hearers_)
        hearer->channel->close();
    for (const std::string& failure : listeners_.apply(settings_.listen))
        say(Level::warning, "page", failure);
}

void WebServer::stop() {
    listeners_.stop();
    conversations_.cancel();
}

awaitable<void> WebServer::converse(tcp::socket socket) {
    struct Counted {
        std::size_t& count;
        explicit Counted(std::size_t& of) : count(of) { ++count; }
        ~Counted() { --count; }
    } const counted(connections_);
    error_code gone;
    const std::string address = addressOf(socket.remote_endpoint(gone)).to_string();
    if (gone)
        co_return;
    const ChannelPtr channel = channelOf(std::move(socket));
    std::string held;
    for (Duration limit = kRequestLimit;; limit = kIdleLimit) {
        const std::optional<std::string> head =
            co_await within(limit, readHead(*channel, held), "no request");
        if (!head)
            co_return;
        const std::optional<Request> request = parse(*head);
        if (!request) {
            const std::string text =
                whole(problem(http::status::bad_request, "no request of HTTP 1.1"),
                      /*keepAlive=*/false, /*head=*/false);
            co_await within(kTellLimit, channel->write(bytesOf(text)), "takes no answer");
            co_return;
        }
        if (!co_await answer(*channel, *request, address))
            co_return;
    }
}

/// Only what has no body can be asked for.
std::optional<WebServer::Request> WebServer::parse(std::string_view head) {
    http::request_parser<http::empty_body> parser;
    parser.header_limit(2 * ntrip::kLongestHead);
    error_code e;
    parser.put(asio::buffer(head.data(), head.size()), e);
    if (e || !parser.is_header_done())
        return std::nullopt;
    const auto& message = parser.get();
    if (message.method() != http::verb::get && message.method() != http::verb::head)
        return std::nullopt;
    const auto target = boost::urls::parse_origin_form(message.target());
    if (!target)
        return std::nullopt;
    Request request;
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

/// Whether the connection goes on.
awaitable<bool> WebServer::answer(Channel& channel, const Request& request,
                                  const std::string& address) {
    const bool open = request.path == "/healthz" || request.path == "/readyz";
    std::string text;
    if (settings_.access == WebSettings::Access::machine && !isLoopbackName(request.host)) {
        text = whole(problem(http::status::misdirected_request, "this page is for this machine"),
                     request.keepAlive, request.head);
    } else if (settings_.access == WebSettings::Access::users && !open) {
        bool admitted = false;
        if (request.named)
            admitted = co_await admits_(address, request.user, request.password);
        if (!admitted) {
            Answer answer =
                problem(http::status::unauthorized, "a user of the caster is asked for");
            answer.set(http::field::www_authenticate,
                       "Basic realm=\"Kestrune\", charset=\"UTF-8\"");
            text = whole(std::move(answer), request.keepAlive, request.head);
        }
    }
    if (text.empty() && request.path == "/api/v1/live" && !request.head) {
        co_await tellLive(channel, request);
        co_return false;
    }
    if (text.empty())
        text = answerTo(request);
    co_await within(kTellLimit, channel.write(bytesOf(text)), "takes no answer");
    co_return request.keepAlive;
}

std::string WebServer::answerTo(const Request& request) const {
    constexpr std::string_view kStation = "/api/v1/stations/";
    constexpr const char* kJson = "application/json";
    const auto found = [&](std::optional<std::string> json) {
        return json ? answerOf(http::status::ok, kJson, *std::move(json))
                    : problem(http::status::not_found, "there is no such station");
    };
    const auto& path = request.path;
    Answer answer = problem(http::status::not_found, "there is nothing here");
    if (path == "/api/v1/stations") {
        answer = found(fleetJson(view_, view_.summaries(), {}));
    } else if (path.starts_with(kStation)) {
        answer = found(view_.station(path.substr(kStation.size())));
    } else if (path == "/api/v1/events") {
        const auto of = request.query.find("station");
        answer = found(
            view_.events(of == request.query.end() ? std::nullopt : std::optional(of->second)));
    } else if (path == "/metrics") {
        answer =
            answerOf(http::status::ok, "text/plain; version=0.0.4; charset=utf-8", view_.metrics());
    } else if (path == "/healthz") {
        answer = answerOf(http::status::ok, "text/plain; charset=utf-8", "works\n");
    } else if (path == "/readyz") {
        std::string missing;
        for (const std::string& name : view_.untried())
            missing += name + " has not been tried yet\n";
        answer = answerOf(missing.empty() ? http::status::ok : http::status::service_unavailable,
                          "text/plain; charset=utf-8", missing.empty() ? "ready\n" : missing);
    } else {
        const std::string_view name = path == "/" ? "index.html"
                                      : path.starts_with("/station/")
                                          ? "station.html"
                                          : std::string_view(path).substr(1);
        if (const auto page = pages_.find(name); page != pages_.end()) {
            const bool same = request.sameAs == page->second.tag;
            answer = answerOf(same ? http::status::not_modified : http::status::ok,
                              mediaTypeOf(name), same ? "" : std::string(page->second.content));
            answer.set(http::field::cache_control, "no-cache");
            answer.set(http::field::etag, page->second.tag);
        }
    }
    return whole(std::move(answer), request.keepAlive, request.head);
}

awaitable<void> WebServer::tellLive(Channel& channel, const Request& request) {
    const auto of = request.query.find("station");
    Hearer hearer(executor_, of == request.query.end() ? std::string() : of->second);
    Answer answer{http::status::ok, 11};
    answer.set(http::field::content_type, "text/event-stream");
    answer.set(http::field::cache_control, "no-store");
    answer.keep_alive(false);
    std::string text;
    if (hearers_.size() >= kMostListeners)
        text = whole(problem(http::status::service_unavailable, "too many listen already"),
                     /*keepAlive=*/false, /*head=*/false);
    else if (!hearer.station.empty() && !view_.station(hearer.station))
        text = whole(problem(http::status::not_found, "there is no such station"),
                     /*keepAlive=*/false, /*head=*/false);
    if (!text.empty()) {
        co_await within(kTellLimit, channel.write(bytesOf(text)), "takes no answer");
        co_return;
    }
    text = headOfAll(answer) + "retry: 2000\n\n";
    if (hearer.station.empty()) {
        // What others are told next is told to this one as well.
        if (std::ranges::none_of(hearers_, [](const Hearer* h) { return h->station.empty(); }))
            told_ = view_.summaries();
        text += eventText("fleet", fleetJson(view_, told_, {}));
    } else {
        text += eventText("station", *view_.station(hearer.station));
    }
    struct Here {
        std::set<Hearer*>& all;
        Hearer* one;
        Here(std::set<Hearer*>& among, Hearer* who) : all(among), one(who) { all.insert(one); }
        ~Here() { all.erase(one); }
    } const here(hearers_, &hearer);
    hearer.channel = &channel;
    hearer.outbox.put(shared(text));
    const auto write = [](Hearer& to) -> awaitable<void> {
        for (;;) {
            const SharedBytes bytes = co_await to.outbox.next();
            co_await within(kTellLimit, to.channel->write(*bytes), "does not read");
        }
    };
    const auto listen = [](Channel& from) -> awaitable<void> {
        std::array<std::uint8_t, 256> nothing;
        while (co_await from.read(nothing) > 0) {
        }
    };
    co_await firstOf(write(hearer), listen(channel));
}

void WebServer::tick() {
    if (hearers_.empty())
        return;
    std::map<std::string, SharedBytes> texts; // by station
    const bool keepAlive = ++quiet_ >= kQuietTicks;
    for (const Hearer* hearer : hearers_) {
        if (texts.contains(hearer->station))
            continue;
        std::string text;
        if (hearer->station.empty()) {
            std::map<std::string, std::string> now = view_.summaries(), changed;
            std::vector<std::string> removed;
            for (const auto& [name, summary] : now)
                if (const auto before = told_.find(name);
                    before == told_.end() || before->second != summary)
                    changed.emplace(name, summary);
            for (const auto& [name, summary] : told_)
                if (!now.contains(name))
                    removed.push_back(name);
            if (!changed.empty() || !removed.empty())
                text = eventText("fleet", fleetJson(view_, changed, removed));
            told_ = std::move(now);
        } else if (const auto json = view_.station(hearer->station)) {
            text = eventText("station", *json);
        }
        if (text.empty() && keepAlive)
            text = ": nothing changes\n\n";
        texts[hearer->station] = text.empty() ? nullptr : shared(text);
    }
    if (keepAlive)
        quiet_ = 0;
    for (Hearer* hearer : hearers_)
        if (const SharedBytes& text = texts[hearer->station]; text && !hearer->outbox.put(text))
            hearer->channel->close(); // it comes again, and gets everything
}

} // namespace gateway
