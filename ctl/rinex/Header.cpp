#include "ctl/rinex/Header.h"

#include "base/ComText.h"
#include "base/Findings.h"
#include "ctl/rinex/Records.h"
#include "gnss/ComTime.h"
#include "gnss/Session.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace ctl::rinex {

namespace {

constexpr std::size_t kLabelColumn = 60;
constexpr std::size_t kTypesPerLine = 13;
constexpr std::size_t kChannelsPerLine = 8;

/// Lines of a header: fields in front, the label from column 61 on.
class HeaderLines {
public:
    void add(std::string fields, const char* label) {
        fields.resize(kLabelColumn, ' ');
        out_ += fields + label + "\n";
    }
    const std::string& text() const { return out_; }

private:
    std::string out_;
};

/// A text of a header in its columns.
std::string in(std::size_t width, const std::string& value, const char* what) {
    const bool printable =
        std::all_of(value.begin(), value.end(), [](char c) { return c >= ' ' && c < 127; });
    if (!printable || value.size() > width)
        throw std::runtime_error(
            text("%s \"%s\": at most %zu characters of ASCII stand in a header", what,
                 printable ? value.c_str() : "?", width));
    return value + std::string(width - value.size(), ' ');
}

std::string metres(const Vector3& v) {
    return text("%14.4f%14.4f%14.4f", v[0], v[1], v[2]);
}

DateTime dateOf(std::int64_t ticks) {
    DateTime t = mjd2date(static_cast<int>(ticks / kTicksPerDay), 0.0);
    const std::int64_t seconds = ticks % kTicksPerDay / kTicksPerSecond;
    t.hour = static_cast<int>(seconds / 3600);
    t.minute = static_cast<int>(seconds / 60 % 60);
    t.second = static_cast<double>(seconds % 60);
    return t;
}

std::string timeFields(std::int64_t ticks) {
    const DateTime t = dateOf(ticks);
    return text("%6d%6d%6d%6d%6d%5d.%07d     GPS", t.year, t.month, t.day, t.hour, t.minute,
                static_cast<int>(t.second), static_cast<int>(ticks % kTicksPerSecond));
}

/// Lists of which a line holds only so many entries: the first line begins with `head`.
template <class List, class Entry>
void addList(HeaderLines& lines, const std::string& head, std::size_t perLine, const List& list,
             const Entry& entry, const char* label) {
    std::string fields = head;
    std::size_t n = 0;
    for (const auto& item : list) {
        if (n > 0 && n % perLine == 0) {
            lines.add(fields, label);
            fields = std::string(head.size(), ' ');
        }
        fields += entry(item);
        ++n;
    }
    lines.add(fields, label);
}

/// Systems in the order of kSystems.
std::string systemsOf(const Header& h) {
    std::string out;
    for (const char system : kSystems)
        if (h.types.contains(system))
            out += system;
    return out;
}

void addStation(HeaderLines& lines, const Header& h) {
    lines.add(in(60, h.marker, "marker"), "MARKER NAME");
    if (!h.markerNumber.empty())
        lines.add(in(20, h.markerNumber, "marker number"), "MARKER NUMBER");
    lines.add(in(20, h.markerType, "marker type"), "MARKER TYPE");
    lines.add(in(20, h.observer, "observer") + in(40, h.agency, "agency"), "OBSERVER / AGENCY");
    lines.add(in(20, h.receiverNumber, "receiver number") + in(20, h.receiver, "receiver") +
                  in(20, h.receiverVersion, "receiver version"),
              "REC # / TYPE / VERS");
    lines.add(in(20, h.antennaNumber, "antenna number") + in(20, h.antenna, "antenna"),
              "ANT # / TYPE");
    lines.add(metres(h.positionM), "APPROX POSITION XYZ");
    lines.add(metres(h.antennaDeltaM), "ANTENNA: DELTA H/E/N");
}

void addGlonass(HeaderLines& lines, const Header& h) {
    addList(
        lines, text("%3zu ", h.channels.size()), kChannelsPerLine, h.channels,
        [](const auto& c) { return text("R%02d %2d ", c.first, c.second); },
        "GLONASS SLOT / FRQ #");
    lines.add("", "GLONASS COD/PHS/BIS"); // blank: unknown
}

std::string upperAlnum(const std::string& text) {
    std::string out;
    for (const char c : toUpper(text))
        if ((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
            out += c;
    return out;
}

/// "ABCD00XXX"
std::string stationOf(const std::string& marker) {
    std::string name = upperAlnum(marker);
    const auto all = [&](std::size_t from, std::size_t to, char low, char high) {
        return std::all_of(name.begin() + static_cast<std::ptrdiff_t>(from),
                           name.begin() + static_cast<std::ptrdiff_t>(to),
                           [&](char c) { return c >= low && c <= high; });
    };
    if (name.size() == 9 && all(4, 6, '0', '9') && all(6, 9, 'A', 'Z'))
        return name;
    std::string four = name.substr(0, 4);
    four.resize(4, 'X');
    return four + "00XXX";
}

struct Unit {
    std::int64_t ticks;
    char letter;
};
constexpr Unit kMinute{60 * kTicksPerSecond, 'M'};
constexpr Unit kHour{3600 * kTicksPerSecond, 'H'};
constexpr Unit kDay{kTicksPerDay, 'D'};

/// So many whole units as cover it, of the smallest unit of which fewer than the next make one.
std::string periodOf(std::int64_t ticks) {
    const auto covering = [&](const Unit& unit) { return (ticks + unit.ticks - 1) / unit.ticks; };
    if (covering(kMinute) < 60)
        return text("%02dM", static_cast<int>(std::max<std::int64_t>(covering(kMinute), 1)));
    if (covering(kHour) < 24)
        return text("%02dH", static_cast<int>(covering(kHour)));
    return covering(kDay) < 100 ? text("%02dD", static_cast<int>(covering(kDay))) : "00U";
}

/// "30S", or "10Z" (Hz) below a second; "00U" where no unit makes a whole number below 100 of it.
std::string rateOf(std::int64_t ticks) {
    if (ticks <= 0)
        return "00U";
    const std::int64_t hz = (kTicksPerSecond + ticks / 2) / ticks;
    if (ticks < kTicksPerSecond)
        return hz < 100 ? text("%02dZ", static_cast<int>(hz)) : "00U";
    for (const Unit& unit : {Unit{kTicksPerSecond, 'S'}, kMinute, kHour, kDay})
        if (ticks % unit.ticks == 0 && ticks / unit.ticks < (unit.letter == 'S' ? 60 : 100))
            return text("%02d%c", static_cast<int>(ticks / unit.ticks), unit.letter);
    return "00U";
}

} // namespace

std::string headerText(const Header& h) {
    HeaderLines lines;
    const std::string systems = systemsOf(h);
    const std::string kind = systems.size() == 1 ? systems : "M";
    lines.add(text("%9.2f", 3.05) + std::string(11, ' ') + in(20, "OBSERVATION DATA", "") + kind,
              "RINEX VERSION / TYPE");
    lines.add(in(20, "kestrunectl " KESTRUNE_VERSION, "program") + in(20, h.runBy, "run by") +
                  in(20, h.date, "date"),
              "PGM / RUN BY / DATE");
    addStation(lines, h);
    for (const char system : systems) {
        const auto& types = h.types.at(system);
        addList(
            lines, text("%c  %3zu", system, types.size()), kTypesPerLine, types,
            [](const std::string& type) { return " " + type; }, "SYS / # / OBS TYPES");
    }
    lines.add("DBHZ", "SIGNAL STRENGTH UNIT");
    if (h.intervalTicks > 0)
        lines.add(text("%10.3f", static_cast<double>(h.intervalTicks) / kTicksPerSecond),
                  "INTERVAL");
    lines.add(timeFields(h.firstTicks), "TIME OF FIRST OBS");
    lines.add(timeFields(h.lastTicks), "TIME OF LAST OBS");
    for (const char system : systems) // nothing behind the letter: unknown
        lines.add(std::string(1, system), "SYS / PHASE SHIFT");
    if (h.types.contains('R'))
        addGlonass(lines, h);
    if (h.leapSeconds)
        lines.add(text("%6d", *h.leapSeconds), "LEAP SECONDS");
    lines.add("", "END OF HEADER");
    return lines.text();
}

std::string longName(const Header& h) {
    const DateTime t = dateOf(h.firstTicks);
    const YearDoy day = mjd2doy(static_cast<int>(h.firstTicks / kTicksPerDay));
    const std::string systems = systemsOf(h);
    return text("%s_S_%04d%03d%02d%02d_%s_%s_%cO.rnx", stationOf(h.marker).c_str(), day.year,
                day.doy, t.hour, t.minute,
                periodOf(h.lastTicks - h.firstTicks + h.intervalTicks).c_str(),
                rateOf(h.intervalTicks).c_str(), systems.size() == 1 ? systems[0] : 'M');
}

std::string antennaColumns(const std::string& typeAndRadome) {
    std::string value = typeAndRadome.substr(0, len_trim(typeAndRadome));
    const std::size_t blank = value.rfind(' ');
    if (blank == std::string::npos || blank >= 16 || value.size() - blank - 1 != 4)
        return value;
    std::string type = value.substr(0, len_trim(value.substr(0, blank)));
    type.resize(16, ' ');
    return type + value.substr(blank + 1);
}

} // namespace ctl::rinex
