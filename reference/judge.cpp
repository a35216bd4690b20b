#include "judge.h"

#include "msm.h"
#include "orbit.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <sstream>

namespace {

using ref::Bytes;
using ref::Cell;

/// Observations of one satellite that are in the epoch buffer, by band digit.
using Columns = std::map<char, Cell>;

class Judge {
public:
    Judge(const Bytes& sent, const Bytes& received, const Expectation& e)
        : expected_(e), received_(received), virtual_(ref::virtualPoint(e.siteM)),
          frames_(ref::goodFrames(sent)) {}

    Verdict run() {
        for (const ref::Frame& f : frames_) {
            const bool forwarded = (f.type >= 1005 && f.type <= 1008) || f.type == 1033 ||
                                   f.type == 1230 || f.type == 1019 || f.type == 1020 ||
                                   (f.type >= 1042 && f.type <= 1046);
            if (forwarded) {
                navigation_.take(f);
                expectForwarded(f);
                epoch_.clear(); // what was collected of an epoch is wiped
            } else if (f.type >= 1071 && f.type <= 1127 && f.type % 10 >= 4 && f.type % 10 <= 7) {
                collect(ref::readMsm(f.body));
            }
        }
        if (at_ != received_.size())
            fault("bytes left over: ", received_.size() - at_);
        return verdict_;
    }

private:
    template <class... Parts> void fault(const Parts&... parts) {
        if (verdict_.faults.size() > 20)
            return;
        std::ostringstream line;
        line << "reply " << verdict_.replies << ": ";
        (line << ... << parts);
        verdict_.faults.push_back(line.str());
    }

    void expectForwarded(const ref::Frame& f) {
        ++verdict_.forwarded;
        const std::size_t n = f.bytes.size();
        if (at_ + n > received_.size() ||
            !std::equal(f.bytes.begin(), f.bytes.end(),
                        received_.begin() + static_cast<std::ptrdiff_t>(at_)))
            fault("frame of type ", f.type, " not forwarded at ", at_);
        at_ += n;
    }

    ref::GpsTime timeOf(const ref::Msm& m) const {
        double sow = m.epochField * 1e-3 + (m.system == 'C' ? ref::kBdtLagS : 0);
        if (m.system == 'R') {
            const double moscow =
                (m.epochField >> 27) * 86400.0 + (m.epochField & 0x7FFFFFF) * 1e-3;
            sow = moscow - ref::kMoscowS + ref::kLeapS;
        }
        return {expected_.week, std::fmod(sow + ref::kWeekS, ref::kWeekS)};
    }

    void collect(const ref::Msm& m) {
        const ref::GpsTime t = timeOf(m);
        if (!epoch_.empty() && std::abs(t - time_) > 1e-9)
            epoch_.clear();
        time_ = t;
        for (const Cell& c : m.cells)
            if (expected_.satellites.contains(c.sat))
                store(c);
        if (!m.more) {
            expectReply();
            epoch_.clear();
        }
    }

    /// Places a cell in its column; the order of the decoder's slots decides between two.
    void store(const Cell& c) {
        const auto& order = expected_.stored.at(c.system);
        const auto rank = std::find(order.begin(), order.end(), c.signal);
        if (rank == order.end())
            return;
        Columns& columns = epoch_[c.sat];
        const auto held = columns.find(c.signal[0]);
        if (held == columns.end() ||
            std::find(order.begin(), order.end(), held->second.signal) < rank)
            columns[c.signal[0]] = c;
    }

    /// Whether the satellite takes part; nothing where it is too close to a limit to say.
    std::optional<bool> takesPart(const std::string& sat, const Columns& columns) {
        const bool phase = std::any_of(columns.begin(), columns.end(), [](const auto& c) {
            return c.second.phaseRangeM.has_value();
        });
        if (!phase || (!navigation_.kepler.contains(sat) && !navigation_.glonass.contains(sat)))
            return false;
        double age = 0; // of the clock's reference time; BDT is compared as it stands
        if (sat[0] == 'R') {
            const double tod = std::fmod(time_.sow - ref::kLeapS + ref::kMoscowS, 86400.0);
            age = std::remainder(navigation_.glonass.at(sat).tb * 900.0 - tod, 86400.0);
        } else {
            age = std::remainder(navigation_.kepler.at(sat).toc - time_.sow, ref::kWeekS);
        }
        if (std::abs(age) > 7200.0)
            return false;
        change_ = ref::rangeChange(navigation_.satellite(sat), expected_.siteM, virtual_, time_);
        if (std::abs(change_.elevationDeg - 5.0) < 1e-4)
            return std::nullopt;
        return change_.elevationDeg > 5.0;
    }

    void expectReply() {
        ++verdict_.replies;
        const std::size_t left = received_.size() - std::min(at_, received_.size());
        const std::size_t n = left < 3 ? 0 : 7U + 256U * received_[at_ + 1] + received_[at_ + 2];
        if (n == 0 || n > left)
            return fault("no whole reply at ", at_);
        const std::span frame(received_.data() + at_, n);
        at_ += n;
        try {
            compare(ref::openReply(frame));
        } catch (const std::exception& e) {
            fault(e.what());
        }
    }

    void compare(const ref::Reply& reply) {
        if (reply.word != 0xFFFFFFFF || reply.kind != 6 || reply.messages.size() < 2)
            return fault("head of the reply");
        const auto station = ref::read1005(reply.messages[0].body);
        const auto text = ref::read1033(reply.messages[1].body);
        if (station.type != 1005 || station.station != 4095 ||
            norm(station.xyzM - virtual_) > 2e-4 || text.antenna != "GPPNULLANTENNA" ||
            text.receiverSerial != "KRV VRS")
            fault("station messages");

        std::map<std::string, const Cell*> got; // "G05 1C"
        std::vector<ref::Msm> messages;
        for (std::size_t i = 2; i < reply.messages.size(); ++i)
            messages.push_back(ref::readMsm(reply.messages[i].body));
        for (const ref::Msm& m : messages) {
            if (m.more != (&m != &messages.back()))
                fault("multiple-message bit of ", m.type);
            if (m.msm != 4 || m.station != 4095 || m.iods != 0 ||
                m.epochField != ref::epochField(m.system, time_))
                fault("head of ", m.type, " at ", time_.sow);
            for (const Cell& c : m.cells)
                got[c.sat + " " + c.signal] = &c;
        }

        std::set<std::string> groups; // in sending order
        for (const auto& [sat, columns] : epoch_) {
            const std::optional<bool> part = takesPart(sat, columns);
            if (part == false)
                continue;
            const bool bds3 = sat > "C16" && sat[0] == 'C';
            groups.insert(
                std::string("GCBERJ").substr(std::string("GCBERJ").find(bds3 ? 'B' : sat[0]), 1));
            for (const auto& [digit, c] : columns) {
                if (!expected_.carried.at(sat[0]).contains(c.signal) || !c.pseudorangeM ||
                    !c.phaseRangeM)
                    continue;
                const auto it = got.find(sat + " " + c.signal);
                if (it != got.end()) {
                    compareCell(c, *it->second);
                    got.erase(it);
                } else if (part) {
                    fault(sat, " ", c.signal, " is missing");
                }
            }
        }
        for (const auto& [key, cell] : got)
            fault(key, " must not be there");
        std::string sentGroups;
        for (const ref::Msm& m : messages) {
            const bool bds3 = m.system == 'C' && !m.cells.empty() && m.cells[0].id > 16;
            sentGroups += bds3 ? 'B' : m.system;
        }
        std::string wanted;
        for (const char g : std::string("GCBERJ"))
            if (groups.contains(std::string(1, g)))
                wanted += g;
        if (sentGroups != wanted)
            fault("messages ", sentGroups, " instead of ", wanted);
    }

    void compareCell(const Cell& reference, const Cell& c) {
        const double wavelengthM =
            ref::kLightSpeed /
            ref::frequencyHz(c.system, c.signal, c.system == 'R' ? expected_.channels.at(c.id) : 0);
        // Half a step of the message's resolution, and of a 1e-4 m for our own sums.
        const double rangeM = c.pseudorangeM.value_or(0) - *reference.pseudorangeM - change_.deltaM;
        double phaseM = c.phaseRangeM.value_or(0) - *reference.phaseRangeM - change_.deltaM;
        if (std::abs(phaseM) > 0.01) // a phase far from the range is taken back by whole cycles
            phaseM = std::remainder(phaseM, wavelengthM);
        verdict_.worstRangeM = std::max(verdict_.worstRangeM, std::abs(rangeM));
        verdict_.worstPhaseM = std::max(verdict_.worstPhaseM, std::abs(phaseM));
        if (std::abs(rangeM) > 0.00894 + 1e-4 || std::abs(phaseM) > 0.00028 + 1e-4)
            fault(c.sat, " ", c.signal, " off by ", rangeM, " m and ", phaseM, " m");
        if (c.lock != 0 || c.half || c.cnr != std::floor(reference.cnr + 0.5))
            fault(c.sat, " ", c.signal, " lock, half cycle or CNR");
        ++verdict_.cells;
        ++verdict_.signals[std::string(1, c.system) + c.signal];
    }

    const Expectation& expected_;
    const Bytes& received_;
    const ref::Vec3 virtual_;
    const std::vector<ref::Frame> frames_;
    ref::Navigation navigation_;
    std::size_t at_ = 0;
    ref::GpsTime time_;
    std::map<std::string, Columns> epoch_;
    ref::RangeChange change_;
    Verdict verdict_;
};

} // namespace

Verdict judge(const Bytes& sent, const Bytes& received, const Expectation& expectation) {
    return Judge(sent, received, expectation).run();
}
