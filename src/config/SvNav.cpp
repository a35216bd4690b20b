#include "config/SvNav.h"

#include "base/ComText.h"
#include "config/ModelFile.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <optional>

namespace {

/// Satellite, vehicle, block ('~' for a blank), launch, start, end, mass (kg), GLONASS channel.
constexpr char kPart1Format[] = "%3s%*2c%3s%*2c%20s%*2c%9s%*2c%4d%*c%2d%*c%2d%*c%2d%*c%2d%*c%2d"
                                "%*2c%4d%*c%2d%*c%2d%*c%2d%*c%2d%*c%2d%*2c%6lf%*2c%4d";
constexpr int kPart1Values = 18;
/// Satellite, vehicle, start, end, offsets x, y, z (m).
constexpr char kPart2Format[] = "%3s%*2c%3s%*3c%4d%*c%2d%*c%2d%*c%2d%*c%2d%*c%2d"
                                "%*2c%4d%*c%2d%*c%2d%*c%2d%*c%2d%*c%2d%*3c%10lf%10lf%10lf";
constexpr int kPart2Values = 17;
constexpr int kHeadingLines = 5; // behind the line that names a part

/// A time as it stands in a line, seconds whole.
struct LineTime {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    DateTime date() const { return {year, month, day, hour, minute, double(second)}; }
};

struct Period {
    LineTime start, end; // end year 0: open

    bool plausible() const {
        return plausibleDate(start.date()) && (end.year == 0 || plausibleDate(end.date()));
    }
    bool covers(double mjd) const {
        const double until = end.year == 0 ? mjd + 1.0 : fractionalMjd(end.date());
        return fractionalMjd(start.date()) < mjd && mjd < until;
    }
};

struct SatelliteLine {
    std::array<char, 21> block{};
    std::array<char, 10> launch{}; // such as "2011-036A"
    Period period;
    double massKg = 0.0;
    int channel = 0;
};

struct OffsetLine {
    Period period;
    Vector3 offsetM{};
};

std::optional<SatelliteLine> parsePart1(std::string_view line) {
    SatelliteLine l;
    std::array<char, 4> satellite{}, vehicle{};
    auto& [a, b] = l.period;
    const int values = std::sscanf(
        std::string(line).c_str(), kPart1Format, satellite.data(), vehicle.data(), l.block.data(),
        l.launch.data(), &a.year, &a.month, &a.day, &a.hour, &a.minute, &a.second, &b.year,
        &b.month, &b.day, &b.hour, &b.minute, &b.second, &l.massKg, &l.channel);
    if (values != kPart1Values || !l.period.plausible() || !std::isfinite(l.massKg))
        return std::nullopt;
    return l;
}

std::optional<OffsetLine> parsePart2(std::string_view line) {
    OffsetLine l;
    std::array<char, 4> satellite{}, vehicle{};
    auto& [a, b] = l.period;
    const int values = std::sscanf(std::string(line).c_str(), kPart2Format, satellite.data(),
                                   vehicle.data(), &a.year, &a.month, &a.day, &a.hour, &a.minute,
                                   &a.second, &b.year, &b.month, &b.day, &b.hour, &b.minute,
                                   &b.second, &l.offsetM[0], &l.offsetM[1], &l.offsetM[2]);
    const bool finite =
        std::all_of(l.offsetM.begin(), l.offsetM.end(), [](double m) { return std::isfinite(m); });
    if (values != kPart2Values || !l.period.plausible() || !finite)
        return std::nullopt;
    return l;
}

/// Year, number and piece of a launch such as "2011-036A"; empty where it is none.
std::string launchDesignator(std::string_view launch) {
    constexpr std::size_t pieceAt = 8;
    int year = 0, number = 0;
    if (launch.size() <= pieceAt || !isUpperLetter(launch[pieceAt]) ||
        std::sscanf(std::string(launch).c_str(), "%4d%*c%3d", &year, &number) != 2 || year < 1900 ||
        number < 0)
        return {};
    year -= year > 2000 ? 2000 : 1900; // deliberate: 2000 becomes 100
    return text("%02d%03d%02d", year, number, launch[pieceAt] - 'A' + 1);
}

/// The satellite-information file on its way through one lookup.
struct SvNavReader {
    LineReader& file;
    const std::string& path;
    const std::string& cprn;
    Findings& findings;

    /// Passes over everything up to the headings of a part, and over these; `line` is the one
    /// read last.
    void skipTo(std::string_view part, std::string_view& line) const {
        bool there = false;
        while (!there && file.next(line))
            there = contains(line, part);
        for (int i = 0; i < kHeadingLines && file.next(line); ++i)
            ;
    }
    void malformed(std::string_view line) const {
        findings.add(FindingId::satelliteInfoMalformed, path, file.lineNumber(),
                     {cprn, std::string(line.substr(0, 80))});
    }
    /// Takes the line where it applies; false where it does not.
    bool take(std::string_view line, double mjd, SatelliteInfo& info) const {
        const std::optional<SatelliteLine> l = parsePart1(line);
        if (!l)
            malformed(line);
        if (!l || !l->period.covers(mjd))
            return false;
        info.block = l->block.data();
        std::replace(info.block.begin(), info.block.end(), '~', ' ');
        info.designator = launchDesignator(l->launch.data());
        info.massKg = l->massKg;
        info.channel = l->channel;
        return true;
    }
    bool readPart1(double mjd, SatelliteInfo& info, std::string_view& line) const {
        skipTo("PART 1", line);
        while (file.next(line) && !contains(line, "PART 2"))
            if (contains(line, cprn) && take(line, mjd, info))
                return true;
        return false;
    }
    void readPart2(double mjd, SatelliteInfo& info, std::string_view& line) const {
        skipTo("PART 2", line);
        while (file.next(line)) {
            // The lines of laser reflectors have the same form.
            if (!contains(line, cprn) || contains(line, "SLR"))
                continue;
            const std::optional<OffsetLine> l = parsePart2(line);
            if (!l)
                malformed(line);
            else if (l->period.covers(mjd))
                return void(info.offsetM = l->offsetM);
        }
    }
};

} // namespace

bool Antatx_s_rdSvnav(const std::string& cprn, double mjd, SatelliteInfo& info,
                      const std::string& path, Findings& findings) {
    info = {};
    LineReader file(path);
    if (!opened(file, path, findings) || !Antatx_s_checkdata(kPart1Format, findings) ||
        !Antatx_s_checkdata(kPart2Format, findings))
        return false;
    const SvNavReader in{file, path, cprn, findings};
    std::string_view line;
    if (cprn.empty() || !in.readPart1(mjd, info, line)) {
        findings.add(FindingId::satelliteInfoMissing, path, file.lineNumber(), {cprn});
        return false;
    }
    in.readPart2(mjd, info, line);
    return true;
}

bool Antatx_s_checkdata(std::string_view format, Findings& findings) {
    std::size_t at = 0;
    while ((at = format.find('%', at)) != std::string_view::npos) {
        const bool skipped = format.substr(++at).starts_with('*');
        const std::size_t width = at + (skipped ? 1 : 0);
        const std::size_t end =
            std::min(format.find_first_not_of("0123456789", width), format.size());
        at = std::min(format.find_first_not_of("hlLqjzt", end), format.size());
        if (at == format.size())
            break;
        const char conversion = format[at++];
        // "%*c" is one character, which is what a column separator is.
        if (end > width || conversion == '%' || (skipped && conversion == 'c'))
            continue;
        findings.add(FindingId::formatWithoutWidth, {}, 0, {std::string(1, conversion)});
        return false;
    }
    return true;
}
