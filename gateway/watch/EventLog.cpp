#include "gateway/watch/EventLog.h"

#include "ctl/dump/Fields.h"
#include "ctl/status/StatusFile.h"

#include <algorithm>
#include <utility>

namespace gateway {

namespace {

constexpr std::size_t kLongestText = 500; // bytes

} // namespace

/// Each line is "NAME: text" (Say), or a text alone.
void EventLog::take(Level level, std::string_view text) {
    next_.take(level, text);
    if (level == Level::debug)
        return;
    for (; !text.empty(); text.remove_prefix(std::min(text.size(), text.find('\n')))) {
        text.remove_prefix(text.front() == '\n' ? 1 : 0);
        if (const std::string_view line = text.substr(0, text.find('\n')); !line.empty())
            keep(level, line);
    }
}

void EventLog::keep(Level level, std::string_view line) {
    Event event{++count_, ctl::status::nowUnixS(), {}, level, {}};
    if (const std::size_t colon = line.find(": "); colon < line.find(' ')) {
        event.station = ctl::dump::clean(line.substr(0, colon));
        line.remove_prefix(colon + 2);
    }
    event.text = ctl::dump::clean(line.substr(0, kLongestText));
    events_.push_back(std::move(event));
    if (events_.size() > kMost)
        events_.pop_front();
}

} // namespace gateway
