#include "judge.h"

#include "reference/standard/kinds.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iomanip>
#include <sstream>

namespace ref {

namespace {

constexpr int kStationId = 4095;
constexpr int kMostInWords = 5;          // of a kind
constexpr double kPositionBoundM = 2e-4; // steps of 1005 are 1e-4
constexpr std::size_t kMostCells = 64;   // of a message; the one with this number is without values
// A fine phase range field ends at 1171 m; the rough range is within 147 m of the range. Nearer
// than this a phase is sent with all its cycles.
constexpr double kAllCyclesM = 1000;

std::string seconds(double s) {
    std::ostringstream out;
    out << std::fixed << std::setprecision(3) << s;
    return out.str();
}

std::string coordinates(const Vec3& xyzM) {
    std::ostringstream out;
    out << std::fixed << std::setprecision(4) << xyzM[0] << " " << xyzM[1] << " " << xyzM[2];
    return out.str();
}

// Messages of a reply in order: 'B' is the second message of BeiDou.
char group(const std::string& sat) {
    return sat[0] == 'C' && sat > "C16" ? 'B' : sat[0];
}
constexpr std::string_view kSendingOrder = "GCBERJ";

constexpr std::array<const char*, 6> kGroupNames{"GPS",     "BeiDou-2", "BeiDou-3",
                                                 "Galileo", "GLONASS",  "QZSS"};

std::string groupNames(const std::string& groups) {
    std::string out;
    for (const char g : groups) {
        const std::size_t at = kSendingOrder.find(g);
        out += (out.empty() ? "" : ", ") +
               (at < kGroupNames.size() ? kGroupNames[at] : std::string(1, g));
    }
    return out.empty() ? "none" : out;
}

// Whether a pair lies where the cell mask reaches: in a message of more than 64 pairs the rest is
// without cells.
bool withinMask(const Msm& m, int id, const std::string& signal) {
    const auto sat = std::find(m.sats.begin(), m.sats.end(), id) - m.sats.begin();
    const auto column = std::find(m.signals.begin(), m.signals.end(), signal) - m.signals.begin();
    const std::size_t pair =
        static_cast<std::size_t>(sat) * m.signals.size() + static_cast<std::size_t>(column);
    return pair < kMostCells;
}

// By how much the epoch of a message is later than a time, as far as its own day or week tells.
double lateS(const Msm& m, GpsTime t) {
    const std::uint32_t want = epochField(m.system, t);
    return (static_cast<double>(m.epochField) - static_cast<double>(want)) * 1e-3;
}

// Whole steps of dB-Hz; halves may go either way, since they pass through steps of 0.001.
bool sameCnr(double sent, double received) {
    return received >= std::floor(sent + 0.498) && received <= std::floor(sent + 0.502);
}

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

Judge::Judge(Expectation e) : predictor_(std::move(e)) {
    verdict_.position.dueM = predictor_.virtualAt;
}

// GPS week and second; the second alone where the week is not known.
std::string Judge::when(GpsTime t) const {
    const bool week = predictor_.expectation.dayKnown;
    return (week ? std::to_string(t.week) + "/" : "second ") + seconds(t.sow);
}

std::string Judge::describe(const Expected& e) const {
    return e.type != 0 ? "the forwarded frame of type " + std::to_string(e.type)
                       : "the reply to epoch " + when(e.time);
}

template <class... Parts> void Judge::fault(Trouble what, const Parts&... parts) {
    ++verdict_.wrong;
    if (++verdict_.troubles[what] > kMostInWords)
        return;
    std::ostringstream line;
    (line << ... << parts);
    verdict_.faults.push_back(line.str());
}

void Judge::sent(std::span<const std::uint8_t> piece) {
    for (Expected& e : predictor_.take(piece)) {
        verdict_.due += e.type == 0 ? 1 : 0;
        owed_.push_back({std::move(e)});
    }
    census_.take(piece);
    verdict_.ended = predictor_.ended();
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
    if (bytes[0] == 0xDA)
        reply(bytes);
    else
        forwarded(bytes);
}

// The frames owed before the one that came have not come.
void Judge::skip(std::size_t count) {
    for (; count > 0; --count) {
        const Expected& e = owed_.front().expected;
        fault(e.type == 0 ? Trouble::missingReply : Trouble::missingFrame, describe(e),
              " is missing");
        ++verdict_.missing;
        if (e.type != 0)
            ++verdict_.missingTypes[e.type];
        owed_.pop_front();
    }
}

void Judge::forwarded(std::span<const std::uint8_t> bytes) {
    ++verdict_.forwarded;
    const int type = bytes.size() > 4 ? bytes[3] * 16 + bytes[4] / 16 : 0;
    verdict_.bytes[type] += bytes.size();
    const auto same = std::find_if(owed_.begin(), owed_.end(), [&](const Owed& o) {
        return o.expected.type != 0 && std::equal(bytes.begin(), bytes.end(),
                                                  o.expected.frame.begin(), o.expected.frame.end());
    });
    if (same != owed_.end()) {
        skip(static_cast<std::size_t>(same - owed_.begin()));
        owed_.pop_front();
        return;
    }
    // A wrong check word: what was owed was altered on the way. A right one: nobody asked for it.
    const bool altered = crc24q(bytes) != 0;
    fault(altered ? Trouble::altered : Trouble::unasked, "a frame of type ", type,
          altered ? " came back altered" : " came unasked");
    if (altered && !owed_.empty() && owed_.front().expected.frame.size() == bytes.size())
        owed_.pop_front();
}

void Judge::reply(std::span<const std::uint8_t> bytes) {
    ++verdict_.replies;
    EpochResult result;
    result.bytes = bytes.size();
    Reply opened;
    std::optional<Msm> first;
    try {
        opened = openReply(bytes);
        const auto msm = std::find_if(opened.messages.begin(), opened.messages.end(),
                                      [](const Frame& m) { return isMsm(m.type); });
        if (msm != opened.messages.end())
            first = readOverfullMsm(msm->body);
    } catch (const std::exception& e) {
        fault(Trouble::brokenReply, e.what(),
              owed_.empty() ? "" : ", next is " + describe(owed_.front().expected));
        result.right = false;
    }
    std::size_t around = bytes.size();
    for (const Frame& m : opened.messages) {
        verdict_.bytes[m.type] += m.bytes.size();
        around -= m.bytes.size();
    }
    verdict_.bytes[0] += around;
    // the reply to this epoch; one that does not say its epoch answers the next one
    const auto due = std::find_if(owed_.begin(), owed_.end(), [&](const Owed& o) {
        return o.expected.type == 0 && (!first || sameEpoch(*first, o.expected.time));
    });
    if (due == owed_.end())
        return unaskedReply(first);
    skip(static_cast<std::size_t>(due - owed_.begin()));
    const Owed answered = std::move(owed_.front());
    owed_.pop_front();
    result.time = answered.expected.time;
    result.delayS = answered.leftS < 0 ? 0 : heldSinceS_ - answered.leftS;
    if (answered.leftS >= 0)
        verdict_.delaysS.push_back(static_cast<float>(result.delayS));
    if (result.right)
        result.right = compare(opened, answered.expected, result);
    if (onEpoch)
        onEpoch(result);
}

void Judge::unaskedReply(const std::optional<Msm>& first) {
    const auto next = std::find_if(owed_.begin(), owed_.end(),
                                   [](const Owed& o) { return o.expected.type == 0; });
    if (!first || next == owed_.end())
        return fault(Trouble::unaskedReply, "a reply came unasked");
    fault(Trouble::unaskedReply, "a reply came unasked: its epoch is ",
          seconds(lateS(*first, next->expected.time)), " s later than ", when(next->expected.time),
          ", which is due");
}

bool Judge::sameEpoch(const Msm& m, GpsTime t) const {
    const std::uint32_t want = epochField(m.system, t);
    if (predictor_.expectation.values || m.system != 'R')
        return m.epochField == want;
    return ((m.epochField ^ want) & 0x7FFFFFF) == 0; // the day of the stream is not known
}

bool Judge::compare(const Reply& reply, const Expected& expected, EpochResult& result) {
    const int before = verdict_.wrong;
    const bool values = predictor_.expectation.values;
    try {
        if (reply.word != 0xFFFFFFFF)
            fault(Trouble::messages, "head of the reply at ", when(expected.time));
        auto next = reply.messages.begin();
        const auto comesNext = [&](int type) {
            return next != reply.messages.end() && next->type == type;
        };
        if (comesNext(1005)) {
            const Bytes& body = next++->body;
            const Station1005 station = read1005(body);
            if (body != write1005({.station = kStationId, .xyzM = station.xyzM}))
                fault(Trouble::messages, "station message 1005 at ", when(expected.time));
            comparePosition(station, expected.time);
        } else {
            fault(Trouble::noPosition, "1005 is missing at ", when(expected.time));
        }
        static const Bytes descriptors =
            write1033({kStationId, "GPPNULLANTENNA", 0, "", "", "", "KRV VRS"});
        if (!comesNext(1033))
            fault(Trouble::descriptors, "1033 is missing at ", when(expected.time));
        else if (next++->body != descriptors)
            fault(Trouble::descriptors, "station message 1033 at ", when(expected.time));
        std::vector<Msm> messages;
        for (; next != reply.messages.end(); ++next) {
            messages.push_back(readOverfullMsm(next->body));
            if (!messages.back().exact)
                fault(Trouble::messages, "reserved or padding bits of ", next->type);
        }
        countCells(messages);
        compareMessages(messages, expected);
        if (values)
            compareCells(messages, expected, result);
    } catch (const std::exception& e) {
        fault(Trouble::brokenReply, "a message of the reply at ", when(expected.time), ": ",
              e.what());
    }
    return verdict_.wrong == before;
}

// Where values are not known a distance is kept, and nothing is wrong with it.
void Judge::comparePosition(const Station1005& station, GpsTime time) {
    if (!predictor_.expectation.siteKnown)
        return;
    const double awayM = norm(station.xyzM - predictor_.virtualAt);
    PositionTally& p = verdict_.position;
    if (awayM >= p.awayM) {
        p.awayM = awayM;
        p.cameM = station.xyzM;
    }
    if (!predictor_.expectation.values || awayM <= kPositionBoundM)
        return;
    ++p.wrong;
    fault(Trouble::position, "1005 at ", when(time), " says ", coordinates(station.xyzM),
          " instead of ", coordinates(predictor_.virtualAt), ", ", seconds(awayM), " m away");
}

void Judge::countCells(const std::vector<Msm>& messages) {
    for (const Msm& m : messages)
        for (const Cell& c : m.cells)
            if (!c.signal.empty() && c.pseudorangeM && c.phaseRangeM)
                ++verdict_.signals[m.system + c.signal];
}

void Judge::compareHead(const Msm& m, GpsTime time) {
    if (m.msm != 4 || m.station != kStationId || m.iods != 0)
        fault(Trouble::messages, "head of ", m.type, " at ", when(time));
    if (sameEpoch(m, time))
        return;
    auto& [times, offS] = verdict_.otherEpoch[m.type];
    ++times;
    offS = lateS(m, time);
    fault(Trouble::messages, "head of ", m.type, " at ", when(time), ": its epoch is ",
          seconds(offS), " s later");
}

void Judge::compareMessages(const std::vector<Msm>& messages, const Expected& expected) {
    std::string came;
    for (const Msm& m : messages) {
        if (m.more != (&m != &messages.back()))
            fault(Trouble::messages, "multiple-message bit of ", m.type, " at ",
                  when(expected.time));
        compareHead(m, expected.time);
        // of an empty message of BeiDou only its place tells whether it is the second one
        const bool second = m.system == 'C' && came.find_first_of("CB") != std::string::npos;
        came += m.sats.empty() ? (second ? 'B' : m.system) : group(satName(m.system, m.sats[0]));
        for (const int id : m.sats)
            if (group(satName(m.system, id)) != came.back())
                fault(Trouble::messages, satName(m.system, id), " is in the wrong message of ",
                      m.type, " at ", when(expected.time));
    }
    std::string owed;
    for (const char g : kSendingOrder) {
        const auto of = [&](const ExpectedSatellite& s) {
            return group(s.sat) == g && (s.fate == Fate::answered || s.fate == Fate::noSignal) &&
                   !s.uncertain;
        };
        const bool mayCome = std::any_of(
            expected.satellites.begin(), expected.satellites.end(),
            [&](const ExpectedSatellite& s) { return group(s.sat) == g && s.uncertain; });
        if (std::any_of(expected.satellites.begin(), expected.satellites.end(), of) ||
            (mayCome && came.find(g) != std::string::npos))
            owed += g;
    }
    if (!predictor_.expectation.values) { // which systems is not known, their order is
        owed.clear();
        for (const char g : kSendingOrder)
            if (came.find(g) != std::string::npos)
                owed += g;
    }
    if (came != owed)
        fault(Trouble::messages, "observation messages of ", groupNames(came), " instead of ",
              groupNames(owed), " at ", when(expected.time));
}

void Judge::compareCells(const std::vector<Msm>& messages, const Expected& expected,
                         EpochResult& result) {
    std::map<std::string, Came> came;     // "G05 1C"
    std::map<char, const Msm*> messageOf; // by group
    for (const Msm& m : messages)
        takeCells(m, expected.time, came, messageOf);
    for (const ExpectedSatellite& s : expected.satellites) {
        EpochResult::Satellite& r = result.satellites.emplace_back();
        r.expected = s;
        for (const auto& [signal, cell] : s.cells) {
            const auto it = came.find(s.sat + " " + signal);
            if (it == came.end()) {
                const auto m = messageOf.find(group(s.sat));
                const bool reached = m == messageOf.end() ||
                                     withinMask(*m->second, std::stoi(s.sat.substr(1)), signal);
                if (!s.uncertain && reached) {
                    fault(Trouble::cellMissing, s.sat, " ", signal, " is missing at ",
                          when(expected.time));
                    cellFault(Trouble::cellMissing, s.sat);
                }
                continue;
            }
            const Cell& got = *it->second.cell;
            if (it->second.number < kMostCells)
                compareCell(expected.time, signal, cell, got, r);
            else if (got.pseudorangeM || got.phaseRangeM)
                fault(Trouble::messages, s.sat, " ", signal, " has values in the 64th cell at ",
                      when(expected.time));
            came.erase(it);
        }
        if (r.cells.empty() && inEpoch_.contains({s.sat, Trouble::cellMissing}))
            r.expected.fate = Fate::missing;
        ++verdict_.fates[r.expected.fate];
    }
    for (const auto& [key, c] : came) {
        fault(Trouble::cellUnasked, key, " must not be there at ", when(expected.time));
        cellFault(Trouble::cellUnasked, c.cell->sat);
    }
    countSatellites(expected);
}

void Judge::cellFault(Trouble what, const std::string& sat, double rangeM, double phaseM) {
    inEpoch_.emplace(sat, what);
    SatelliteTally::Wrong& w = verdict_.satellites[sat].wrong[what];
    w.rangeM = std::max(w.rangeM, rangeM);
    w.phaseM = std::max(w.phaseM, phaseM);
}

void Judge::countSatellites(const Expected& expected) {
    for (const ExpectedSatellite& s : expected.satellites)
        if (s.fate == Fate::answered && !s.uncertain)
            ++verdict_.satellites[s.sat].due;
    for (const auto& [sat, what] : inEpoch_)
        ++verdict_.satellites[sat].wrong[what].epochs;
    inEpoch_.clear();
}

void Judge::takeCells(const Msm& m, GpsTime time, std::map<std::string, Came>& came,
                      std::map<char, const Msm*>& messageOf) {
    for (std::size_t i = 0; i < m.cells.size(); ++i) {
        const Cell& c = m.cells[i];
        if (!c.signal.empty() && !came.try_emplace(c.sat + " " + c.signal, Came{&c, i + 1}).second)
            fault(Trouble::messages, c.sat, " ", c.signal, " comes twice at ", when(time));
    }
    for (const int id : m.sats) {
        messageOf[group(satName(m.system, id))] = &m;
        const bool observed =
            std::any_of(m.cells.begin(), m.cells.end(), [id](const Cell& c) { return c.id == id; });
        if (!observed && withinMask(m, id, m.signals.back()))
            fault(Trouble::messages, satName(m.system, id), " comes without a signal at ",
                  when(time));
    }
}

void Judge::compareCell(GpsTime time, const std::string& signal, const ExpectedCell& expected,
                        const Cell& got, EpochResult::Satellite& result) {
    if (!got.pseudorangeM || !got.phaseRangeM) {
        cellFault(Trouble::cellMissing, got.sat);
        return fault(Trouble::cellMissing, got.sat, " ", signal, " has no values at ", when(time));
    }
    const double rangeM = *got.pseudorangeM - expected.pseudorangeM;
    double phaseM = *got.phaseRangeM - expected.phaseRangeM;
    // a phase far from the range is taken back by whole cycles
    if (std::abs(expected.phaseRangeM - expected.pseudorangeM) > kAllCyclesM)
        phaseM = std::remainder(phaseM, expected.wavelengthM);
    const char system = got.system;
    const bool rangeOff = !(std::abs(rangeM) <= rangeBoundM(system));
    const bool phaseOff = !(std::abs(phaseM) <= phaseBoundM(system));
    if (rangeOff || phaseOff) {
        fault(Trouble::cellValues, got.sat, " ", signal, " is off by ", rangeM, " m of range and ",
              phaseM, " m of phase at ", when(time));
        cellFault(Trouble::cellValues, got.sat, rangeOff ? std::abs(rangeM) : 0,
                  phaseOff ? std::abs(phaseM) : 0);
    }
    if (got.lock != 0 || got.half || !sameCnr(expected.cnr, got.cnr)) {
        fault(Trouble::cellQualities, got.sat, " ", signal,
              " has a wrong lock time, half-cycle flag or CNR at ", when(time));
        cellFault(Trouble::cellQualities, got.sat);
    }
    Worst& w = verdict_.worst[system];
    w.rangeM = std::max(w.rangeM, std::abs(rangeM));
    w.phaseM = std::max(w.phaseM, std::abs(phaseM));
    ++w.cells;
    ++verdict_.cells;
    result.cells.push_back({rangeM, phaseM});
    if (std::abs(rangeM) > std::abs(result.rangeErrorM))
        result.rangeErrorM = rangeM;
    if (std::abs(phaseM) > std::abs(result.phaseErrorM))
        result.phaseErrorM = phaseM;
}

void Judge::restart() {
    skip(owed_.size());
    held_.clear();
    predictor_.restart();
    census_.breakOff();
    verdict_.stream = census_.counts();
}

void Judge::finish() {
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
