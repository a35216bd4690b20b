#include "gateway/station/EphemerisWatch.h"

#include "base/Findings.h"
#include "ctl/simulate/Summary.h"

#include <string>
#include <utility>

namespace gateway {

using namespace std::chrono_literals;

namespace {

constexpr Duration kHold = 60s; // before a change is told

/// The numbers of the messages that bring the ephemerides of each system (RTCM 10403.3).
constexpr std::pair<char, const char*> kMessages[] = {
    {'G', "1019"}, {'R', "1020"}, {'E', "1045, 1046"}, {'C', "1042"}, {'J', "1044"}};

} // namespace

bool tellsOfMissingEphemeris(std::string_view line) {
    return line.ends_with(" doesn't have ephemeris!");
}

void EphemerisWatch::look(const ctl::status::StatusFile& status, Instant now) {
    std::uint64_t all = 0;
    std::string bySystem;
    for (const auto& [system, messages] : kMessages)
        if (const auto count = status.count(text("systems/%c/left_out_count/no ephemeris", system));
            count > 0) {
            all += count;
            bySystem += text("%s%s %ju (%s)", bySystem.empty() ? "" : ", ",
                             ctl::simulate::systemName(system), std::uintmax_t{count}, messages);
        }
    if ((all > 0) == told_) {
        since_.reset();
        return;
    }
    since_ = since_.value_or(now);
    if (now - *since_ < kHold)
        return;
    since_.reset();
    told_ = all > 0;
    if (told_)
        say_(Level::warning,
             "no ephemeris has come for a minute: " + bySystem + "; these satellites are left out");
    else
        say_(Level::notice, "every satellite has its ephemeris");
}

} // namespace gateway
