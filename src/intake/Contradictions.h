#pragma once

#include "gnss/ComCoord.h"
#include "gnss/GTime.h"
#include "gnss/gnsscmn.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <string_view>

/// Contradictions: what the stream says against the configuration, against the clock and against
/// itself. Each is told in one line when it begins. It has ended when an hour has passed without
/// it, so no more than a line an hour comes from it. `now` is monotonicNow().
class Contradictions {
public:
    using Instant = std::chrono::nanoseconds;

    /// The id of a message, also of one that was refused because of it. Two stations share the
    /// stream when the id changes twice within a minute; a receiver that gets a new id changes it
    /// once.
    void stationId(int id, Instant now);
    /// The id of a message, and that of the station whose messages count.
    void otherStation(int id, int own, Instant now);
    /// Whether a station that was to take over states a place beyond the guard's limit.
    void takeOverRefused(int id, bool elsewhere, Instant now);
    /// Forgets the last id: the next connection may lead to another station.
    void newConnection();

    /// The reference point of a 1005 or 1006, and the configured place of the station, m.
    void position(int type, const Vector3& stated, std::string_view station,
                  const Vector3& configured, Instant now);
    /// Time of an ephemeris in the week that its message names, and the clock; GPS time.
    void ephemeris(std::string_view satellite, GTime stated, GTime clock, Instant now);
    /// GLONASS channels of a slot (1..27) in the stream and in the object file.
    void channel(int slot, int stated, int configured, Instant now);

private:
    struct Standing {
        bool begun = false;
        Instant last{}; // when it was seen last
        /// Takes a look; true where it begins with this one.
        bool begins(bool contradicts, Instant now);
    };
    static constexpr std::size_t kSystemLetters = 8; // of kSystems

    int id_ = -1; // -1 = none yet
    bool changed_ = false;
    Instant changedAt_{};
    Standing ids_, others_, refused_, position_;
    std::array<Standing, kSystemLetters> ephemerides_;
    std::array<Standing, kGlonassSlots> channels_;
};
