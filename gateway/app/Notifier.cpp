#include "gateway/app/Notifier.h"

#include "ctl/status/StatusFile.h"
#include "gateway/net/Attempts.h"
#include "gateway/net/Channel.h"
#include "gateway/net/Say.h"
#include "gateway/ntrip/Head.h"
#include "gateway/ntrip/HttpAnswer.h"
#include "gateway/station/Child.h"
#include "gateway/web/Reports.h"

#include <boost/asio/ip/host_name.hpp>
#include <boost/beast/http.hpp>
#include <boost/url.hpp>

#include <algorithm>
#include <array>
#include <sstream>
#include <utility>

namespace gateway {

using namespace std::chrono_literals;
namespace http = boost::beast::http;

namespace {

constexpr Duration kLimit = 10s; // of a call, also for the connect
constexpr Duration kFirstWait = 2s, kMostWait = 5min;
constexpr int kMostTries = 10;
constexpr Duration kCommandLimit = 30s;

void sayOf(Level level, const std::string& text) {
    say(level, "alarms", text);
}

/// Neither path nor password, which may be secrets.
std::string originOf(const std::string& address) {
    const boost::urls::url url = boost::urls::parse_uri(address).value();
    return std::string(url.scheme()) + "://" + std::string(url.encoded_host_and_port());
}

/// "moved of CANB begins".
std::string noticeText(const Alarm& alarm) {
    return titleOf(alarm.kind) + (alarm.station.empty() ? "" : " of " + alarm.station) +
           (alarm.lasted ? " ends" : " begins");
}

/// Whether the same request may be taken later (RFC 9110 15.5.9, 15.6; RFC 6585 4).
bool mayHelp(int status) {
    return status >= 500 || status == 408 || status == 429;
}

awaitable<int> statusOf(Channel& channel) {
    std::array<std::uint8_t, 1024> buffer;
    std::string held;
    while (held.find("\r\n\r\n") == std::string::npos) {
        const std::size_t n = co_await channel.read(buffer);
        if (n == 0 || held.size() > ntrip::kLongestHead)
            throw std::runtime_error("no answer of HTTP");
        held += textOf(std::span(buffer).first(n));
    }
    ntrip::HttpAnswer answer;
    if (answer.takeHead(held.substr(0, held.find("\r\n\r\n") + 4)) == ntrip::BodyState::malformed)
        throw std::runtime_error("no answer of HTTP");
    co_return answer.status;
}

} // namespace

Notifier::Notifier(const asio::any_io_executor& executor)
    : executor_(executor), forCommand_{"the command", Bell(executor)},
      tasks_(executor, [](const std::string& why) { sayOf(Level::error, why); }) {
    tasks_.start(runCommand());
}

void Notifier::apply(const Settings& settings) {
    name_ = settings.name.empty() ? asio::ip::host_name() : settings.name;
    command_ = settings.alarms.command;
    if (command_.empty())
        forCommand_.notices.clear();
    const auto& wanted = settings.alarms.webhooks;
    leaving_.remove_if([](const Webhook& hook) { return hook.idle(); });
    for (auto next = webhooks_.begin(); next != webhooks_.end();) {
        const auto hook = next++;
        if (std::ranges::count(wanted, hook->url()) > 0)
            continue;
        hook->leave();
        leaving_.splice(leaving_.end(), webhooks_, hook);
    }
    for (const std::string& url : wanted)
        if (std::ranges::count(webhooks_, url, &Webhook::url) == 0)
            webhooks_.emplace_back(executor_, url);
}

void Notifier::stop() {
    tasks_.cancel();
    for (Webhook& hook : webhooks_)
        hook.stop();
}

bool Notifier::idle() const {
    return tasks_.idle() && std::ranges::all_of(webhooks_, &Webhook::idle) &&
           std::ranges::all_of(leaving_, &Webhook::idle);
}

void Notifier::tell(const Alarm& alarm) {
    const Notice notice{alarm, alarmJson(alarm, name_, ctl::status::nowUnixS())};
    for (Webhook& hook : webhooks_)
        hook.put(notice);
    if (!command_.empty())
        forCommand_.put(notice);
}

void Notifier::Queue::put(const Notice& notice) {
    notices.push_back(notice);
    if (notices.size() > kMostWaiting) {
        notices.pop_front();
        if (!std::exchange(toldDropped, true))
            sayOf(Level::warning, name + " does not keep up: of " + std::to_string(kMostWaiting) +
                                      " alarms that wait the oldest are dropped");
    }
    filled.ring();
}

awaitable<Notifier::Notice> Notifier::Queue::next() {
    while (notices.empty())
        co_await filled.wait();
    Notice notice = std::move(notices.front());
    notices.pop_front();
    toldDropped = toldDropped && !notices.empty();
    co_return notice;
}

Notifier::Webhook::Webhook(const asio::any_io_executor& executor, std::string url)
    : url_(std::move(url)), queue_{"the webhook " + originOf(url_), Bell(executor)},
      tasks_(executor, [](const std::string& why) { sayOf(Level::error, why); }) {
    tasks_.start(call());
}

void Notifier::Webhook::leave() {
    if (const std::size_t waiting = queue_.notices.size() + (calls_ ? 1 : 0); waiting > 0)
        sayOf(Level::warning, queue_.name +
                                  " is called no longer; alarms that waited and are dropped: " +
                                  std::to_string(waiting));
    stop();
}

awaitable<void> Notifier::Webhook::call() {
    const auto state = co_await asio::this_coro::cancellation_state;
    for (;;) {
        calls_ = false;
        const Notice notice = co_await queue_.next();
        calls_ = true;
        Duration wait = kFirstWait;
        for (int tries = 1;; ++tries, wait = std::min(2 * wait, kMostWait)) {
            const Ending end = co_await endOf(within(kLimit, post(notice.json), "no answer"));
            if (isCancelled(state))
                co_return;
            if (end.why.empty())
                break;
            const bool last = tries == kMostTries || end.manner == Manner::refused;
            sayOf(Level::warning, queue_.name + ": " + end.why +
                                      (last ? "; dropped: " + noticeText(notice.alarm)
                                            : "; again in " + inSeconds(wait)));
            if (last)
                break;
            co_await pause(wait);
        }
    }
}

awaitable<void> Notifier::Webhook::post(std::string json) {
    const boost::urls::url url = boost::urls::parse_uri(url_).value();
    const bool tls = url.scheme_id() == boost::urls::scheme::https;
    const HostPort host{url.host_address(), url.has_port()
                                                ? url.port_number()
                                                : static_cast<std::uint16_t>(tls ? 443 : 80)};
    ChannelPtr channel;
    if (tls)
        channel = co_await connectTlsTo(host, std::nullopt, kLimit);
    else
        channel = co_await connectTo(host, std::nullopt, kLimit);
    const std::string target(url.encoded_target());
    http::request<http::string_body> request{http::verb::post, target.empty() ? "/" : target, 11};
    request.set(http::field::host, std::string(url.encoded_host_and_port()));
    request.set(http::field::user_agent, "kestrune-gateway");
    request.set(http::field::content_type, "application/json");
    if (url.has_userinfo())
        request.set(http::field::authorization,
                    "Basic " + ntrip::base64(url.user() + ":" + url.password()));
    request.keep_alive(false);
    request.body() = std::move(json);
    request.prepare_payload();
    std::ostringstream out;
    out << request;
    const std::string text = std::move(out).str();
    co_await channel->write(bytesOf(text));
    const int status = co_await statusOf(*channel);
    if (status < 200 || status > 299)
        throw ConversationEnd("it answers with " + std::to_string(status),
                              mayHelp(status) ? Manner::soon : Manner::refused);
}

awaitable<void> Notifier::runCommand() {
    const auto state = co_await asio::this_coro::cancellation_state;
    const auto executor = co_await asio::this_coro::executor;
    for (;;) {
        const Notice notice = co_await forCommand_.next();
        const Alarm& alarm = notice.alarm;
        const std::vector<std::string> arguments{
            alarm.lasted ? "ends" : "begins", std::string(nameOf(alarm.kind)),
            alarm.station.empty() ? "-" : alarm.station, wordsOf(alarm)};
        std::string why;
        try {
            const Say sayOfCommand = [this](Level level, const std::string& text) {
                sayOf(level, command_.string() + ": " + text);
            };
            Child child(executor, command_, arguments, sayOfCommand);
            const Ending end = co_await endOf(within(kCommandLimit, child.end(), "takes too long"));
            why = end.why;
        } catch (const std::exception& e) {
            why = reasonOf(e);
        }
        if (isCancelled(state))
            co_return;
        if (!why.empty() && why != kEndedWell)
            sayOf(Level::warning, command_.string() + ": " + why);
    }
}

} // namespace gateway
