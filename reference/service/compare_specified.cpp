#include "compare.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <set>
#include <sstream>

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

class SpecifiedComparison {
public:
    SpecifiedComparison(const Expected& expected, const Expectation& terms, ComparedAnswer& out)
        : expected_(expected), terms_(terms), out_(out) {}

    void compare(std::span<const Frame> came) {
        std::vector<Msm> messages;
        for (const Frame& f : came) {
            messages.push_back(readOverfullMsm(f.body));
            if (!messages.back().exact)
                differ(Trouble::messages, {}, "reserved or padding bits of ", f.type);
        }
        countCells(messages);
        compareMessages(messages);
        if (terms_.values)
            compareCells(messages);
    }

private:
    struct CellCame { // with its number in its message from 1 on
        const Cell* cell;
        std::size_t number;
    };

    template <class... Parts>
    Difference& differ(Trouble what, const std::string& sat, const Parts&... parts) {
        std::ostringstream words;
        (words << ... << parts);
        return out_.differences.emplace_back(Difference{what, words.str(), sat});
    }

    void countCells(const std::vector<Msm>& messages) {
        for (const Msm& m : messages)
            for (const Cell& c : m.cells)
                if (!c.signal.empty() && c.pseudorangeM && c.phaseRangeM)
                    ++out_.kept[m.system + c.signal];
    }

    void compareHead(const Msm& m) {
        if (m.msm != 4 || m.station != kVirtualStation || m.iods != 0)
            differ(Trouble::messages, {}, "head of ", m.type);
        if (sameEpoch(m, expected_.time, terms_))
            return;
        auto& [times, offS] = out_.otherEpoch[m.type];
        ++times;
        offS = lateS(m, expected_.time);
        differ(Trouble::messages, {}, "head of ", m.type, ": its epoch is ", secondsText(offS),
               " s later");
    }

    void compareMessages(const std::vector<Msm>& messages) {
        std::string came;
        for (const Msm& m : messages) {
            if (m.more != (&m != &messages.back()))
                differ(Trouble::messages, {}, "multiple-message bit of ", m.type);
            compareHead(m);
            // of an empty message of BeiDou only its place tells whether it is the second one
            const bool second = m.system == 'C' && came.find_first_of("CB") != std::string::npos;
            came +=
                m.sats.empty() ? (second ? 'B' : m.system) : group(satName(m.system, m.sats[0]));
            for (const int id : m.sats)
                if (group(satName(m.system, id)) != came.back())
                    differ(Trouble::messages, {}, satName(m.system, id),
                           " is in the wrong message of ", m.type);
        }
        const std::string owed = owedGroups(came);
        if (came != owed)
            differ(Trouble::messages, {}, "observation messages of ", groupNames(came),
                   " instead of ", groupNames(owed));
    }

    std::string owedGroups(const std::string& came) const {
        std::string owed;
        for (const char g : kSendingOrder) {
            const bool there = came.find(g) != std::string::npos;
            if (!terms_.values) { // which systems is not known, their order is
                owed += there ? std::string(1, g) : "";
                continue;
            }
            const auto any = [&](auto of) {
                return std::any_of(
                    expected_.satellites.begin(), expected_.satellites.end(),
                    [&](const ExpectedSatellite& s) { return group(s.sat) == g && of(s); });
            };
            const bool due = any([](const ExpectedSatellite& s) {
                return (s.fate == Fate::answered || s.fate == Fate::noSignal) && !s.uncertain;
            });
            if (due || (there && any([](const ExpectedSatellite& s) { return s.uncertain; })))
                owed += g;
        }
        return owed;
    }

    void compareCells(const std::vector<Msm>& messages) {
        for (const Msm& m : messages)
            takeCells(m);
        for (const ExpectedSatellite& s : expected_.satellites)
            for (const auto& [signal, cell] : s.cells)
                compareCell(s, signal, cell);
        for (const auto& [key, c] : came_)
            differ(Trouble::cellUnasked, c.cell->sat, key, " must not be there");
    }

    void takeCells(const Msm& m) {
        for (std::size_t i = 0; i < m.cells.size(); ++i) {
            const Cell& c = m.cells[i];
            if (!c.signal.empty() &&
                !came_.try_emplace(c.sat + " " + c.signal, CellCame{&c, i + 1}).second)
                differ(Trouble::messages, {}, c.sat, " ", c.signal, " comes twice");
        }
        for (const int id : m.sats) {
            messageOf_[group(satName(m.system, id))] = &m;
            const bool observed = std::any_of(m.cells.begin(), m.cells.end(),
                                              [id](const Cell& c) { return c.id == id; });
            if (!observed && withinMask(m, id, m.signals.back()))
                differ(Trouble::messages, {}, satName(m.system, id), " comes without a signal");
        }
    }

    void compareCell(const ExpectedSatellite& s, const std::string& signal,
                     const ExpectedCell& expected) {
        const auto it = came_.find(s.sat + " " + signal);
        if (it == came_.end()) {
            const auto m = messageOf_.find(group(s.sat));
            const bool reached =
                m == messageOf_.end() || withinMask(*m->second, std::stoi(s.sat.substr(1)), signal);
            if (!s.uncertain && reached)
                differ(Trouble::cellMissing, s.sat, s.sat, " ", signal, " is missing");
            return;
        }
        const Cell& got = *it->second.cell;
        if (it->second.number < kMostCells)
            compareValues(s, signal, expected, got);
        else if (got.pseudorangeM || got.phaseRangeM)
            differ(Trouble::messages, {}, s.sat, " ", signal, " has values in the 64th cell");
        came_.erase(it);
    }

    void compareValues(const ExpectedSatellite& s, const std::string& signal,
                       const ExpectedCell& expected, const Cell& got) {
        if (!got.pseudorangeM || !got.phaseRangeM) {
            differ(Trouble::cellMissing, got.sat, got.sat, " ", signal, " has no values");
            return;
        }
        if (got.lock != 0 || got.half || !sameCnr(expected.cnr, got.cnr))
            differ(Trouble::cellQualities, got.sat, got.sat, " ", signal,
                   " has a wrong lock time, half-cycle flag or CNR");
        ComparedCell& compared = out_.cells.emplace_back(ComparedCell{got.sat, signal});
        if (s.unknown)
            return;
        const double rangeM = *got.pseudorangeM - expected.pseudorangeM;
        double phaseM = *got.phaseRangeM - expected.phaseRangeM;
        // a phase far from the range is taken back by whole cycles
        if (std::abs(expected.phaseRangeM - expected.pseudorangeM) > kAllCyclesM)
            phaseM = std::remainder(phaseM, expected.wavelengthM);
        const CellBounds bounds{kRangeHalfStepM, kPhaseHalfStepM, rangeBoundM(got.system, awayM_),
                                phaseBoundM(got.system, awayM_)};
        compared.known = true;
        compared.error = {rangeM, phaseM};
        compared.bounds = bounds;
        const bool rangeOff = !(std::abs(rangeM) <= bounds.rangeM);
        const bool phaseOff = !(std::abs(phaseM) <= bounds.phaseM);
        if (rangeOff || phaseOff)
            differ(Trouble::cellValues, got.sat, got.sat, " ", signal, " is off by ", rangeM,
                   " m of range and ", phaseM, " m of phase (bounds ", bounds.rangeM, " m and ",
                   bounds.phaseM, " m)")
                .off = {rangeOff ? std::abs(rangeM) : 0, phaseOff ? std::abs(phaseM) : 0};
    }

    const Expected& expected_;
    const Expectation& terms_;
    const double awayM_ = terms_.offsetM ? norm(*terms_.offsetM) : 0; // of the virtual station
    ComparedAnswer& out_;
    std::map<std::string, CellCame> came_; // "G05 1C"
    std::map<char, const Msm*> messageOf_; // by group
};

} // namespace

bool sameEpoch(const Msm& m, GpsTime t, const Expectation& terms) {
    const std::uint32_t want = epochField(m.system, t);
    if (terms.values || m.system != 'R')
        return m.epochField == want;
    return ((m.epochField ^ want) & 0x7FFFFFF) == 0; // the day of the stream is not known
}

void compareSpecified(std::span<const Frame> came, const Expected& expected,
                      const Expectation& terms, ComparedAnswer& out) {
    SpecifiedComparison(expected, terms, out).compare(came);
}

} // namespace ref
