#include "ctl/rinex/Signals.h"

#include "base/ComText.h"
#include "base/Findings.h"

#include <algorithm>
#include <stdexcept>

namespace ctl::rinex {

namespace {

/// Attributes by system and band, of the columns that the records have (RINEX 3.05, tables of the
/// observation codes). The second B2b and B3 of BeiDou are those of the third generation.
struct Band {
    char system, digit;
    std::string_view attributes;
};
constexpr Band kBands[] = {{'G', '1', "CSLXPWYMN"}, {'G', '2', "CDSLXPWYMN"}, {'G', '5', "IQX"}, //
                           {'R', '1', "CP"},        {'R', '2', "CP"},                            //
                           {'E', '1', "ABCXZ"},     {'E', '5', "IQX"},        {'E', '6', "ABCXZ"},
                           {'E', '8', "IQX"},       {'C', '1', "DPXSLZ"},     {'C', '2', "IQX"},
                           {'C', '6', "IQXDPZ"}, //
                           {'C', '7', "IQXDPZ"},    {'C', '8', "DPX"}};

} // namespace

bool isSignal(char system, std::string_view signal) {
    for (const Band& band : kBands)
        if (signal.size() == 2 && band.system == system && band.digit == signal[0])
            return contains(band.attributes, signal.substr(1));
    return false;
}

Attributes readSignals(const std::vector<std::string>& lists) {
    Attributes out;
    for (const std::string& list : lists) {
        if (list.size() < 4 || list[1] != '=')
            throw std::runtime_error("--signals " + list + ": write them as G=1C,2W,5Q");
        const char system = list[0];
        for (std::size_t at = 2; at <= list.size();) {
            const std::size_t end = std::min(list.find(',', at), list.size());
            const std::string signal = list.substr(at, end - at);
            at = end + 1;
            if (!isSignal(system, signal))
                throw std::runtime_error(text("--signals %s: \"%s\" is no signal that the records "
                                              "can have of system %c",
                                              list.c_str(), signal.c_str(), system));
            const auto [given, added] = out.try_emplace({system, signal[0]}, signal[1]);
            if (!added && given->second != signal[1])
                throw std::runtime_error(text("--signals %s: the records have one signal of each "
                                              "carrier, not %c%c and %s",
                                              list.c_str(), signal[0], given->second,
                                              signal.c_str()));
        }
    }
    return out;
}

std::string observationCode(char system, std::string_view type, const Attributes& attributes) {
    const auto given = attributes.find({system, type[1]});
    return std::string(type) + (given == attributes.end() ? ' ' : given->second);
}

} // namespace ctl::rinex
