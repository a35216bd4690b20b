/// What a service owes for a stream: every forwarded frame, and for every epoch the satellites,
/// signals and values of the reply. From the bytes as they were sent, by the framing rules, with
/// the readers, orbits and geometry of reference/standard.
#pragma once

#include "framing.h"

#include "reference/standard/msm.h"
#include "reference/standard/orbit.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace ref {

/// The virtual station: 4.7088369190215936e-05 rad of latitude north of the reference.
Vec3 virtualPoint(const Vec3& reference);

/// Station messages that the service passes on.
constexpr bool isStation(int type) {
    return (type >= 1005 && type <= 1008) || type == 1033 || type == 1230;
}

struct Expectation {
    Vec3 siteM{};
    GpsTime near; ///< the first epoch is within half a week of it; with GLONASS within half a day
    std::set<std::string> satellites; ///< configured
    std::map<int, int> channels;      ///< GLONASS, by slot
    /// Band digits of the configured carriers; signals on others are dropped.
    std::map<char, std::string> bands{
        {'G', "125"}, {'R', "12"}, {'E', "1576"}, {'C', "276"}, {'J', "125"}};
    /// Signals that a reply carries.
    std::map<char, std::set<std::string>> carried{{'G', {"1C", "2W", "5Q"}},
                                                  {'R', {"1P", "2P"}},
                                                  {'E', {"1X", "5X", "6X", "7X"}},
                                                  {'C', {"2I", "6I", "7I"}},
                                                  {'J', {"1C", "2X", "5Q"}}};
    /// Without it only the form of replies is expected: their epochs, order and frames.
    bool values = true;
    bool dayKnown = true;  ///< false: `near` has the time of the stream, not its week
    bool siteKnown = true; ///< false: siteM is not the station's
};

/// What the head of an observation message says: type, system, station, epoch field, multiple-
/// message bit. Nothing for other messages, and where the head is not whole.
std::optional<Msm> headOf(const Frame& f);

/// Epoch of an observation message, where it is nearest to a time: within half a week, GLONASS half
/// a day. Nothing for an epoch that no week has.
std::optional<GpsTime> timeNear(const Msm& m, GpsTime near);

/// Whether the time of a system's messages counts. Of SBAS and NavIC, which no reply carries, only
/// the end of the epoch does; their time does where an epoch holds nothing else.
constexpr bool datesEpochs(char system) {
    return system != 'S' && system != 'I';
}

/// What becomes of a satellite of the epoch; the judge knows of one that is missing.
enum class Fate { answered, low, noEphemeris, oldEphemeris, noPhase, noSignal, missing };
const char* name(Fate fate);

struct ExpectedCell {
    double pseudorangeM = 0, phaseRangeM = 0; ///< at the virtual station
    double wavelengthM = 0, cnr = 0;          ///< m, dB-Hz
};

struct ExpectedSatellite {
    std::string sat;
    Fate fate = Fate::answered;
    bool uncertain = false;                    ///< too close to the elevation limit to say
    Direction direction;                       ///< from the virtual station
    double changeM = 0;                        ///< of the range
    std::map<std::string, ExpectedCell> cells; ///< by signal
};

/// Observations of a satellite by band digit: of two on one carrier the one that is kept.
using Columns = std::map<char, Cell>;

/// One frame that must come back.
struct Expected {
    std::uint64_t end = 0; ///< bytes of the stream up to the end of the frame that asks for it
    int type = 0;          ///< of a forwarded frame; 0 = the reply to an epoch
    Bytes frame;           ///< forwarded
    GpsTime time;          ///< of the epoch
    std::vector<ExpectedSatellite> satellites;
    std::map<std::string, Columns> observed; ///< what the epoch's own messages carried
};

class Predictor {
public:
    explicit Predictor(Expectation e);
    /// The stream goes on; what is owed for what it completes.
    std::vector<Expected> take(std::span<const std::uint8_t> piece);
    /// A new connection: unfinished frame and epoch are forgotten.
    void restart();
    /// Epochs with an end mark in the frames that the service accepts, answered or not.
    long ended() const { return ended_; }

    const Expectation expectation;
    const Vec3 virtualAt;

private:
    void message(const Frame& f, std::vector<Expected>& out);
    bool observations(const Frame& f);
    bool otherStation(const Frame& f);
    void forward(const Frame& f, std::vector<Expected>& out);
    void startAfresh();
    void forgetEpoch();
    void collect(const Msm& m, GpsTime t);
    void store(const Cell& c, const std::vector<std::string>& order);
    ExpectedSatellite satellite(const std::string& sat, const Columns& columns) const;
    double ageS(const std::string& sat) const;

    FrameCutter cutter_;
    Navigation navigation_;
    std::map<std::string, SatFn> orbits_;
    std::map<std::string, Columns> epoch_;
    GpsTime time_;                      // of the last message; the next ones are near it
    std::optional<GpsTime> collecting_; // of the epoch being collected
    bool dated_ = false;                // by a system that dates epochs
    int station_ = 0;                   // of the epoch being collected; 0 = none yet
    long ended_ = 0;
};

} // namespace ref
