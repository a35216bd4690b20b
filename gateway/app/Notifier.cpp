#include "gateway/app/Notifier.h"

#include "ctl/status/StatusFile.h"
#include "gateway/net/Attempts.h"
#include "gateway/net/Channel.h"
#include "gateway/net/Say.h"
#include "gateway/ntrip/Head.h"
#include "gateway/ntrip/HttpAnswer.h"
#include "gateway/station/Child.h"
#include "gateway/web/Reports.h"

#include <boost/beast/http.hpp>
#include <boost/url.hpp>

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
    : forWebhook_{"the webhook", Bell(executor)}, forCommand_{"the command", Bell(executor)},
      tasks_(executor, [](const std::string& why) { sayOf(Level::error, why); }) {
    tasks_.start(callWebhook());
    tasks_.start(runCommand());
}

void Notifier::apply(const AlarmSettings& settings) {
    settings_ = settings;
    if (settings_.webhook.empty())
        forWebhook_.notices.clear();
    if (settings_.command.empty())
        forCommand_.notices.clear();
}

void Notifier::tell(const Alarm& alarm, bool begins) {
    const Notice notice{alarm, begins, alarmJson(alarm, begins, ctl::status::nowUnixS())};
    if (!settings_.webhook.empty())
        forWebhook_.put(notice);
    if (!settings_.command.empty())
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

awaitable<void> Notifier::callWebhook() {
    const auto state = co_await asio::this_coro::cancellation_state;
    for (;;) {
        const Notice notice = co_await forWebhook_.next();
        Duration wait = kFirstWait;
        for (int tries = 1; !settings_.webhook.empty();
             ++tries, wait = std::min(2 * wait, kMostWait)) {
            const Ending end = co_await endOf(within(kLimit, post(notice.json), "no answer"));
            if (isCancelled(state))
                co_return;
            if (end.why.empty())
                break;
            const bool last = tries == kMostTries;
            sayOf(Level::warning, "the webhook: " + end.why +
                                      (last ? "; given up" : "; again in " + inSeconds(wait)));
            if (last)
                break;
            co_await pause(wait);
        }
    }
}

awaitable<void> Notifier::post(std::string json) {
    const boost::urls::url url = boost::urls::parse_uri(settings_.webhook).value();
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
        throw std::runtime_error("it answers with " + std::to_string(status));
}

awaitable<void> Notifier::runCommand() {
    const auto state = co_await asio::this_coro::cancellation_state;
    const auto executor = co_await asio::this_coro::executor;
    for (;;) {
        const Notice notice = co_await forCommand_.next();
        const Alarm& alarm = notice.alarm;
        const std::vector<std::string> arguments{
            notice.begins ? "begins" : "ends", std::string(nameOf(alarm.kind)),
            alarm.station.empty() ? "-" : alarm.station, alarm.text};
        std::string why;
        try {
            const Say sayOfCommand = [this](Level level, const std::string& text) {
                sayOf(level, settings_.command.string() + ": " + text);
            };
            Child child(executor, settings_.command, arguments, sayOfCommand);
            const Ending end = co_await endOf(within(kCommandLimit, child.end(), "takes too long"));
            why = end.why;
        } catch (const std::exception& e) {
            why = reasonOf(e);
        }
        if (isCancelled(state))
            co_return;
        if (!why.empty() && why != kEndedWell)
            sayOf(Level::warning, settings_.command.string() + ": " + why);
    }
}

} // namespace gateway
