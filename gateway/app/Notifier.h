#pragma once

#include "gateway/net/Outbox.h"
#include "gateway/net/Tasks.h"
#include "gateway/settings/Settings.h"
#include "gateway/watch/Alarms.h"

#include <boost/asio/any_io_executor.hpp>

#include <deque>
#include <list>
#include <string>

/// Notifier: calls somebody when an alarm begins or ends: webhooks (POST of a JSON object; tried
/// again with growing waits where that may help) and a command (COMMAND begins|ends KIND STATION
/// TEXT; STATION is "-" for one of the gateway). Each gets one after the other, in order, and waits
/// for no other. What waits is bounded: the oldest is dropped, which is told.

namespace gateway {

class Notifier {
public:
    static constexpr std::size_t kMostWaiting = 10'000; // every alarm of a thousand stations

    explicit Notifier(const asio::any_io_executor& executor);

    void apply(const Settings& settings);
    void tell(const Alarm& alarm);
    void stop();
    bool idle() const;

private:
    struct Notice {
        Alarm alarm;
        std::string json;
    };
    struct Queue {
        std::string name;
        Bell filled;
        std::deque<Notice> notices{};
        bool toldDropped = false;
        void put(const Notice& notice);
        awaitable<Notice> next();
    };
    /// A receiver; it is kept until it is idle.
    class Webhook {
    public:
        Webhook(const asio::any_io_executor& executor, std::string url);
        const std::string& url() const { return url_; }
        void put(const Notice& notice) { queue_.put(notice); }
        /// Tells what is not sent any more.
        void leave();
        void stop() { tasks_.cancel(); }
        bool idle() const { return tasks_.idle(); }

    private:
        awaitable<void> call();
        awaitable<void> post(std::string json);
        std::string url_;
        Queue queue_;
        bool calls_ = false; // with an alarm that waits no longer in the queue
        Tasks tasks_;
    };
    awaitable<void> runCommand();

    asio::any_io_executor executor_;
    std::string name_; // of the gateway
    std::filesystem::path command_;
    std::list<Webhook> webhooks_, leaving_;
    Queue forCommand_;
    Tasks tasks_; // of the command
};

} // namespace gateway
