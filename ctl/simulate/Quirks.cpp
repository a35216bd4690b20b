#include "ctl/simulate/Quirks.h"

#include "reference/standard/msm.h"
#include "reference/standard/orbit.h"

#include <algorithm>
#include <stdexcept>

namespace ctl::simulate {

namespace {

constexpr std::uint32_t kWeekMs = 604800000;
constexpr std::uint32_t kDayMs = 86400000;
constexpr auto kMoscowMs = static_cast<std::uint32_t>(1000 * ref::kMoscowS);
constexpr auto kBdtLagMs = static_cast<std::uint32_t>(1000 * ref::kBdtLagS);
constexpr std::uint32_t kFieldEnd = 1U << 30;

} // namespace

std::string quirkNames() {
    std::string all;
    for (const std::string_view n : kQuirkNames)
        all += (all.empty() ? "" : ", ") + std::string(n);
    return all;
}

Quirks::Quirks(const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        const auto it = std::find(kQuirkNames.begin(), kQuirkNames.end(), name);
        if (it == kQuirkNames.end())
            throw std::invalid_argument("\"" + name + "\": one of " + quirkNames());
        asked_.insert(static_cast<Quirk>(it - kQuirkNames.begin()));
    }
}

std::uint32_t Quirks::epochField(char system, ref::GpsTime t) const {
    const std::uint32_t field = system == 'C' && has(Quirk::bdsGpsTime) ? ref::epochField('G', t)
                                : system == 'R' && has(Quirk::leapSecond)
                                    ? ref::epochField('R', t + 1)
                                    : ref::epochField(system, t);
    if (system == 'R') {
        // Up to three hours after Moscow's midnight: the day before, not yet over.
        const std::uint32_t tod = field & 0x7FFFFFF;
        const std::uint32_t day = field >> 27;
        if (!asked_.contains(Quirk::glonassDay) || tod >= kMoscowMs)
            return field;
        return (day + 6) % 7 << 27 | (tod + kDayMs);
    }
    if (system == 'S' && asked_.contains(Quirk::sbasDay))
        return field % kDayMs;
    if (system == 'C' && field >= kWeekMs - kBdtLagMs && asked_.contains(Quirk::bdsWeek))
        return kFieldEnd - (kWeekMs - field);
    return field == 0 && asked_.contains(Quirk::weekEnd) ? kWeekMs : field;
}

} // namespace ctl::simulate
