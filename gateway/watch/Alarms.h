#pragma once

#include "gateway/net/Within.h"

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Alarms: what is wrong and for how long. Each begins once what is wrong has lasted, and ends once
/// it has been gone for a while, so that nothing flaps.

namespace gateway {

enum class AlarmKind : std::uint8_t {
    noEpochs,
    fewSatellites,
    systemGone,
    delay,
    moved,
    audit,
    clock,
    leapSeconds,
    certificate,
    disk,
    engine,
    roversCut
};
inline constexpr std::size_t kAlarmKinds = 12;

/// Whether it is one of the gateway, not of a station.
constexpr bool isOfGateway(AlarmKind kind) {
    return kind == AlarmKind::leapSeconds || kind == AlarmKind::certificate ||
           kind == AlarmKind::disk;
}
/// "no_epochs", as programs read it.
std::string_view nameOf(AlarmKind kind);
/// "no epochs", as people do.
std::string titleOf(AlarmKind kind);

struct Alarm {
    AlarmKind kind = AlarmKind::noEpochs;
    std::string station; // empty: of the gateway
    std::string text;    // what is wrong, as it was last seen
    double sinceUnixS = 0.0;
    std::optional<Duration> lasted{}; // of one that has ended
};
/// For people: what is wrong and what to do, or of one that has ended how long it lasted.
std::string wordsOf(const Alarm& alarm);
/// "45 s", "12 min", "3.5 h", "2.1 days".
std::string spanText(Duration span);

/// Something that happens now and then and must not happen again and again.
class Repeated {
public:
    /// How often it has happened within the span, by its count since the start: when that was too
    /// often, until it has not happened for the span; otherwise 0.
    std::size_t look(std::uint64_t count, std::size_t tooOften, Instant now, Duration span);
    /// Its count begins anew.
    void restart() { before_ = 0; }

private:
    std::uint64_t before_ = 0;
    std::deque<Instant> at_; // of the span
    bool holds_ = false;
};

class Alarms {
public:
    /// Gets each alarm when it begins and when it has ended.
    using Tell = std::function<void(const Alarm& alarm)>;
    explicit Alarms(Tell tell) : tell_(std::move(tell)) {}

    /// Said once a second for each thing that can be wrong: what is wrong with it, empty: nothing.
    /// While it cannot be told, an alarm that holds goes on, and none begins. The text of one that
    /// holds follows.
    void look(AlarmKind kind, const std::string& station, const std::optional<std::string>& wrong,
              Instant now);
    /// Ends one at once: what was wrong is not any more.
    void endNow(AlarmKind kind, const std::string& station, Instant now);
    /// The station is no more: its alarms end.
    void forget(const std::string& station, Instant now);

    /// Those that hold.
    std::vector<Alarm> now() const;
    std::vector<Alarm> ofStation(const std::string& station) const;
    std::size_t count() const { return holding_; }
    /// How many of a kind have begun since the start, by kind.
    const std::array<std::uint64_t, kAlarmKinds>& begun() const { return begun_; }

private:
    struct State {
        std::optional<Instant> wrongSince, rightSince;
        std::optional<Alarm> holds;
        Instant heldSince; // while it holds
    };
    using Key = std::pair<std::string, AlarmKind>;
    void end(State& state, Instant now);

    Tell tell_;
    std::map<Key, State> states_; // only what is wrong or was until lately
    std::size_t holding_ = 0;
    std::array<std::uint64_t, kAlarmKinds> begun_{};
};

} // namespace gateway
