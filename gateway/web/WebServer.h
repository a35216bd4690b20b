#pragma once

#include "gateway/net/Listeners.h"
#include "gateway/net/Outbox.h"
#include "gateway/net/Tasks.h"
#include "gateway/settings/Settings.h"
#include "gateway/settings/Users.h"
#include "gateway/web/WebRequest.h"

#include <boost/asio/any_io_executor.hpp>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

/// WebServer: the page, the API and the metrics, by HTTP 1.1. Everything is read only.

namespace gateway {

/// What there is to see; JSON as gateway/web/openapi.json describes it.
class WebView {
public:
    /// Of a fleet, without stations and alarms: JSON members, no braces.
    virtual std::string fleetHead() const = 0;
    /// Those that hold: a JSON array.
    virtual std::string alarms() const = 0;
    /// The summary of every station, by name.
    virtual std::map<std::string, std::string> summaries() const = 0;
    /// Nothing where there is no such station.
    virtual std::optional<std::string> station(const std::string& name) const = 0;
    virtual std::optional<std::string> events(const std::optional<std::string>& station) const = 0;
    /// Text format 0.0.4 of Prometheus.
    virtual std::string metrics() const = 0;
    /// Stations that have not been tried yet.
    virtual std::vector<std::string> untried() const = 0;

protected:
    ~WebView() = default;
};

using WebText = std::shared_ptr<const std::string>;
struct WebAnswer;

class WebServer {
public:
    /// Beyond these whoever has kept us waiting the longest has to go.
    static constexpr std::size_t kMostConnections = 1000;
    static constexpr std::size_t kMostListeners = 200; // to what happens

    /// Whether a user may look; it takes the time of a hash.
    using Admits =
        std::function<awaitable<Login>(std::string address, std::string user, Secret password)>;
    WebServer(const asio::any_io_executor& executor, const WebView& view, Admits admits);

    /// Opens and closes listeners; one that cannot be opened is told, and tried again.
    void apply(const WebSettings& settings);
    void stop();
    bool idle() const { return listeners_.idle() && conversations_.idle(); }
    /// Who listen to what happens.
    std::size_t hearers() const { return hearers_.size(); }
    /// Once a second: tells those who listen.
    void tick();
    /// With one peer, until it ends.
    awaitable<void> converse(ChannelPtr channel, std::string address);

private:
    struct Page {
        WebText content;
        std::string tag; // ETag
    };
    struct Conversation {
        Channel& channel;
        std::optional<Instant> waits; // for the peer, since then
        bool hears = false;
    };
    /// Who hears of the fleet, or of one station.
    struct Hearer {
        Hearer(const asio::any_io_executor& executor, Conversation& by, std::string of)
            : conversation(by), station(std::move(of)), outbox(executor, kMostWaiting) {}
        static constexpr std::size_t kMostWaiting = std::size_t{8} << 20; // shared by all
        Conversation& conversation;
        std::string station; // empty: the fleet
        Outbox outbox;
    };

    awaitable<bool> answer(Conversation& with, const WebRequest& request,
                           const std::string& address);
    awaitable<void> tellLive(Conversation& with, const WebRequest& request);
    WebAnswer answerTo(const WebRequest& request);
    /// What `make` makes, or made for another one since the last tick who has not got it all yet.
    WebText sharedText(const std::string& name,
                       const std::function<std::optional<std::string>()>& make);
    /// Whether one had to go: of those who hear, or of all.
    bool makeRoom(bool ofHearers);

    asio::any_io_executor executor_;
    const WebView& view_;
    Admits admits_;
    WebSettings settings_;
    std::map<std::string_view, Page> pages_; // by path
    Listeners listeners_;
    std::set<Conversation*> open_;
    std::map<std::string, std::weak_ptr<const std::string>> texts_; // answers, since the last tick
    std::set<Hearer*> hearers_;
    std::map<std::string, std::string> told_; // summaries, as the hearers of the fleet know them
    std::string toldAlarms_;                  // the same
    unsigned quiet_ = 0;                      // ticks without a word
    Tasks conversations_;
};

} // namespace gateway
