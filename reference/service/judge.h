/// Judges what a service sends back for a stream, byte by byte, against what it owes.
#pragma once

#include "verdict.h"

#include "reference/standard/geometry.h"

#include <deque>
#include <functional>
#include <sstream>

namespace ref {

/// Of the specified answer, whose messages are MSM4. Half a step: 2^-24 ms of range (DF400), 2^-29
/// ms of phase (DF401).
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

/// By how much the epoch of a message is later than a time, as far as its own day or week tells.
double lateS(const Msm& m, GpsTime t);
/// To the millisecond.
std::string secondsText(double s);

class Judge {
public:
    explicit Judge(const Expectation& e);

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

    /// Frames that must come for what has been handed to sent().
    std::size_t owed() const;
    const Verdict& verdict() const { return verdict_; }
    Answer answer() const { return predictor_->expectation.answer; }

private:
    struct Owed {
        Expected expected;
        double leftS = -1; // when its last byte left; < 0: not yet
    };

    struct CellCame { // with its number in its message from 1 on
        const Cell* cell;
        std::size_t number;
    };

    struct Came { // an answer
        std::vector<Frame> messages;
        std::size_t bytes = 0;
    };

    template <class... Parts> void fault(Trouble what, const Parts&... parts) {
        if (!countFault(what))
            return;
        std::ostringstream line;
        (line << ... << parts);
        verdict_.faults.push_back(line.str());
    }
    bool countFault(Trouble what); ///< whether it is to be told
    std::string when(GpsTime t) const;
    std::string describe(const Expected& e) const;
    void frame(std::span<const std::uint8_t> bytes);
    void forwarded(std::span<const std::uint8_t> bytes);
    void reply(std::span<const std::uint8_t> bytes);
    void plain(std::span<const std::uint8_t> bytes);
    void breakOffBlock();
    bool keptByCaster(std::span<const std::uint8_t> forwarded);
    void answer(const Came& came, bool whole);
    void skip(std::size_t count);
    void unaskedReply(const std::optional<Msm>& first);
    bool answers(const Msm& first, const Expected& e) const;
    bool stationDue(GpsTime t);
    bool compare(const std::vector<Frame>& came, const Expected& expected, EpochResult& result);
    std::size_t compareStation(const std::vector<Frame>& came, const Expected& expected);
    void comparePosition(const Station1005& station, GpsTime time);
    void countSatellites(const Expected& expected);
    void cellFault(Trouble what, const std::string& sat, const CellError& off = {});
    void add(const CellError& error, const CellBounds& bounds, EpochResult::Satellite& result);
    // specified answer
    void compareSpecified(std::span<const Frame> came, const Expected& expected,
                          EpochResult& result);
    void countCells(const std::vector<Msm>& messages);
    void compareHead(const Msm& m, GpsTime time);
    void compareMessages(const std::vector<Msm>& messages, const Expected& expected);
    void takeCells(const Msm& m, GpsTime time, std::map<std::string, CellCame>& came,
                   std::map<char, const Msm*>& messageOf);
    void compareCells(const std::vector<Msm>& messages, const Expected& expected,
                      EpochResult& result);
    void compareCell(GpsTime time, const std::string& signal, const ExpectedCell& expected,
                     const Cell& got, EpochResult::Satellite& result);
    bool sameEpoch(const Msm& m, GpsTime t) const;
    // complete answer
    void compareComplete(std::span<const Frame> came, const Expected& expected,
                         EpochResult& result);
    void compareComplete(const DueMessage& due, const RawMsm& got, bool last, GpsTime time,
                         std::map<std::string, EpochResult::Satellite*>& results);

    std::unique_ptr<Predictor> predictor_;
    Census census_;
    std::deque<Owed> owed_;
    Bytes held_;
    double heldSinceS_ = 0;
    Came block_; // of the plain stream, until its last message
    double blockSinceS_ = 0;
    std::set<Bytes> passedOn_;           // through a caster: forwarded frames that came
    std::optional<GpsTime> stationSaid_; // when the plain stream last had the station's messages
    Verdict verdict_;
    std::set<std::pair<std::string, Trouble>> inEpoch_; // satellites in trouble in this answer
};

/// All at once.
Verdict judge(const Bytes& sent, const Bytes& received, const Expectation& expectation);

} // namespace ref
