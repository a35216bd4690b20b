/// Epochs of the complete answer: runs of observation messages of one station, by their numbers,
/// times and multiple-message bits.
#pragma once

#include "received.h"

#include <cstdint>
#include <map>

namespace ref {

struct Run {
    std::vector<ReceivedMessage> messages; ///< that can be read, in order
    GpsTime time;
    int station = 0;
    bool finished = false; ///< by its multiple-message bit
};

/// A run that goes on.
struct OpenRun {
    using SignalPairs = std::set<std::pair<int, int>>; // satellite id, signal id
    struct Held {
        std::uint32_t field;
        std::optional<SignalPairs> pairs; // nothing: of a message that cannot be read
    };
    int station;
    std::multimap<int, Held> numbers;
    std::optional<std::int64_t> time;    // ms, of its first message that has one
    std::map<char, std::int64_t> timeOf; // by system
    std::vector<ReceivedMessage> messages;
};

/// Epochs of a station that is not the stream's, by heads alone.
struct OtherStation {
    int station = -1, epochs = 0;
    std::map<int, std::uint32_t> fields;
    std::optional<std::int64_t> time;
};

class Runs {
public:
    /// The first epoch is within half a week of the time; GLONASS within half a day.
    explicit Runs(GpsTime near) : near_(near) {}

    /// The runs that end with an observation message: before it, then with it.
    std::vector<Run> take(const Frame& f);
    /// Whether a station message is another station's.
    bool refuses(int station) const;
    /// The stream's, once it is known.
    const std::optional<int>& pinned() const { return pinned_; }
    /// Forgets what is not complete.
    void newConnection();
    /// Multiple-message bits of other stations that ended an epoch of theirs.
    long refusedEnds() const { return refusedEnds_; }
    /// Another station has taken over since the last call.
    bool stationChanged() { return std::exchange(changed_, false); }

private:
    using Ms = std::int64_t;
    std::optional<int> station() const;
    void countOther(const Msm& head, std::optional<Ms> t, std::vector<Run>& out);
    bool endsBefore(const Msm& head, std::optional<Ms> t, const OpenRun::Held& held) const;
    void end(bool finished, std::vector<Run>& out);
    void learn(const Msm& head, std::optional<Ms> t);
    void learnAtEnd();
    Ms usual(char system) const;

    GpsTime near_;
    std::optional<int> pinned_;
    bool changed_ = false;
    long refusedEnds_ = 0;
    std::optional<OpenRun> open_;
    OtherStation other_;
    int uninterruptedId_ = -1, uninterrupted_ = 0; // runs in a row that ended without their bit
    // from one multiple-message bit to the next
    std::map<int, std::uint32_t> groupFields_; // by number
    std::map<char, Ms> group_;                 // first times by system
    std::map<char, std::pair<Ms, int>> rows_;  // a difference, and groups in a row with it
    std::map<char, Ms> usual_;                 // differences
};

} // namespace ref
