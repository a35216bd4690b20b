/// What a service owes for a stream: every forwarded frame, and for every epoch the satellites,
/// signals and values of the reply. From the bytes as they were sent, by the framing rules, with
/// the readers, orbits and geometry of reference/standard.
#pragma once

#include "answerable.h"
#include "framing.h"
#include "received.h"

#include "reference/standard/station.h"

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace ref {

constexpr int kVirtualStation = 4095; ///< its id

/// How a service answers, and in what it sends.
enum class Answer { specified, complete };
enum class Output { reply, rtcm3 };

/// The virtual station: 4.7088369190215936e-05 rad of latitude north of the reference, or at an
/// offset (east, north, up) from it.
Vec3 virtualPoint(const Vec3& reference, const std::optional<Vec3>& offsetM = std::nullopt);

/// Station messages that the service passes on.
constexpr bool isStation(int type) {
    return (type >= 1005 && type <= 1008) || type == 1033 || type == 1230;
}

struct Expectation {
    Answer answer = Answer::specified;
    Output output = Output::reply;
    Vec3 siteM{};
    std::optional<Vec3> offsetM; ///< of the virtual station
    GpsTime near; ///< the first epoch is within half a week of it; with GLONASS within half a day
    std::set<std::string> satellites; ///< configured
    std::map<int, int> channels;      ///< GLONASS, by slot
    /// Of the specified answer. Band digits of the configured carriers; signals on others are
    /// dropped.
    std::map<char, std::string> bands{
        {'G', "125"}, {'R', "12"}, {'E', "1576"}, {'C', "276"}, {'J', "125"}};
    /// Of the specified answer: signals that a reply carries.
    std::map<char, std::set<std::string>> carried{{'G', {"1C", "2W", "5Q"}},
                                                  {'R', {"1P", "2P"}},
                                                  {'E', {"1X", "5X", "6X", "7X"}},
                                                  {'C', {"2I", "6I", "7I"}},
                                                  {'J', {"1C", "2X", "5Q"}}};
    /// Without it only the form of replies is expected: their epochs, order and frames.
    bool values = true;
    bool dayKnown = true;  ///< false: `near` has the time of the stream, not its week
    bool siteKnown = true; ///< false: siteM is not the station's
    /// Received as a rover does: what is forwarded comes before the next epoch in any order, and
    /// perhaps again; so does, before the first epoch, what a caster has kept.
    bool throughCaster = false;
    /// The service may hold ephemerides that the stream has not brought: their satellites may come,
    /// with values that are not known.
    bool warm = false;
    bool omits = false; ///< the service may leave out satellites: its list is not known
};

struct ExpectedCell {
    double pseudorangeM = 0, phaseRangeM = 0; ///< at the virtual station
    double wavelengthM = 0, cnr = 0;          ///< m, dB-Hz
};

struct ExpectedSatellite : Answerable::Look {
    std::string sat;
    std::map<std::string, ExpectedCell> cells; ///< by signal
};

/// Observations of a satellite by band digit: of two on one carrier the one that is kept.
using Columns = std::map<char, Cell>;

/// A message of a complete answer, from the one that was received.
struct DueMessage {
    struct Satellite {
        int id = 0;
        bool uncertain = false, unknown = false;
        double changeM = 0, changeRateMps = 0;
    };
    ReceivedMessage from;
    std::vector<Satellite> satellites; ///< that must be there, by id; those alone
};

/// Observations of an epoch: of all satellites, of those that can be answered.
struct Brought {
    long received = 0, answerable = 0;
};

/// What must come back: a forwarded frame, or the answer to an epoch.
struct Expected {
    std::uint64_t end = 0; ///< bytes of the stream up to the end of the frame that asks for it
    int type = 0;          ///< of a forwarded frame; 0 = the answer to an epoch
    std::string sat;       ///< whose ephemeris is forwarded
    Bytes frame;           ///< forwarded
    GpsTime time;          ///< of the epoch
    std::vector<ExpectedSatellite> satellites;
    std::map<std::string, Columns> observed; ///< what the epoch's own messages carried
    std::map<char, Brought> brought;         ///< the same counted, by system
    std::vector<DueMessage> messages;        ///< complete answer
    bool finished = true;                    ///< epoch with its multiple-message bit
    bool certain = true;                     ///< false: whether something comes at all is not known
    Text1033 equipment;                      ///< what 1033 says
    std::optional<double> antennaHeightM;    ///< of 1006, where the plain stream has it
};

class Predictor {
public:
    virtual ~Predictor() = default;
    Predictor(const Predictor&) = delete;
    Predictor& operator=(const Predictor&) = delete;
    /// The stream goes on; what is owed for what it completes.
    std::vector<Expected> take(std::span<const std::uint8_t> piece);
    /// The same of a frame with a right check word.
    void take(const Frame& f, std::vector<Expected>& out);
    /// A new connection: unfinished frame and epoch are forgotten.
    void restart();
    /// Epochs with an end mark in the frames that the service accepts, answered or not.
    long ended() const { return ended_; }
    /// Of them, those of another station, which are not answered.
    virtual long others() const { return 0; }

    const Expectation expectation;
    const Vec3 virtualAt;

protected:
    explicit Predictor(Expectation e);
    /// An accepted frame; throws for one whose contents do not fit their message.
    virtual void message(const Frame& f, std::vector<Expected>& out) = 0;
    virtual void forgetEpoch() = 0;
    /// The frame as it is passed on, where it is.
    void forward(const Frame& f, std::vector<Expected>& out);
    Answerable::Look look(const std::string& sat, GpsTime t) const;
    /// What a station message says; throws for one that the service refuses.
    void note(const Frame& f);
    /// Another station has taken over.
    void forgetStation();
    Expected answerAt(GpsTime time) const;

    Answerable answerable_;
    Text1033 named_; ///< by the station
    std::optional<double> antennaHeightM_;

private:
    FrameCutter cutter_;
    long ended_ = 0;
};

class SpecifiedPredictor : public Predictor {
public:
    explicit SpecifiedPredictor(Expectation e);

private:
    void message(const Frame& f, std::vector<Expected>& out) override;
    void forgetEpoch() override;
    bool observations(const Frame& f);
    bool otherStation(const Frame& f);
    void dropEpoch();
    void collect(const Msm& m, GpsTime t);
    void store(const Cell& c, const std::vector<std::string>& order);
    int channelOf(int slot) const;
    ExpectedSatellite satellite(const std::string& sat, const Columns& columns) const;

    std::map<std::string, Columns> epoch_;
    std::map<std::string, long> cells_; // of the epoch, kept or not, by satellite
    GpsTime time_;                      // of the last message; the next ones are near it
    std::optional<GpsTime> collecting_; // of the epoch being collected
    bool dated_ = false;                // by a system that dates epochs
    int station_ = 0;                   // of the epoch being collected; 0 = none yet
};

/// The one for an expectation's answer.
std::unique_ptr<Predictor> predictorFor(const Expectation& e);

} // namespace ref
