#include "gateway/watch/Alarms.h"

#include "base/Findings.h"
#include "ctl/status/StatusFile.h"

#include <algorithm>

namespace gateway {

using namespace std::chrono_literals;

namespace {

constexpr std::size_t kMostRepeated = 10'000;

/// How long it must have been wrong before the alarm begins, and right before it ends.
struct Hold {
    std::string_view name;
    Duration begins, ends;
    std::string_view advice = {}; // beside what the text says
};
constexpr std::array<Hold, kAlarmKinds> kHolds{{
    {"no_epochs", 10s, 10s}, // after 30 s of silence: another source may take over
    {"few_satellites", 60s, 60s},
    {"system_gone", 60s, 60s},
    {"delay", 30s, 60s},
    {"moved", 0s, 60s, // two stations may be mixed in one stream
     "nothing goes to rovers until the stream states the position of before, the configuration is "
     "read again (SIGHUP), or position = \"follow\" is written"},
    {"audit", 0s, 60s},
    {"clock", 30s, 60s},
    {"leap_seconds", 0s, 0s, "install a newer package"},
    {"certificate", 0s, 0s},
    {"disk", 10s, 60s},
    {"engine", 0s, 60s},
    {"rovers_cut", 0s, 60s},
}};
const Hold& holdOf(AlarmKind kind) {
    return kHolds[static_cast<std::size_t>(kind)];
}

} // namespace

std::string_view nameOf(AlarmKind kind) {
    return holdOf(kind).name;
}

std::string titleOf(AlarmKind kind) {
    std::string title(nameOf(kind));
    std::ranges::replace(title, '_', ' ');
    return title;
}

std::string wordsOf(const Alarm& alarm) {
    if (alarm.lasted)
        return "lasted " + spanText(*alarm.lasted) + "; last: " + alarm.text;
    const std::string advice(holdOf(alarm.kind).advice);
    return advice.empty() ? alarm.text : alarm.text + ": " + advice;
}

std::string spanText(Duration span) {
    const double s = std::chrono::duration<double>(span).count();
    return s < 120.0      ? text("%.0f s", s)
           : s < 7200.0   ? text("%.0f min", s / 60.0)
           : s < 172800.0 ? text("%.1f h", s / 3600.0)
                          : text("%.1f days", s / 86400.0);
}

std::size_t Repeated::look(std::uint64_t count, std::size_t tooOften, Instant now, Duration span) {
    for (; before_ < count; ++before_)
        at_.push_back(now);
    while (!at_.empty() && (now - at_.front() > span || at_.size() > kMostRepeated))
        at_.pop_front();
    holds_ = at_.size() >= tooOften || (holds_ && !at_.empty());
    return holds_ ? at_.size() : 0;
}

void Alarms::look(AlarmKind kind, const std::string& station,
                  const std::optional<std::string>& wrong, Instant now) {
    const Key key{station, kind};
    auto found = states_.find(key);
    if (found == states_.end()) {
        if (!wrong || wrong->empty())
            return;
        found = states_.emplace(key, State{}).first;
    }
    State& state = found->second;
    if (!wrong) {
        state.wrongSince.reset();
        state.rightSince.reset();
        return;
    }
    if (!wrong->empty()) {
        state.rightSince.reset();
        if (!state.wrongSince)
            state.wrongSince = now;
        if (state.holds) {
            state.holds->text = *wrong;
        } else if (now - *state.wrongSince >= holdOf(kind).begins) {
            state.holds = Alarm{kind, station, *wrong, ctl::status::nowUnixS()};
            state.heldSince = now;
            ++holding_;
            ++begun_[static_cast<std::size_t>(kind)];
            tell_(*state.holds);
        }
        return;
    }
    state.wrongSince.reset();
    if (!state.rightSince)
        state.rightSince = now;
    if (state.holds && now - *state.rightSince < holdOf(kind).ends)
        return;
    end(state, now);
    states_.erase(found);
}

void Alarms::end(State& state, Instant now) {
    if (!state.holds)
        return;
    --holding_;
    state.holds->lasted = now - state.heldSince;
    tell_(*state.holds);
}

void Alarms::endNow(AlarmKind kind, const std::string& station, Instant now) {
    const auto it = states_.find({station, kind});
    if (it == states_.end())
        return;
    end(it->second, now);
    states_.erase(it);
}

void Alarms::forget(const std::string& station, Instant now) {
    auto it = states_.lower_bound({station, AlarmKind{}});
    while (it != states_.end() && it->first.first == station) {
        end(it->second, now);
        it = states_.erase(it);
    }
}

std::vector<Alarm> Alarms::now() const {
    std::vector<Alarm> out;
    for (const auto& [key, state] : states_)
        if (state.holds)
            out.push_back(*state.holds);
    return out;
}

std::vector<Alarm> Alarms::ofStation(const std::string& station) const {
    std::vector<Alarm> out;
    for (auto it = states_.lower_bound({station, AlarmKind{}});
         it != states_.end() && it->first.first == station; ++it)
        if (it->second.holds)
            out.push_back(*it->second.holds);
    return out;
}

} // namespace gateway
