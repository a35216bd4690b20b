#include "judge.h"

#include <algorithm>
#include <array>
#include <cmath>

// The specified answer: one MSM4 a system, in the service's order, with the signals that it keeps.

namespace ref {

namespace {

constexpr std::size_t kMostCells = 64; // of a message; the one with this number is without values
// A fine phase range field ends at 1171 m; the rough range is within 147 m of the range. Nearer
// than this a phase is sent with all its cycles.
constexpr double kAllCyclesM = 1000;

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

// Whole steps of dB-Hz; halves may go either way, since they pass through steps of 0.001.
bool sameCnr(double sent, double received) {
    return received >= std::floor(sent + 0.498) && received <= std::floor(sent + 0.502);
}

} // namespace

bool Judge::sameEpoch(const Msm& m, GpsTime t) const {
    const std::uint32_t want = epochField(m.system, t);
    if (predictor_->expectation.values || m.system != 'R')
        return m.epochField == want;
    return ((m.epochField ^ want) & 0x7FFFFFF) == 0; // the day of the stream is not known
}

void Judge::compareSpecified(std::span<const Frame> came, const Expected& expected,
                             EpochResult& result) {
    std::vector<Msm> messages;
    for (const Frame& f : came) {
        messages.push_back(readOverfullMsm(f.body));
        if (!messages.back().exact)
            fault(Trouble::messages, "reserved or padding bits of ", f.type);
    }
    countCells(messages);
    compareMessages(messages, expected);
    if (predictor_->expectation.values)
        compareCells(messages, expected, result);
}

void Judge::countCells(const std::vector<Msm>& messages) {
    for (const Msm& m : messages)
        for (const Cell& c : m.cells)
            if (!c.signal.empty() && c.pseudorangeM && c.phaseRangeM) {
                ++verdict_.signals[m.system + c.signal];
                ++verdict_.tally[m.system].kept;
            }
}

void Judge::compareHead(const Msm& m, GpsTime time) {
    if (m.msm != 4 || m.station != kVirtualStation || m.iods != 0)
        fault(Trouble::messages, "head of ", m.type, " at ", when(time));
    if (sameEpoch(m, time))
        return;
    auto& [times, offS] = verdict_.otherEpoch[m.type];
    ++times;
    offS = lateS(m, time);
    fault(Trouble::messages, "head of ", m.type, " at ", when(time), ": its epoch is ",
          secondsText(offS), " s later");
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
    if (!predictor_->expectation.values) { // which systems is not known, their order is
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
    std::map<std::string, CellCame> came; // "G05 1C"
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

void Judge::takeCells(const Msm& m, GpsTime time, std::map<std::string, CellCame>& came,
                      std::map<char, const Msm*>& messageOf) {
    for (std::size_t i = 0; i < m.cells.size(); ++i) {
        const Cell& c = m.cells[i];
        if (!c.signal.empty() &&
            !came.try_emplace(c.sat + " " + c.signal, CellCame{&c, i + 1}).second)
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
        cellFault(Trouble::cellValues, got.sat,
                  {rangeOff ? std::abs(rangeM) : 0, phaseOff ? std::abs(phaseM) : 0});
    }
    if (got.lock != 0 || got.half || !sameCnr(expected.cnr, got.cnr)) {
        fault(Trouble::cellQualities, got.sat, " ", signal,
              " has a wrong lock time, half-cycle flag or CNR at ", when(time));
        cellFault(Trouble::cellQualities, got.sat);
    }
    add({rangeM, phaseM},
        {kRangeHalfStepM, kPhaseHalfStepM, rangeBoundM(system), phaseBoundM(system)}, result);
}

} // namespace ref
