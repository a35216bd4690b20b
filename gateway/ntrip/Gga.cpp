#include "gateway/ntrip/Gga.h"

#include "base/Findings.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>

namespace gateway::ntrip {

namespace {

constexpr std::size_t kLongestSentence = 128;

/// Of what stands between '$' and '*'.
unsigned sumOf(std::string_view body) {
    unsigned sum = 0;
    for (const char c : body)
        sum ^= static_cast<unsigned char>(c);
    return sum;
}

/// Digits with at most one point, a minus where it may be; nothing for any other text.
std::optional<double> decimal(std::string_view text) {
    if (text.find_first_not_of("0123456789.", text.starts_with('-') ? 1 : 0) != text.npos)
        return std::nullopt;
    double value = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

/// "ddmm.mmmm" or "dddmm.mmmm" and a hemisphere; degrees up to `most`.
std::optional<double> angle(std::string_view text, std::string_view side, std::string_view sides,
                            double most) {
    const std::optional<double> number = decimal(text);
    if (!number || text.starts_with('-') || side.size() != 1 || sides.find(side) == sides.npos)
        return std::nullopt;
    const double degrees = std::floor(*number / 100.0);
    const double minutes = *number - degrees * 100.0;
    const double value = degrees + minutes / 60.0;
    if (minutes >= 60.0 || value > most)
        return std::nullopt;
    return side[0] == sides[0] ? value : -value;
}

/// A count of at most two digits; 0 where none is told.
std::optional<int> shortCount(std::string_view text) {
    if (text.size() > 2 || text.find_first_not_of("0123456789") != text.npos)
        return std::nullopt;
    int value = 0;
    for (const char c : text)
        value = value * 10 + (c - '0');
    return value;
}

/// Metres; 0 where none are told.
std::optional<double> metres(std::string_view text, std::string_view unit) {
    if (text.empty())
        return 0.0;
    return unit.empty() || unit == "M" ? decimal(text) : std::nullopt;
}

/// What stands between '$' and '*' of a sentence whose sum is right.
std::optional<std::string_view> checkedBody(std::string_view line) {
    while (line.ends_with('\n') || line.ends_with('\r'))
        line.remove_suffix(1);
    if (line.size() > kLongestSentence || line.size() < 4 || line[0] != '$' ||
        line[line.size() - 3] != '*')
        return std::nullopt;
    unsigned told = 0;
    const char* const end = line.data() + line.size();
    const auto [read, error] = std::from_chars(end - 2, end, told, 16);
    const std::string_view body = line.substr(1, line.size() - 4);
    if (error != std::errc{} || read != end || told != sumOf(body))
        return std::nullopt;
    return body;
}

/// An angle in units of 0.0001 minutes, by which a minute is never written as 60.0000.
std::string angleText(double valueDeg, double most, int digits, std::string_view sides) {
    const double bounded = std::isfinite(valueDeg) ? std::clamp(valueDeg, -most, most) : 0.0;
    const auto units = static_cast<std::int64_t>(std::llround(std::abs(bounded) * 600'000.0));
    return text("%0*d%02d.%04d,%c", digits, static_cast<int>(units / 600'000),
                static_cast<int>(units / 10'000 % 60), static_cast<int>(units % 10'000),
                bounded < 0.0 ? sides[1] : sides[0]);
}

} // namespace

std::optional<Gga> parseGga(std::string_view line) {
    const std::optional<std::string_view> body = checkedBody(line);
    if (!body || body->size() < 6 || body->substr(2, 4) != "GGA,")
        return std::nullopt;
    // Time, latitude, N or S, longitude, E or W, quality, satellites, HDOP, altitude, M,
    // separation, M, age, station.
    std::array<std::string_view, 14> field;
    std::string_view rest = body->substr(6);
    for (std::string_view& f : field) {
        f = rest.substr(0, rest.find(','));
        rest.remove_prefix(std::min(f.size() + 1, rest.size()));
    }
    const auto latitude = angle(field[1], field[2], "NS", 90.0);
    const auto longitude = angle(field[3], field[4], "EW", 180.0);
    const auto quality = shortCount(field[5]), satellites = shortCount(field[6]);
    const auto altitude = metres(field[8], field[9]), separation = metres(field[10], field[11]);
    if (!latitude || !longitude || !quality || !satellites || !altitude || !separation)
        return std::nullopt;
    const double heightM = *altitude + *separation;
    if (*quality > 9 || heightM < -1000.0 || heightM > 100'000.0 || std::abs(*separation) > 200.0)
        return std::nullopt;
    return Gga{*latitude, *longitude, heightM, *quality, *satellites};
}

std::string ggaText(const Gga& place, double utcS) {
    constexpr std::int64_t kDay = 8'640'000; // in units of 0.01 s
    const double timeS = std::isfinite(utcS) ? std::fmod(utcS, 86'400.0) : 0.0;
    const std::int64_t time = ((std::llround(timeS * 100.0) % kDay) + kDay) % kDay;
    const double heightM =
        std::isfinite(place.heightM) ? std::clamp(place.heightM, -1000.0, 100'000.0) : 0.0;
    const std::string body =
        text("GPGGA,%02d%02d%02d.%02d,%s,%s,%d,%02d,1.0,%.3f,M,0.0,M,,",
             static_cast<int>(time / 360'000), static_cast<int>(time / 6'000 % 60),
             static_cast<int>(time / 100 % 60), static_cast<int>(time % 100),
             angleText(place.latitudeDeg, 90.0, 2, "NS").c_str(),
             angleText(place.longitudeDeg, 180.0, 3, "EW").c_str(), std::clamp(place.quality, 0, 9),
             std::clamp(place.satellites, 0, 99), heightM);
    return text("$%s*%02X\r\n", body.c_str(), sumOf(body));
}

std::optional<Gga> GgaReader::take(std::string_view bytes) {
    std::optional<Gga> newest;
    for (const char c : bytes) {
        if (c == '$') { // a sentence begins, whatever stood before it
            line_ = c;
            over_ = false;
        } else if (c == '\n' || c == '\r') {
            if (const auto place = over_ ? std::nullopt : parseGga(line_))
                newest = place;
            line_.clear();
            over_ = false;
        } else if (line_.size() < kLongestSentence) {
            line_ += c;
        } else {
            over_ = true;
        }
    }
    return newest;
}

} // namespace gateway::ntrip
