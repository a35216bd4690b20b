#include "compare.h"
#include "fields.h"

#include <algorithm>

// The complete answer: for each message received one with the same fields, at the virtual station.

namespace ref {

namespace {

bool mustCome(const DueMessage& d) {
    return std::any_of(d.satellites.begin(), d.satellites.end(),
                       [](const auto& s) { return !s.uncertain; });
}

} // namespace

void compareComplete(std::span<const Frame> came, const Expected& expected,
                     const Expectation& terms, ComparedAnswer& out) {
    auto due = expected.messages.begin();
    const auto missing = [&](auto to) {
        for (; due != to; ++due)
            if (mustCome(*due)) {
                const std::string words =
                    "message " + std::to_string(due->from.raw.type) + " is missing";
                out.differences.push_back({Trouble::messages, words});
                for (const DueMessage::Satellite& s : due->satellites)
                    out.differences.push_back(
                        {Trouble::cellMissing, {}, satName(due->from.raw.system(), s.id)});
            }
    };
    const Values values = terms.values ? Values::known : Values::unknown;
    for (const Frame& f : came) {
        const auto same = std::find_if(due, expected.messages.end(), [&](const DueMessage& d) {
            return d.from.raw.type == f.type;
        });
        if (same == expected.messages.end()) {
            out.differences.push_back(
                {Trouble::messages,
                 "message " + std::to_string(f.type) + " must not be there, or not in this place"});
            continue;
        }
        missing(same);
        ComparedMessage compared = compareMessage(
            *due++, readRawMsm(f.body), &f == &came.back() ? More::no : More::follows, values);
        std::move(compared.differences.begin(), compared.differences.end(),
                  std::back_inserter(out.differences));
        for (ComparedCell& c : compared.cells) {
            ++out.kept[c.sat[0] + c.signal];
            out.cells.push_back(std::move(c));
        }
    }
    missing(expected.messages.end());
}

} // namespace ref
