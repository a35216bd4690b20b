#include "gateway/station/EphemerisWatch.h"

#include "base/Findings.h"

#include <string>

namespace gateway {

using namespace std::chrono_literals;

namespace {

constexpr Duration kHold = 60s; // before a change is told

struct SystemOf {
    const char *letter, *name, *messages;
};
constexpr SystemOf kSystems[] = {{"G", "GPS", "1019"},
                                 {"R", "GLONASS", "1020"},
                                 {"E", "Galileo", "1045, 1046"},
                                 {"C", "BeiDou", "1042"},
                                 {"J", "QZSS", "1044"}};

} // namespace

bool tellsOfMissingEphemeris(std::string_view line) {
    return line.ends_with(" doesn't have ephemeris!");
}

void EphemerisWatch::look(const ctl::status::StatusFile& status, Instant now) {
    std::uint64_t all = 0;
    std::string bySystem;
    for (const SystemOf& s : kSystems)
        if (const auto count =
                status.count(text("systems/%s/left_out_count/no ephemeris", s.letter));
            count > 0) {
            all += count;
            bySystem += text("%s%s %ju (%s)", bySystem.empty() ? "" : ", ", s.name,
                             std::uintmax_t{count}, s.messages);
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
