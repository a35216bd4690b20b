#include "ctl/simulate/Calendar.h"

#include "base/Findings.h"
#include "gnss/ComTime.h"
#include "reference/standard/utc.h"

#include <chrono>
#include <cmath>
#include <cstdio>

namespace ctl::simulate {

namespace {

using namespace std::chrono;

constexpr sys_days kGpsEpoch = sys_days{year(1980) / January / 6};

} // namespace

std::string utcText(ref::GpsTime t, Fraction fraction) {
    const auto ms = std::llround(ref::utcOf(t) * 1000);
    const auto dayMs = ms % 86400000;
    const year_month_day date(kGpsEpoch + days(ms / 86400000));
    std::string out = text("%04d-%02u-%02u %02d:%02d:%02d", static_cast<int>(date.year()),
                           static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                           static_cast<int>(dayMs / 3600000), static_cast<int>(dayMs / 60000 % 60),
                           static_cast<int>(dayMs / 1000 % 60));
    if (fraction == Fraction::milliseconds)
        out += text(".%03d", static_cast<int>(dayMs % 1000));
    return out;
}

std::optional<ref::GpsTime> parseUtc(const std::string& given) {
    int y = 0;
    unsigned month = 0;
    unsigned day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    char between = ' ';
    int used = 0;
    const int read = std::sscanf(given.c_str(), "%4d-%2u-%2u%c%2d:%2d:%2d%n", &y, &month, &day,
                                 &between, &hour, &minute, &second, &used);
    const std::string rest = read == 7 ? given.substr(static_cast<std::size_t>(used)) : "x";
    const year_month_day date = year(y) / std::chrono::month(month) / std::chrono::day(day);
    if (!(rest.empty() || rest == "Z") || (between != ' ' && between != 'T') || !date.ok() ||
        y < 2017 || y > 2077 || hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 ||
        second > 59)
        return std::nullopt;
    const auto total = static_cast<double>((sys_days(date) - kGpsEpoch).count()) * 86400 +
                       hour * 3600 + minute * 60 + second;
    return ref::gpsTimeOf(total);
}

int utcMjd(ref::GpsTime t) {
    return kGpsEpochMjd + static_cast<int>(ref::utcOf(t) / 86400);
}

} // namespace ctl::simulate
