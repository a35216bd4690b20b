/// Judges what a service sends back for a stream, byte by byte, against what it owes.
#pragma once

#include "predict.h"

#include "reference/standard/census.h"
#include "reference/standard/geometry.h"
#include "reference/standard/station.h"

#include <deque>
#include <functional>

namespace ref {

/// Half a step of MSM4: 2^-24 ms of range (DF400), 2^-29 ms of phase (DF401).
constexpr double kRangeHalfStepM = 0.5 * 0x1p-24 * kLightSpeed / 1000;
constexpr double kPhaseHalfStepM = 0.5 * 0x1p-29 * kLightSpeed / 1000;
/// Bounds on |reply - truth|: half a step, and 0.1 mm for the rounding on the way. The rotation
/// rate that the service uses for QZSS differs from the true one by 1.467e-12 rad/s: up to 38 m of
/// orbit at the end of a week, 0.4 mm of the change of range over 300 m.
constexpr double kQzssMoreM = 4e-4;
constexpr double rangeBoundM(char system) {
    return kRangeHalfStepM + 1e-4 + (system == 'J' ? kQzssMoreM : 0);
}
constexpr double phaseBoundM(char system) {
    return kPhaseHalfStepM + 1e-4 + (system == 'J' ? kQzssMoreM : 0);
}

/// Reply minus truth.
struct CellError {
    double rangeM = 0, phaseM = 0;
};

/// One answered epoch.
struct EpochResult {
    struct Satellite {
        ExpectedSatellite expected;
        double rangeErrorM = 0, phaseErrorM = 0; ///< the largest of its cells, signed
        std::vector<CellError> cells;
    };
    GpsTime time;
    std::size_t bytes = 0;
    double delayS = 0; ///< last byte of the epoch sent to first byte of the reply
    bool right = true;
    std::vector<Satellite> satellites;
};

struct Worst {
    double rangeM = 0, phaseM = 0;
    int cells = 0;
};

/// What can be wrong with what comes back.
enum class Trouble {
    noFrame,       ///< bytes that begin none, or one that does not end
    altered,       ///< a forwarded frame with a wrong check word
    unasked,       ///< a forwarded frame that nobody asked for
    missingFrame,  ///< a forwarded frame that did not come
    missingReply,  ///< no reply to an epoch
    unaskedReply,  ///< a reply to another epoch than those due
    brokenReply,   ///< a reply that cannot be taken apart
    position,      ///< 1005
    noPosition,    ///< a reply that does not begin with 1005
    descriptors,   ///< 1033, or none
    messages,      ///< heads, order and reserved bits of the observation messages
    cellMissing,   ///< an observation that is due
    cellUnasked,   ///< an observation that must not be there
    cellValues,    ///< range and phase
    cellQualities, ///< lock time, half-cycle flag, CNR
};

/// How one satellite fared in the replies.
struct SatelliteTally {
    struct Wrong {
        int epochs = 0;
        double rangeM = 0, phaseM = 0; ///< the largest differences of those beyond the bounds
    };
    int due = 0; ///< epochs that had to carry it
    std::map<Trouble, Wrong> wrong;
};

/// The positions that the replies' 1005 said.
struct PositionTally {
    int wrong = 0;    ///< replies
    double awayM = 0; ///< the largest distance from where it belongs
    Vec3 cameM{}, dueM{};
};

struct Verdict {
    StreamCounts stream;                ///< what was sent
    long ended = 0;                     ///< epochs that end in the frames a service accepts
    long due = 0;                       ///< replies asked for
    int replies = 0, forwarded = 0;     ///< that came
    int missing = 0;                    ///< frames that did not come
    int cells = 0;                      ///< observations compared with the truth
    std::map<std::string, int> signals; ///< observations that came, such as "G1C"
    std::map<char, Worst> worst;        ///< by system
    std::map<Fate, int> fates;          ///< satellites of all epochs
    std::map<int, std::uint64_t> bytes; ///< received by message type, 0 = around messages
    std::vector<float> delaysS;         ///< of every reply whose sending time is known
    int wrong = 0;                      ///< faults, all
    std::map<Trouble, int> troubles;    ///< the same by kind
    std::map<std::string, SatelliteTally> satellites;
    /// Messages of replies with another epoch than the reply's: how many, and by how much (s) the
    /// last of them, by type.
    std::map<int, std::pair<int, double>> otherEpoch;
    std::map<int, int> missingTypes; ///< forwarded frames that did not come, by type
    PositionTally position;
    std::vector<std::string> faults; ///< the first of each kind in words
    double worstRangeM() const;
    double worstPhaseM() const;
    int observations() const; ///< that came
};

class Judge {
public:
    explicit Judge(Expectation e);

    std::function<void(const EpochResult&)> onEpoch; ///< optional

    /// The stream goes on with these bytes, about to be sent.
    void sent(std::span<const std::uint8_t> piece);
    /// So many bytes of the whole stream have left.
    void left(std::uint64_t total, double nowS);
    void received(std::span<const std::uint8_t> piece, double nowS);
    /// The connection ended; what is still owed is missing.
    void restart();
    /// Nothing more comes.
    void finish();

    /// Frames owed for what has been handed to sent().
    std::size_t owed() const { return owed_.size(); }
    const Verdict& verdict() const { return verdict_; }

private:
    struct Owed {
        Expected expected;
        double leftS = -1; // when its last byte left; < 0: not yet
    };

    struct Came { // a cell, with its number in its message from 1 on
        const Cell* cell;
        std::size_t number;
    };

    template <class... Parts> void fault(Trouble what, const Parts&... parts);
    std::string when(GpsTime t) const;
    std::string describe(const Expected& e) const;
    void frame(std::span<const std::uint8_t> bytes);
    void forwarded(std::span<const std::uint8_t> bytes);
    void reply(std::span<const std::uint8_t> bytes);
    void skip(std::size_t count);
    void unaskedReply(const std::optional<Msm>& first);
    bool compare(const Reply& reply, const Expected& expected, EpochResult& result);
    void comparePosition(const Station1005& station, GpsTime time);
    void countCells(const std::vector<Msm>& messages);
    void compareHead(const Msm& m, GpsTime time);
    void compareMessages(const std::vector<Msm>& messages, const Expected& expected);
    void takeCells(const Msm& m, GpsTime time, std::map<std::string, Came>& came,
                   std::map<char, const Msm*>& messageOf);
    void compareCells(const std::vector<Msm>& messages, const Expected& expected,
                      EpochResult& result);
    void compareCell(GpsTime time, const std::string& signal, const ExpectedCell& expected,
                     const Cell& got, EpochResult::Satellite& result);
    void cellFault(Trouble what, const std::string& sat, double rangeM = 0, double phaseM = 0);
    void countSatellites(const Expected& expected);
    bool sameEpoch(const Msm& m, GpsTime t) const;

    Predictor predictor_;
    Census census_;
    std::deque<Owed> owed_;
    Bytes held_;
    double heldSinceS_ = 0;
    Verdict verdict_;
    std::set<std::pair<std::string, Trouble>> inEpoch_; // satellites in trouble in this reply
};

/// All at once.
Verdict judge(const Bytes& sent, const Bytes& received, const Expectation& expectation);

} // namespace ref
