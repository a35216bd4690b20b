#include "gateway/net/Nearest.h"

#include "base/ComText.h"
#include "ctl/check/EditDistance.h"

#include <algorithm>

namespace gateway {

namespace {

constexpr std::size_t kLongestWord = 64; // that is compared
constexpr std::size_t kShortestWord = 3; // with which another one may begin

} // namespace

std::string_view nearest(std::string_view word, std::span<const std::string_view> known) {
    const std::string lower = toLower(std::string(word.substr(0, kLongestWord)));
    std::size_t best = 1 + std::max<std::size_t>((lower.size() + 1) / 3, 1); // changes, or more
    std::string_view found;
    for (const std::string_view candidate : known)
        if (candidate.size() >= kShortestWord && lower.starts_with(candidate))
            found = candidate; // "baudrate"
    for (const std::string_view candidate : known)
        if (const std::size_t d = ctl::check::editDistance(lower, candidate); d < best) {
            best = d;
            found = candidate;
        }
    return found;
}

std::string meantOrKnown(std::string_view word, std::span<const std::string_view> known) {
    if (const std::string_view near = nearest(word, known); !near.empty())
        return "is " + std::string(near) + " meant?";
    std::string list;
    for (const std::string_view candidate : known)
        list += (list.empty() ? "known: " : ", ") + std::string(candidate);
    return list;
}

} // namespace gateway
