/// Judges what a service sends back for a stream, byte by byte, against what it owes.
#pragma once

#include "predict.h"

#include <deque>
#include <functional>

namespace ref {

/// Bounds on |reply - truth|: half a step of MSM4 and 0.1 mm for the rounding on the way. The
/// rotation rate that the service uses for QZSS differs from the true one by 1.467e-12 rad/s: up to
/// 38 m of orbit at the end of a week, 0.4 mm of the change of range over 300 m.
constexpr double kRangeHalfStepM = 0.5 * 0.01787;
constexpr double kPhaseHalfStepM = 0.5 * 0.000559;
constexpr double kRangeBoundM = kRangeHalfStepM + 1e-4;
constexpr double kPhaseBoundM = kPhaseHalfStepM + 1e-4;
constexpr double kQzssBoundM = 4e-4;

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

struct Verdict {
    int replies = 0, forwarded = 0; ///< that came
    int missing = 0;                ///< frames that did not come
    int cells = 0;
    std::map<std::string, int> signals; ///< cells by system and signal, such as "G1C"
    std::map<char, Worst> worst;        ///< by system
    std::map<Fate, int> fates;          ///< satellites of all epochs
    std::map<int, std::uint64_t> bytes; ///< received by message type, 0 = frames around messages
    std::vector<float> delaysS;         ///< of every reply whose sending time is known
    int wrong = 0;                      ///< faults, all
    std::vector<std::string> faults;    ///< the first of them in words
    double worstRangeM() const;
    double worstPhaseM() const;
};

class Judge {
public:
    explicit Judge(Expectation e) : predictor_(std::move(e)) {}

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

    template <class... Parts> void fault(const Parts&... parts);
    void frame(std::span<const std::uint8_t> bytes);
    void forwarded(std::span<const std::uint8_t> bytes);
    void reply(std::span<const std::uint8_t> bytes);
    void skip(std::size_t count);
    bool compare(const Reply& reply, const Expected& expected, EpochResult& result);
    void compareMessages(const std::vector<Msm>& messages, const Expected& expected);
    void takeCells(const Msm& m, GpsTime time, std::map<std::string, Came>& came,
                   std::map<char, const Msm*>& messageOf);
    void compareCells(const std::vector<Msm>& messages, const Expected& expected,
                      EpochResult& result);
    void compareCell(GpsTime time, const std::string& signal, const ExpectedCell& expected,
                     const Cell& got, EpochResult::Satellite& result);
    bool sameEpoch(const Msm& m, GpsTime t) const;

    Predictor predictor_;
    std::deque<Owed> owed_;
    Bytes held_;
    double heldSinceS_ = 0;
    Verdict verdict_;
};

/// All at once.
Verdict judge(const Bytes& sent, const Bytes& received, const Expectation& expectation);

} // namespace ref
