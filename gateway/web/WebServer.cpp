#include "gateway/web/WebServer.h"

#include "gateway/net/Say.h"
#include "gateway/ntrip/Head.h"
#include "gateway/ntrip/Request.h"
#include "gateway/web/PageFile.h"
#include "gnss/Clock.h"

#include <boost/beast/http.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <sstream>
#include <utility>

namespace gateway {

using namespace std::chrono_literals;
using boost::system::error_code;
namespace http = boost::beast::http;
using Head = http::response<http::empty_body>;

struct WebAnswer {
    Head head;
    WebText body; // null where there is none
};

namespace {

constexpr Duration kRequestLimit = 10s;
constexpr Duration kIdleLimit = 60s;       // of a connection between two requests
constexpr Duration kTellLimit = 30s;       // for an answer
constexpr Duration kPassOverLimit = 500ms; // for a peer that is refused to read why
constexpr int kSendBytes = 256 * 1024;     // that wait in the kernel
constexpr unsigned kQuietTicks = 10;       // then a comment keeps the stream alive
constexpr std::string_view kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
    "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

WebAnswer answerOf(http::status status, std::string_view type, WebText body) {
    WebAnswer answer{Head{status, 11}, std::move(body)};
    answer.head.set(http::field::content_type, type);
    answer.head.set(http::field::cache_control, "no-store");
    return answer;
}

WebAnswer plain(http::status status, std::string text) {
    return answerOf(status, "text/plain; charset=utf-8",
                    std::make_shared<const std::string>(std::move(text)));
}

WebAnswer problem(http::status status, const std::string& what) {
    return answerOf(
        status, "application/json",
        std::make_shared<const std::string>(nlohmann::json{{"error", what}}.dump() + "\n"));
}

std::string headText(Head head) {
    head.set(http::field::date, ntrip::httpDate(utcNow().time));
    head.set(http::field::server, "kestrune-gateway");
    head.set("Content-Security-Policy", kPolicy);
    head.set("X-Content-Type-Options", "nosniff");
    head.set("Referrer-Policy", "no-referrer");
    std::ostringstream out;
    out << head.base();
    return std::move(out).str();
}

/// One of a set while it lives.
template <class T> class Among {
public:
    Among(std::set<T*>& all, T& one) : all_(all), one_(&one) { all_.insert(one_); }
    ~Among() { all_.erase(one_); }
    Among(const Among&) = delete;
    Among& operator=(const Among&) = delete;

private:
    std::set<T*>& all_;
    T* one_;
};

awaitable<void> send(Channel& channel, WebAnswer answer, bool keepAlive, bool headAlone) {
    answer.head.keep_alive(keepAlive);
    answer.head.content_length(answer.body ? answer.body->size() : 0);
    const std::string head = headText(answer.head);
    co_await channel.write(bytesOf(head));
    if (answer.body && !headAlone)
        co_await channel.write(bytesOf(*answer.body));
}

std::string eventText(const char* kind, const std::string& json) {
    return std::string("event: ") + kind + "\ndata: " + json + "\n\n";
}

SharedBytes shared(const std::string& text) {
    return std::make_shared<const Bytes>(text.begin(), text.end());
}

std::string fleetJson(const WebView& view, const std::map<std::string, std::string>& summaries,
                      const std::vector<std::string>& removed) {
    std::string out = "{" + view.fleetHead() + ",\"alarms\":" + view.alarms() + ",\"stations\":[";
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

/// Nothing where the client goes; without its end where the head is too long.
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
            co_return held.substr(0, ntrip::kLongestHead);
        const std::size_t n = co_await channel.read(buffer);
        if (n == 0)
            co_return std::nullopt;
        held += textOf(std::span(buffer).first(n));
    }
}

/// Until the peer has gone: what it sends is nothing to us.
awaitable<void> passOver(Channel& channel) {
    std::array<std::uint8_t, 2048> nothing;
    while (co_await channel.read(nothing) > 0) {
    }
}

WebAnswer refusalOf(const WebRefusal& why) {
    WebAnswer out = problem(why.status, std::string(why.why));
    if (why.status == http::status::method_not_allowed)
        out.head.set(http::field::allow, "GET, HEAD");
    return out;
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
                     error_code gone;
                     const std::string address =
                         addressOf(socket.remote_endpoint(gone)).to_string();
                     if (gone || (open_.size() >= kMostConnections && !makeRoom(false)))
                         return;
                     error_code none; // the kernel doubles it
                     socket.set_option(asio::socket_base::send_buffer_size(kSendBytes / 2), none);
                     conversations_.start(converse(channelOf(std::move(socket)), address));
                 }),
      conversations_(executor, [](const std::string&) {}) {
    for (const PageFile& file : pageFiles())
        pages_[file.path] = {std::make_shared<const std::string>(file.content),
                             "\"" + std::to_string(std::hash<std::string_view>{}(file.content)) +
                                 "\""};
}

/// The stations work without it. Who may look may have changed: those who listen come again.
void WebServer::apply(const WebSettings& settings) {
    settings_ = settings;
    for (Hearer* const hearer : hearers_)
        hearer->conversation.channel.close();
    for (const std::string& failure : listeners_.apply(settings_.listen))
        say(Level::warning, "page", failure);
}

void WebServer::stop() {
    listeners_.stop();
    conversations_.cancel();
}

bool WebServer::makeRoom(bool ofHearers) {
    Conversation* slowest = nullptr;
    for (Conversation* one : open_)
        if (one->waits && (one->hears || !ofHearers) && (!slowest || *one->waits < *slowest->waits))
            slowest = one;
    if (!slowest)
        return false;
    slowest->waits.reset(); // once is enough
    slowest->channel.close();
    return true;
}

awaitable<void> WebServer::converse(ChannelPtr channel, std::string address) {
    Conversation conversation{*channel, std::chrono::steady_clock::now()};
    const Among here(open_, conversation);
    std::string held;
    for (Duration limit = kRequestLimit;; limit = kIdleLimit) {
        const std::optional<std::string> head =
            co_await within(limit, readHead(*channel, held), "no request");
        if (!head)
            co_return;
        conversation.waits = std::chrono::steady_clock::now();
        const ParsedWeb parsed = parseWebRequest(*head);
        if (parsed.refusal) {
            co_await within(kTellLimit, send(*channel, refusalOf(*parsed.refusal), false, false),
                            "takes no answer");
            // Closed with something unread, the connection would be reset and the answer lost.
            co_await within(kPassOverLimit, passOver(*channel), "goes on");
            co_return;
        }
        if (!co_await answer(conversation, parsed.request, address))
            co_return;
        conversation.waits = std::chrono::steady_clock::now();
    }
}

/// Whether the connection goes on.
awaitable<bool> WebServer::answer(Conversation& with, const WebRequest& request,
                                  const std::string& address) {
    const bool open = request.path == "/healthz" || request.path == "/readyz";
    std::optional<WebAnswer> out;
    if (settings_.access == WebSettings::Access::machine && !isLoopbackName(request.host)) {
        out.emplace(problem(http::status::misdirected_request, "this page is for this machine"));
    } else if (settings_.access == WebSettings::Access::users && !open) {
        auto login = Login::wrong;
        if (request.named)
            login = co_await admits_(address, request.user, request.password);
        if (login == Login::lockedOut) {
            out.emplace(problem(http::status::too_many_requests, std::string(ntrip::kLockedOut)));
            out->head.set(http::field::retry_after, "60");
        } else if (login == Login::wrong) {
            out.emplace(problem(http::status::unauthorized, "a user of the caster is asked for"));
            out->head.set(http::field::www_authenticate,
                          "Basic realm=\"Kestrune\", charset=\"UTF-8\"");
        }
    }
    if (!out && request.path == "/api/v1/live" && !request.head) {
        co_await tellLive(with, request);
        co_return false;
    }
    if (!out)
        out.emplace(answerTo(request));
    co_await within(kTellLimit,
                    send(with.channel, std::move(*out), request.keepAlive, request.head),
                    "takes no answer");
    co_return request.keepAlive;
}

WebText WebServer::sharedText(const std::string& name,
                              const std::function<std::optional<std::string>()>& make) {
    if (const auto made = texts_.find(name); made != texts_.end())
        if (WebText text = made->second.lock())
            return text;
    std::optional<std::string> fresh = make();
    if (!fresh)
        return nullptr;
    WebText text = std::make_shared<const std::string>(*std::move(fresh));
    texts_[name] = text;
    return text;
}

WebAnswer WebServer::answerTo(const WebRequest& request) {
    constexpr std::string_view kStation = "/api/v1/stations/";
    const auto& path = request.path;
    const auto json = [&](const std::string& of, const auto& make) {
        WebText text = sharedText(path + '?' + of, make);
        return text ? answerOf(http::status::ok, "application/json", std::move(text))
                    : problem(http::status::not_found, "there is no such station");
    };
    if (path == "/api/v1/stations")
        return json("", [&] { return std::optional(fleetJson(view_, view_.summaries(), {})); });
    if (path.starts_with(kStation))
        return json("", [&] { return view_.station(path.substr(kStation.size())); });
    if (path == "/api/v1/events") {
        const auto of = request.query.find("station");
        if (of == request.query.end())
            return json("", [&] { return view_.events(std::nullopt); });
        return json(of->second, [&] { return view_.events(of->second); });
    }
    if (path == "/metrics")
        return answerOf(http::status::ok, "text/plain; version=0.0.4; charset=utf-8",
                        sharedText(path, [&] { return std::optional(view_.metrics()); }));
    if (path == "/healthz")
        return plain(http::status::ok, "works\n");
    if (path == "/readyz") {
        std::string missing;
        for (const std::string& name : view_.untried())
            missing += name + " has not been tried yet\n";
        return missing.empty() ? plain(http::status::ok, "ready\n")
                               : plain(http::status::service_unavailable, missing);
    }
    const std::string_view name = path == "/" ? "index.html"
                                  : path.starts_with("/station/")
                                      ? "station.html"
                                      : std::string_view(path).substr(1);
    const auto page = pages_.find(name);
    if (page == pages_.end())
        return problem(http::status::not_found, "there is nothing here");
    const bool same = request.sameAs == page->second.tag;
    WebAnswer out = answerOf(same ? http::status::not_modified : http::status::ok,
                             mediaTypeOf(name), same ? nullptr : page->second.content);
    out.head.set(http::field::cache_control, "no-cache");
    out.head.set(http::field::etag, page->second.tag);
    return out;
}

awaitable<void> WebServer::tellLive(Conversation& with, const WebRequest& request) {
    const auto of = request.query.find("station");
    Hearer hearer(executor_, with, of == request.query.end() ? std::string() : of->second);
    std::optional<WebAnswer> refusal;
    if (!hearer.station.empty() && !view_.station(hearer.station))
        refusal.emplace(problem(http::status::not_found, "there is no such station"));
    else if (hearers_.size() >= kMostListeners && !makeRoom(true))
        refusal.emplace(problem(http::status::service_unavailable, "too many listen already"));
    if (refusal) {
        co_await within(kTellLimit, send(with.channel, std::move(*refusal), false, false),
                        "takes no answer");
        co_return;
    }
    Head head{http::status::ok, 11};
    head.set(http::field::content_type, "text/event-stream");
    head.set(http::field::cache_control, "no-store");
    head.keep_alive(false);
    std::string text = headText(head) + "retry: 2000\n\n";
    if (hearer.station.empty()) {
        // What others are told next is told to this one as well.
        if (std::ranges::none_of(hearers_, [](const Hearer* h) { return h->station.empty(); })) {
            told_ = view_.summaries();
            toldAlarms_ = view_.alarms();
        }
        text += eventText("fleet", fleetJson(view_, told_, {}));
    } else {
        text += eventText("station", *view_.station(hearer.station));
    }
    const Among here(hearers_, hearer);
    with.hears = true;
    // What comes meanwhile waits beside the first text, however long that is.
    const auto write = [](Hearer& to, std::string first) -> awaitable<void> {
        SharedBytes bytes = shared(first);
        first = {};
        for (;;) {
            to.conversation.waits = std::chrono::steady_clock::now();
            co_await within(kTellLimit, to.conversation.channel.write(*bytes), "does not read");
            to.conversation.waits.reset();
            bytes = co_await to.outbox.next();
        }
    };
    co_await firstOf(write(hearer, std::move(text)), passOver(with.channel));
}

void WebServer::tick() {
    listeners_.openMissing();
    texts_.clear();
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
            std::string alarms = view_.alarms();
            if (!changed.empty() || !removed.empty() || alarms != toldAlarms_)
                text = eventText("fleet", fleetJson(view_, changed, removed));
            told_ = std::move(now);
            toldAlarms_ = std::move(alarms);
        } else if (const auto json = view_.station(hearer->station)) {
            text = eventText("station", *json);
        }
        if (text.empty() && keepAlive)
            text = ": nothing changes\n\n";
        texts[hearer->station] = text.empty() ? nullptr : shared(text);
    }
    if (keepAlive)
        quiet_ = 0;
    for (Hearer* hearer : hearers_) {
        const SharedBytes& text = texts[hearer->station];
        if (text && !hearer->station.empty())
            hearer->outbox.clear(); // each is whole: the newest is enough for who is slow
        if (text && !hearer->outbox.put(text))
            hearer->conversation.channel.close(); // it comes again, and gets everything
    }
}

} // namespace gateway
