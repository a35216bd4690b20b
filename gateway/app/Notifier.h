#pragma once

#include "gateway/net/Outbox.h"
#include "gateway/net/Tasks.h"
#include "gateway/settings/Settings.h"
#include "gateway/watch/Alarms.h"

#include <boost/asio/any_io_executor.hpp>

#include <deque>
#include <string>

/// Notifier: calls somebody when an alarm begins or ends: a webhook (POST of a JSON object, tried
/// again with growing waits) and a command (COMMAND begins|ends KIND STATION TEXT; STATION is "-"
/// for one of the gateway), both one after the other, in order. What waits is bounded: the oldest
/// is dropped, which is told.

namespace gateway {

class Notifier {
public:
    static constexpr std::size_t kMostWaiting = 10'000; // every alarm of a thousand stations

    explicit Notifier(const asio::any_io_executor& executor);

    void apply(const AlarmSettings& settings);
    void tell(const Alarm& alarm, bool begins);
    void stop() { tasks_.cancel(); }
    bool idle() const { return tasks_.idle(); }

private:
    struct Notice {
        Alarm alarm;
        bool begins;
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
    awaitable<void> callWebhook();
    awaitable<void> runCommand();
    awaitable<void> post(std::string json);

    AlarmSettings settings_;
    Queue forWebhook_, forCommand_;
    Tasks tasks_;
};

} // namespace gateway
