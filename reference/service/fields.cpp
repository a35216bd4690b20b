#include "fields.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace ref {

namespace {

constexpr double kRoughMs = 1.0 / 1024;
constexpr int kRoughSteps = 255 * 1024; // 255 ms: no rough range
constexpr int kNoRough = 255, kNoRoughRate = -8192, kMostRate = 8191;

std::string signalName(char system, int signal) {
    const std::string known = signalOf(system, signal);
    return known.empty() ? "signal " + std::to_string(signal) : known;
}

// What rough fields leave for the fine ones of a satellite that moves by a change.
class Room {
public:
    Room(const MsmForm& form, double changeMs, double changeRateMps)
        : form_(form), changeMs_(changeMs), changeRateMps_(changeRateMps) {}
    void add(const WholeCell& w) {
        if (w.rangeMs)
            ranges_.push_back(*w.rangeMs + changeMs_);
        if (w.phaseMs)
            phases_.push_back(*w.phaseMs + changeMs_);
        if (w.rateMps)
            rates_.push_back(*w.rateMps + changeRateMps_);
    }
    bool hasRange() const { return !ranges_.empty() || !phases_.empty(); }
    bool hasRate() const { return !rates_.empty(); }
    // With a step to spare, for who rounds on another way.
    bool holdsRanges() const {
        const double first = ranges_.empty() ? phases_.front() : ranges_.front();
        const auto near = static_cast<int>(std::lround(first / kRoughMs));
        for (int k = std::max(0, near - 6); k < std::min(kRoughSteps, near + 7); ++k)
            if (allFit(ranges_, k * kRoughMs, form_.rangeExp, form_.rangeNone()) &&
                allFit(phases_, k * kRoughMs, form_.phaseExp, form_.phaseNone()))
                return true;
        return false;
    }
    bool holdsRates() const {
        const auto near = static_cast<int>(std::lround(rates_.front()));
        for (int k = near - 3; k <= near + 3; ++k)
            if (std::abs(k) <= kMostRate &&
                std::all_of(rates_.begin(), rates_.end(), [k](double r) {
                    return std::abs(std::round((r - k) / 1e-4)) < -kRateNone - 1;
                }))
                return true;
        return false;
    }

private:
    static bool allFit(const std::vector<double>& values, double rough, int exponent, int none) {
        return std::all_of(values.begin(), values.end(), [&](double v) {
            return std::abs(std::round(std::ldexp(v - rough, -exponent))) < -none - 1;
        });
    }
    const MsmForm& form_;
    double changeMs_, changeRateMps_;
    std::vector<double> ranges_, phases_, rates_; // as they have to come out
};

class Comparison {
public:
    Comparison(const DueMessage& due, const RawMsm& got, Values values)
        : due_(due), from_(due.from.raw), got_(got), form_(msmForm(got.type % 10)),
          gotWhole_(wholeCells(got)), values_(values) {}

    ComparedMessage result;

    void head(More more) {
        field("message number", from_.type, got_.type);
        field("station id", kVirtualStation, got_.station);
        field("epoch time", from_.epochField, got_.epochField);
        field("multiple-message bit", more == More::follows, got_.more);
        field("IODS", from_.iods, got_.iods);
        field("reserved bits", from_.reserved, got_.reserved);
        field("clock steering", from_.steering, got_.steering);
        field("external clock", from_.externalClock, got_.externalClock);
        field("smoothing indicator", from_.smoothed, got_.smoothed);
        field("smoothing interval", from_.smoothing, got_.smoothing);
        field("zero bits at the end", true, got_.exact);
        for (const int signal : got_.signals)
            if (std::find(from_.signals.begin(), from_.signals.end(), signal) ==
                from_.signals.end())
                differ(Trouble::messages, {},
                       "the signal mask has an id that was not received: ", signal);
        for (const RawMsm::Satellite& s : got_.satellites)
            if (!received(s.id))
                differ(Trouble::cellUnasked, name(s.id), "must not be there");
    }

    void cells() {
        for (const DueMessage::Satellite& s : due_.satellites)
            satellite(s);
        for (const RawMsm::Cell& c : got_.cells)
            if (received(c.id) && !matched_.contains({c.id, c.signal}))
                differ(Trouble::cellUnasked, name(c.id), signalName(got_.system(), c.signal),
                       " must not be there");
    }

private:
    bool known(const DueMessage::Satellite& s) const {
        return values_ == Values::known && !s.unknown;
    }
    std::string name(int id) const { return satName(got_.system(), id); }
    bool received(int id) const {
        return std::any_of(from_.satellites.begin(), from_.satellites.end(),
                           [id](const auto& s) { return s.id == id; });
    }

    template <class... Parts>
    void differ(Trouble what, const std::string& sat, const Parts&... parts) {
        std::ostringstream line;
        line << got_.type << ": " << sat << (sat.empty() ? "" : " ");
        (line << ... << parts);
        result.differences.push_back({what, line.str(), sat, {}});
    }
    template <class T> void field(const char* name, T due, T came) {
        if (due != came)
            differ(Trouble::messages, {}, name, " is ", came, " instead of ", due);
    }
    // Of a cell, or (signal 0) of its satellite.
    void quality(const char* field, int id, int signal, int due, int came) {
        if (due != came)
            differ(Trouble::cellQualities, name(id),
                   signal == 0 ? "" : signalName(got_.system(), signal) + " ", field, " is ", came,
                   " instead of ", due);
    }

    void satellite(const DueMessage::Satellite& s) {
        const auto there = std::find_if(got_.satellites.begin(), got_.satellites.end(),
                                        [&](const auto& g) { return g.id == s.id; });
        if (there == got_.satellites.end() && s.uncertain)
            return;
        if (there != got_.satellites.end() && form_.rates)
            quality("extended satellite information", s.id, 0, from_.satellite(s.id).info,
                    there->info);
        Room room(form_, s.changeM / kMsM, s.changeRateMps);
        for (std::size_t i = 0; i < from_.cells.size(); ++i)
            if (from_.cells[i].id == s.id)
                room.add(due_.from.whole[i]);
        if (there != got_.satellites.end() && known(s))
            rough(from_.satellite(s.id), *there, s, room);
        for (std::size_t i = 0; i < from_.cells.size(); ++i)
            if (from_.cells[i].id == s.id)
                cell(i, s, room);
    }

    // What no fine value tells of.
    void rough(const RawMsm::Satellite& from, const RawMsm::Satellite& got,
               const DueMessage::Satellite& s, const Room& room) {
        const double fromMs = from.ms + from.part * kRoughMs;
        const double gotMs = got.ms + got.part * kRoughMs;
        if (from.ms == kNoRough
                ? got.ms != kNoRough || got.part != from.part
                : got.ms == kNoRough || (!room.hasRange() && !due_.from.legacy &&
                                         std::abs(gotMs - fromMs - s.changeM / kMsM) > kRoughMs))
            differ(Trouble::cellValues, name(s.id), "has a wrong rough range: ", gotMs, " ms from ",
                   fromMs, " ms");
        if (form_.rates &&
            (from.rate == kNoRoughRate
                 ? got.rate != kNoRoughRate
                 : got.rate == kNoRoughRate ||
                       (!room.hasRate() && std::abs(got.rate - from.rate - s.changeRateMps) > 1)))
            differ(Trouble::cellValues, name(s.id), "has a wrong rough rate: ", got.rate,
                   " m/s from ", from.rate, " m/s");
    }

    void cell(std::size_t i, const DueMessage::Satellite& s, const Room& room) {
        const RawMsm::Cell& from = from_.cells[i];
        const auto it = std::find_if(got_.cells.begin(), got_.cells.end(), [&](const auto& c) {
            return c.id == from.id && c.signal == from.signal;
        });
        const std::string signal = signalName(got_.system(), from.signal);
        if (it == got_.cells.end())
            return differ(Trouble::cellMissing, name(s.id), signal, " is missing");
        matched_.insert({from.id, from.signal});
        quality("lock time", s.id, from.signal, from.lock, it->lock);
        quality("half-cycle flag", s.id, from.signal, from.half, it->half);
        quality("C/N0", s.id, from.signal, from.cnr, it->cnr);
        ComparedCell compared{name(s.id), signalOf(got_.system(), from.signal), known(s)};
        compared.bounds = bounds_;
        const WholeCell& want = due_.from.whole[i];
        const WholeCell& came = gotWhole_[static_cast<std::size_t>(it - got_.cells.begin())];
        const RawMsm::Satellite& rough = from_.satellite(s.id);
        if (rough.ms == kNoRough && (it->range != from.range || it->phase != from.phase))
            differ(Trouble::cellValues, name(s.id), signal,
                   " without a rough range has other fine fields than were received");
        if (form_.rates && rough.rate == kNoRoughRate && it->rate != from.rate)
            differ(Trouble::cellValues, name(s.id), signal,
                   " without a rough rate has another fine rate than was received");
        const double changeMs = s.changeM / kMsM;
        const bool mayLoseRanges = !known(s) || (room.hasRange() && !room.holdsRanges());
        const bool mayLoseRate = !known(s) || (room.hasRate() && !room.holdsRates());
        compared.error = {kMsM * value(signal + " range", s, want.rangeMs, came.rangeMs, changeMs,
                                       0, bounds_.rangeM / kMsM, kMsM, &CellError::rangeM,
                                       mayLoseRanges),
                          kMsM * value(signal + " phase", s, want.phaseMs, came.phaseMs, changeMs,
                                       want.rollOverMs, bounds_.phaseM / kMsM, kMsM,
                                       &CellError::phaseM, mayLoseRanges),
                          value(signal + " rate", s, want.rateMps, came.rateMps, s.changeRateMps, 0,
                                kRateBoundMps, 1, &CellError::rateMps, mayLoseRate)};
        result.cells.push_back(compared);
    }

    // The error; 0 where there is no value.
    double value(const std::string& what, const DueMessage::Satellite& s,
                 const std::optional<double>& from, const std::optional<double>& came,
                 double change, double period, double bound, double unit, double CellError::*of,
                 bool mayBeLost) {
        if (from.has_value() != came.has_value()) {
            if (!(from && mayBeLost))
                differ(Trouble::cellValues, name(s.id), what, " is ",
                       came ? "there and was invalid" : "invalid and was there");
            return 0;
        }
        if (!from || !known(s))
            return 0;
        double off = *came - *from - change;
        if (period > 0)
            off = std::remainder(off, period);
        if (!(std::abs(off) <= bound)) {
            const char* const name = of == &CellError::rateMps ? " m/s" : " m";
            differ(Trouble::cellValues, this->name(s.id), what, " is off by ", off * unit, name,
                   " (bound ", bound * unit, name, ")");
            result.differences.back().off.*of = std::abs(off * unit);
        }
        return off;
    }

    const DueMessage& due_;
    const RawMsm& from_;
    const RawMsm& got_;
    const MsmForm& form_;
    std::vector<WholeCell> gotWhole_;
    Values values_;
    const CellBounds bounds_ = boundsOf(got_.type % 10);
    std::set<std::pair<int, int>> matched_;
};

} // namespace

CellBounds boundsOf(int msm) {
    const MsmForm& f = msmForm(msm);
    const double range = std::ldexp(kMsM, f.rangeExp - 1);
    const double phase = std::ldexp(kMsM, f.phaseExp - 1);
    return {range, phase, range + kRoundingM, phase + kRoundingM};
}

ComparedMessage compareMessage(const DueMessage& due, const RawMsm& got, More more, Values values) {
    Comparison c(due, got, values);
    c.head(more);
    c.cells();
    return std::move(c.result);
}

} // namespace ref
