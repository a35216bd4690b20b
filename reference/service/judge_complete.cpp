#include "fields.h"
#include "judge.h"

#include <algorithm>

// The complete answer: for each message received one with the same fields, at the virtual station.

namespace ref {

namespace {

bool mustCome(const DueMessage& d) {
    return std::any_of(d.satellites.begin(), d.satellites.end(),
                       [](const auto& s) { return !s.uncertain; });
}

} // namespace

void Judge::compareComplete(std::span<const Frame> came, const Expected& expected,
                            EpochResult& result) {
    std::map<std::string, EpochResult::Satellite*> results;
    result.satellites.reserve(expected.satellites.size());
    for (const ExpectedSatellite& s : expected.satellites)
        results[s.sat] = &result.satellites.emplace_back(EpochResult::Satellite{s, 0, 0, {}, {}});
    auto due = expected.messages.begin();
    const auto missing = [&](auto to) {
        for (; due != to; ++due)
            if (mustCome(*due)) {
                fault(Trouble::messages, "message ", due->from.raw.type, " is missing at ",
                      when(expected.time));
                for (const DueMessage::Satellite& s : due->satellites)
                    cellFault(Trouble::cellMissing, satName(due->from.raw.system(), s.id));
            }
    };
    for (const Frame& f : came) {
        const auto same = std::find_if(due, expected.messages.end(), [&](const DueMessage& d) {
            return d.from.raw.type == f.type;
        });
        if (same == expected.messages.end()) {
            fault(Trouble::messages, "message ", f.type,
                  " must not be there, or not in this place, at ", when(expected.time));
            continue;
        }
        missing(same);
        compareComplete(*due++, readRawMsm(f.body), &f == &came.back(), expected.time, results);
    }
    missing(expected.messages.end());
    for (EpochResult::Satellite& r : result.satellites) {
        if (r.cells.empty() && inEpoch_.contains({r.expected.sat, Trouble::cellMissing}))
            r.expected.fate = Fate::missing;
        ++verdict_.fates[r.expected.fate];
    }
    countSatellites(expected);
}

void Judge::compareComplete(const DueMessage& due, const RawMsm& got, bool last, GpsTime time,
                            std::map<std::string, EpochResult::Satellite*>& results) {
    const Values values = predictor_->expectation.values ? Values::known : Values::unknown;
    const ComparedMessage compared =
        compareMessage(due, got, last ? More::no : More::follows, values);
    for (const Difference& d : compared.differences) {
        fault(d.what, d.words, " at ", when(time));
        if (!d.sat.empty())
            cellFault(d.what, d.sat, d.off);
    }
    for (const ComparedCell& c : compared.cells) {
        ++verdict_.signals[c.sat[0] + signalOf(c.sat[0], c.signal)];
        ++verdict_.tally[c.sat[0]].kept;
        if (const auto r = results.find(c.sat); r != results.end())
            add(c.error, boundsOf(got.type % 10), *r->second);
    }
}

} // namespace ref
