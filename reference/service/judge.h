/// Judges what a service sends back for a stream, byte by byte, against what it owes.
#pragma once

#include "compare.h"
#include "verdict.h"

#include <deque>
#include <functional>
#include <sstream>

namespace ref {

class Judge {
public:
    explicit Judge(const Expectation& e);

    std::function<void(const EpochResult&)> onEpoch; ///< optional

    /// The stream goes on with these bytes, about to be sent.
    void sent(std::span<const std::uint8_t> piece);
    /// So many bytes of the whole stream have left.
    void left(std::uint64_t total, double nowS);
    void received(std::span<const std::uint8_t> piece, double nowS);
    /// The connection ended; what is still owed is missing, or may yet come through a caster.
    void restart();
    /// A rover's connection ended; another one may follow.
    void roverEnded();
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
    void missing(const Expected& e, Gap& gap);
    void unaskedReply(const std::optional<Msm>& first);
    bool throughCaster() const { return predictor_->expectation.throughCaster; }
    StationPart stationDue(GpsTime t);
    void stationUnsure();
    bool compare(const std::vector<Frame>& came, const Expected& expected, EpochResult& result);
    void countPosition(const ComparedAnswer& compared);
    void countSatellites(const Expected& expected, EpochResult& result);
    void add(const ComparedCell& cell, EpochResult::Satellite& result);

    std::unique_ptr<Predictor> predictor_;
    Census census_;
    std::deque<Owed> owed_;
    GpsTime answered_; // the last epoch that came
    Bytes held_;
    double heldSinceS_ = 0;
    Came block_; // of the plain stream, until its last message
    double blockSinceS_ = 0;
    std::set<Bytes> passedOn_;           // through a caster: forwarded frames that came
    std::optional<GpsTime> stationSaid_; // when the plain stream last had the station's messages
    bool stationSure_ = true;            // false: perhaps later, in what did not come
    Verdict verdict_;
    std::set<std::pair<std::string, Trouble>> inEpoch_; // satellites in trouble in this answer
};

/// All at once.
Verdict judge(const Bytes& sent, const Bytes& received, const Expectation& expectation);

} // namespace ref
