#include "judge.h"

#include "reference/standard/kinds.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iomanip>
#include <sstream>

namespace ref {

namespace {

constexpr int kMostInWords = 5;       // of a kind
constexpr double kStationEveryS = 10; // 1005 and 1033 in the plain stream

} // namespace

double Verdict::worstRangeM() const {
    double most = 0;
    for (const auto& [system, w] : worst)
        most = std::max(most, w.rangeM);
    return most;
}

double Verdict::worstPhaseM() const {
    double most = 0;
    for (const auto& [system, w] : worst)
        most = std::max(most, w.phaseM);
    return most;
}

int Verdict::observations() const {
    int sum = 0;
    for (const auto& [signal, n] : signals)
        sum += n;
    return sum;
}

Judge::Judge(const Expectation& e) : predictor_(predictorFor(e)), answered_(e.near) {
    verdict_.position.dueM = predictor_->virtualAt;
}

// GPS week and second; the second alone where the week is not known.
std::string Judge::when(GpsTime t) const {
    const bool week = predictor_->expectation.dayKnown;
    return (week ? std::to_string(t.week) + "/" : "second ") + secondsText(t.sow);
}

std::string Judge::describe(const Expected& e) const {
    return e.type != 0 ? "the forwarded frame of type " + std::to_string(e.type)
                       : "the reply to epoch " + when(e.time);
}

bool Judge::countFault(Trouble what) {
    ++verdict_.wrong;
    return ++verdict_.troubles[what] <= kMostInWords;
}

void Judge::sent(std::span<const std::uint8_t> piece) {
    for (Expected& e : predictor_->take(piece)) {
        verdict_.due += e.type == 0 && e.certain ? 1 : 0;
        verdict_.taken += e.type == 0 && e.finished ? 1 : 0;
        verdict_.unfinished += e.finished ? 0 : 1;
        for (const auto& [system, b] : e.brought) {
            verdict_.tally[system].received += b.received;
            verdict_.tally[system].answerable += b.answerable;
        }
        owed_.push_back({std::move(e)});
    }
    census_.take(piece);
    verdict_.ended = predictor_->ended();
    verdict_.others = predictor_->others();
}

std::size_t Judge::owed() const {
    return static_cast<std::size_t>(std::count_if(
        owed_.begin(), owed_.end(), [](const Owed& o) { return o.expected.certain; }));
}

void Judge::left(std::uint64_t total, double nowS) {
    for (auto it = owed_.rbegin(); it != owed_.rend() && it->leftS < 0; ++it)
        if (it->expected.end <= total)
            it->leftS = nowS;
}

void Judge::received(std::span<const std::uint8_t> piece, double nowS) {
    if (held_.empty())
        heldSinceS_ = nowS;
    held_.insert(held_.end(), piece.begin(), piece.end());
    std::size_t at = 0;
    while (at < held_.size()) {
        const std::uint8_t first = held_[at];
        if (first != 0xDA && first != 0xD3) {
            const auto next =
                std::find_if(held_.begin() + static_cast<std::ptrdiff_t>(at), held_.end(),
                             [](std::uint8_t b) { return b == 0xDA || b == 0xD3; });
            const auto n = static_cast<std::size_t>(next - held_.begin()) - at;
            fault(Trouble::noFrame, n, " bytes received that begin no frame");
            at += n;
            continue;
        }
        if (at + 3 > held_.size())
            break;
        const std::size_t field = 256U * held_[at + 1] + held_[at + 2];
        const std::size_t n = first == 0xDA ? field + 7 : (field & 0x3FF) + 6;
        if (at + n > held_.size())
            break;
        frame({held_.data() + at, n});
        at += n;
        heldSinceS_ = nowS;
    }
    held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(at));
}

void Judge::frame(std::span<const std::uint8_t> bytes) {
    const bool isReply = bytes[0] == 0xDA;
    if (predictor_->expectation.output == Output::rtcm3 && !isReply)
        plain(bytes);
    else if (isReply && predictor_->expectation.output == Output::reply)
        reply(bytes);
    else if (isReply)
        fault(Trouble::noFrame, "a reply frame in the plain stream");
    else
        forwarded(bytes);
}

void Judge::missing(const Expected& e, Gap& gap) {
    ++verdict_.missing;
    if (e.type != 0)
        ++verdict_.missingTypes[e.type];
    if (!throughCaster())
        return fault(e.type == 0 ? Trouble::missingReply : Trouble::missingFrame, describe(e),
                     " is missing");
    if (e.type == 0 && gap.epochs++ == 0)
        gap.from = e.time;
    gap.frames += e.type == 0 ? 0 : 1;
}

// The frames owed before the one that came have not come.
void Judge::skip(std::size_t count) {
    Gap gap{count < owed_.size() ? owed_[count].expected.time : answered_};
    for (; count > 0; --count) {
        if (owed_.front().expected.certain)
            missing(owed_.front().expected, gap);
        owed_.pop_front();
    }
    if (gap.epochs == 0 && gap.frames == 0)
        return;
    verdict_.gaps.push_back(gap);
    stationUnsure();
}

void Judge::forwarded(std::span<const std::uint8_t> bytes) {
    ++verdict_.forwarded;
    const int type = bytes.size() > 4 ? bytes[3] * 16 + bytes[4] / 16 : 0;
    verdict_.bytes[type] += bytes.size();
    const auto same = std::find_if(owed_.begin(), owed_.end(), [&](const Owed& o) {
        return o.expected.type != 0 && std::equal(bytes.begin(), bytes.end(),
                                                  o.expected.frame.begin(), o.expected.frame.end());
    });
    if (same != owed_.end() && throughCaster()) {
        passedOn_.insert(std::move(same->expected.frame));
        owed_.erase(same);
        return;
    }
    if (same != owed_.end()) {
        skip(static_cast<std::size_t>(same - owed_.begin()));
        owed_.pop_front();
        return;
    }
    if (keptByCaster(bytes))
        return;
    // A wrong check word: what was owed was altered on the way. A right one: nobody asked for it.
    const bool altered = crc24q(bytes) != 0;
    fault(altered ? Trouble::altered : Trouble::unasked, "a frame of type ", type,
          altered ? " came back altered" : " came unasked");
    if (altered && !owed_.empty() && owed_.front().expected.frame.size() == bytes.size())
        owed_.pop_front();
}

void Judge::reply(std::span<const std::uint8_t> bytes) {
    Came came;
    came.bytes = bytes.size();
    bool whole = true;
    try {
        Reply opened = openReply(bytes);
        if (opened.word != 0xFFFFFFFF)
            fault(Trouble::messages, "request word of a reply");
        came.messages = std::move(opened.messages);
    } catch (const std::exception& e) {
        fault(Trouble::brokenReply, e.what(),
              owed_.empty() ? "" : ", next is " + describe(owed_.front().expected));
        whole = false;
    }
    std::size_t around = bytes.size();
    for (const Frame& m : came.messages)
        around -= m.bytes.size();
    verdict_.bytes[0] += around;
    blockSinceS_ = heldSinceS_;
    answer(came, whole);
}

// A caster gives a new rover what it has kept, also of a stream before ours.
bool Judge::keptByCaster(std::span<const std::uint8_t> forwarded) {
    return throughCaster() && crc24q(forwarded) == 0 &&
           (verdict_.due == 0 || passedOn_.contains(Bytes(forwarded.begin(), forwarded.end())));
}

// The plain stream: what belongs to an answer is collected to its last message.
void Judge::plain(std::span<const std::uint8_t> bytes) {
    const std::vector<Frame> frames = goodFrames(bytes);
    if (frames.empty())
        return forwarded(bytes); // a wrong check word
    const Frame& f = frames.front();
    const bool station = f.type == 1005 || f.type == 1006 || f.type == 1033;
    if (!station && !isMsm(f.type)) {
        breakOffBlock();
        return forwarded(bytes);
    }
    if (station && !block_.messages.empty() &&
        (isMsm(block_.messages.back().type) || (throughCaster() && f.type != 1033)))
        breakOffBlock();
    if (block_.messages.empty())
        blockSinceS_ = heldSinceS_;
    block_.messages.push_back(f);
    block_.bytes += bytes.size();
    const std::optional<Msm> head = headOf(f);
    if (head && !head->more)
        answer(std::exchange(block_, {}), /*whole=*/true);
}

void Judge::breakOffBlock() {
    if (block_.messages.empty())
        return;
    if (throughCaster() && (verdict_.due == 0 || !isMsm(block_.messages.back().type))) {
        block_ = {}; // kept by the caster
        return;
    }
    fault(Trouble::messages, "an epoch of the plain stream without its last message");
    answer(std::exchange(block_, {}), /*whole=*/true);
}

void Judge::answer(const Came& came, bool whole) {
    ++verdict_.replies;
    EpochResult result;
    result.bytes = came.bytes;
    result.right = whole;
    std::optional<Msm> first;
    for (const Frame& m : came.messages) {
        verdict_.bytes[m.type] += m.bytes.size();
        if (!first)
            first = headOf(m);
    }
    // the answer to this epoch; one that does not say its epoch answers the next one
    const auto due = std::find_if(owed_.begin(), owed_.end(), [&](const Owed& o) {
        return o.expected.type == 0 &&
               (!first || answersEpoch(*first, o.expected, predictor_->expectation));
    });
    if (due == owed_.end())
        return unaskedReply(first);
    skip(static_cast<std::size_t>(due - owed_.begin()));
    const Owed answered = std::move(owed_.front());
    owed_.pop_front();
    result.time = answered_ = answered.expected.time;
    result.delayS = answered.leftS < 0 ? 0 : blockSinceS_ - answered.leftS;
    if (answered.leftS >= 0)
        verdict_.delaysS.push_back(static_cast<float>(result.delayS));
    if (result.right)
        result.right = compare(came.messages, answered.expected, result);
    if (onEpoch)
        onEpoch(result);
}

void Judge::unaskedReply(const std::optional<Msm>& first) {
    const auto next = std::find_if(owed_.begin(), owed_.end(),
                                   [](const Owed& o) { return o.expected.type == 0; });
    if (!first || next == owed_.end())
        return fault(Trouble::unaskedReply, "a reply came unasked");
    fault(Trouble::unaskedReply, "a reply came unasked: its epoch is ",
          secondsText(lateS(*first, next->expected.time)), " s later than ",
          when(next->expected.time), ", which is due");
}

// Every 10 s; after something that did not come, within 10 s.
StationPart Judge::stationDue(GpsTime t) {
    if (predictor_->expectation.output == Output::reply)
        return StationPart::due;
    if (!stationSure_ && !stationSaid_)
        stationSaid_ = t;
    const bool due =
        !stationSaid_ || t - *stationSaid_ > kStationEveryS - 1e-6 || t - *stationSaid_ < 0;
    return due ? StationPart::due : stationSure_ ? StationPart::none : StationPart::mayCome;
}

bool Judge::compare(const std::vector<Frame>& came, const Expected& expected, EpochResult& result) {
    const StationPart station = stationDue(expected.time);
    const ComparedAnswer compared = compareAnswer(came, expected, *predictor_, station);
    if (station == StationPart::due || compared.positionM) {
        stationSaid_ = expected.time;
        stationSure_ = true;
    }
    for (const Difference& d : compared.differences) {
        if (!d.words.empty())
            fault(d.what, d.words, " at ", when(expected.time));
        if (d.sat.empty())
            continue;
        inEpoch_.emplace(d.sat, d.what);
        SatelliteTally::Wrong& w = verdict_.satellites[d.sat].wrong[d.what];
        w.rangeM = std::max(w.rangeM, d.off.rangeM);
        w.phaseM = std::max(w.phaseM, d.off.phaseM);
        w.rateMps = std::max(w.rateMps, d.off.rateMps);
    }
    countPosition(compared);
    for (const auto& [signal, n] : compared.kept) {
        verdict_.signals[signal] += n;
        verdict_.tally[signal[0]].kept += n;
    }
    for (const auto& [type, other] : compared.otherEpoch) {
        verdict_.otherEpoch[type].first += other.first;
        verdict_.otherEpoch[type].second = other.second;
    }
    std::map<std::string, EpochResult::Satellite*> results;
    result.satellites.reserve(expected.satellites.size());
    for (const ExpectedSatellite& s : expected.satellites)
        results[s.sat] = &result.satellites.emplace_back(EpochResult::Satellite{s, 0, 0, {}, {}});
    for (const ComparedCell& c : compared.cells)
        if (const auto r = results.find(c.sat); c.known && r != results.end())
            add(c, *r->second);
    countSatellites(expected, result);
    return compared.differences.empty();
}

// Where values are not known a distance is kept, and nothing is wrong with it.
void Judge::countPosition(const ComparedAnswer& compared) {
    if (!compared.positionM || !predictor_->expectation.siteKnown)
        return;
    const double awayM = norm(*compared.positionM - predictor_->virtualAt);
    PositionTally& p = verdict_.position;
    if (awayM >= p.awayM) {
        p.awayM = awayM;
        p.cameM = *compared.positionM;
    }
    p.wrong += static_cast<int>(
        std::count_if(compared.differences.begin(), compared.differences.end(),
                      [](const Difference& d) { return d.what == Trouble::position; }));
}

void Judge::countSatellites(const Expected& expected, EpochResult& result) {
    for (EpochResult::Satellite& r : result.satellites) {
        if (r.cells.empty() && inEpoch_.contains({r.expected.sat, Trouble::cellMissing}))
            r.expected.fate = Fate::missing;
        ++verdict_.fates[r.expected.fate];
    }
    for (const ExpectedSatellite& s : expected.satellites)
        if (s.fate == Fate::answered && !s.uncertain)
            ++verdict_.satellites[s.sat].due;
    for (const auto& [sat, what] : inEpoch_)
        ++verdict_.satellites[sat].wrong[what].epochs;
    inEpoch_.clear();
}

void Judge::add(const ComparedCell& cell, EpochResult::Satellite& result) {
    const CellError& error = cell.error;
    const CellBounds& bounds = cell.bounds;
    Worst& w = verdict_.worst[result.expected.sat[0]];
    w.rangeM = std::max(w.rangeM, std::abs(error.rangeM));
    w.phaseM = std::max(w.phaseM, std::abs(error.phaseM));
    w.rateMps = std::max(w.rateMps, std::abs(error.rateMps));
    w.bounds = {std::max(w.bounds.rangeHalfStepM, bounds.rangeHalfStepM),
                std::max(w.bounds.phaseHalfStepM, bounds.phaseHalfStepM),
                std::max(w.bounds.rangeM, bounds.rangeM), std::max(w.bounds.phaseM, bounds.phaseM)};
    result.bounds = bounds;
    ++w.cells;
    ++verdict_.cells;
    result.cells.push_back(error);
    if (std::abs(error.rangeM) > std::abs(result.rangeErrorM))
        result.rangeErrorM = error.rangeM;
    if (std::abs(error.phaseM) > std::abs(result.phaseErrorM))
        result.phaseErrorM = error.phaseM;
}

void Judge::restart() {
    if (throughCaster()) {
        stationUnsure();
    } else {
        breakOffBlock();
        stationSaid_.reset();
        skip(owed_.size());
        held_.clear();
    }
    predictor_->restart();
    census_.breakOff();
    verdict_.stream = census_.counts();
}

void Judge::roverEnded() {
    stationUnsure();
    block_ = {};
    held_.clear();
}

void Judge::stationUnsure() {
    stationSaid_.reset();
    stationSure_ = false;
}

void Judge::finish() {
    breakOffBlock();
    skip(owed_.size());
    if (!held_.empty())
        fault(Trouble::noFrame, held_.size(), " bytes of an unfinished frame received");
    held_.clear();
    census_.breakOff();
    verdict_.stream = census_.counts();
}

Verdict judge(const Bytes& sent, const Bytes& received, const Expectation& expectation) {
    Judge j(expectation);
    j.sent(sent);
    j.received(received, 0);
    j.finish();
    return j.verdict();
}

} // namespace ref
