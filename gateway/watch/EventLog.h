#pragma once

#include "base/Print.h"

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

/// EventLog: the last lines that the gateway has printed, for those who look on from afar. Every
/// line goes on to where it went.

namespace gateway {

struct Event {
    std::uint64_t number = 0; // counts up from 1
    double atUnixS = 0.0;
    std::string station; // empty: the gateway
    Level level = Level::info;
    std::string text; // printable
};

class EventLog final : public PrintTarget {
public:
    static constexpr std::size_t kMost = 1000;

    explicit EventLog(PrintTarget& next) : next_(next) {}

    /// The oldest first.
    const std::deque<Event>& events() const { return events_; }

    void take(Level level, std::string_view text) override;
    void take(const Lasting& what, std::string_view text) override { next_.take(what, text); }
    void epochEnd() override { next_.epochEnd(); }
    void ended(Cause cause) override { next_.ended(cause); }
    void flush() override { next_.flush(); }
    void lastLine() override { next_.lastLine(); }
    std::uint64_t droppedLines() const override { return next_.droppedLines(); }

private:
    void keep(Level level, std::string_view line);

    PrintTarget& next_;
    std::deque<Event> events_;
    std::uint64_t count_ = 0;
};

} // namespace gateway
