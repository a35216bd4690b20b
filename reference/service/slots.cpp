#include "slots.h"

#include <array>
#include <map>

namespace ref {

namespace {

// clang-format off
// Places of a record by band digit, and the attributes of each place from the best on. A digit at
// place 4 has no place of its own. No code is known for 7A, 7B, 7C and 8I of BeiDou.
struct Places { const char* digits; std::array<int, 6> place; std::array<const char*, 4> best; };
const std::map<char, Places> kPlaces{
    {'G', {"125", {0, 1, 2}, {"CPYWMNSL", "PYWCMNDLSX", "IQX", ""}}},
    {'R', {"12346", {0, 1, 2, 0, 1}, {"CPABX", "PCABX", "IQX", ""}}},
    {'E', {"15678", {0, 2, 3, 1, 4}, {"CABXZ", "IQX", "IQX", "ABCXZ"}}},
    {'J', {"1256", {0, 1, 2, 3}, {"CLSXZ", "LSX", "IQXDPZ", "LSXEZ"}}},
    {'S', {"15", {0, 1}, {"C", "IQX", "", ""}}},
    {'C', {"125678", {0, 0, 2, 3, 1, 4}, {"IQXDPAN", "IQXDPZ", "DPX", "IQXA"}}}};
// clang-format on
constexpr std::size_t kOwnPlaces = 4;

bool known(char system, const std::string& signal) {
    return !signal.empty() &&
           !(system == 'C' && (signal == "7A" || signal == "7B" || signal == "7C")) &&
           signal != "8I";
}

} // namespace

std::vector<std::string> storedSignals(char system, const std::vector<std::string>& signals) {
    const auto row = kPlaces.find(system);
    if (row == kPlaces.end())
        return {};
    const Places& p = row->second;
    std::array<std::string, kOwnPlaces> holder;
    std::array<std::size_t, kOwnPlaces> rank{};
    std::vector<std::string> further(signals.size()); // by order of the message
    std::map<std::string, std::size_t> at;
    for (std::size_t i = 0; i < signals.size(); ++i) {
        const std::string& signal = signals[i];
        if (!known(system, signal))
            continue;
        at[signal] = i;
        const std::string digits = p.digits;
        const std::size_t digit = digits.find(signal[0]);
        const auto place =
            digit == std::string::npos ? kOwnPlaces : static_cast<std::size_t>(p.place[digit]);
        if (place >= kOwnPlaces) {
            further[i] = signal;
            continue;
        }
        const std::size_t r = std::string(p.best[place]).find(signal[1]);
        std::string& held = holder[place];
        if (r != std::string::npos && (held.empty() || r < rank[place])) {
            if (!held.empty())
                further[at[held]] = held;
            held = signal;
            rank[place] = r;
        } else {
            further[i] = signal;
        }
    }
    std::vector<std::string> kept;
    for (const std::string& signal : holder)
        if (!signal.empty())
            kept.push_back(signal);
    for (const std::string& signal : further)
        if (!signal.empty()) {
            kept.push_back(signal);
            break;
        }
    return kept;
}

} // namespace ref
