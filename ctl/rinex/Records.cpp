#include "ctl/rinex/Records.h"

#include "base/Findings.h"
#include "ctl/Counted.h"
#include "ctl/dump/Fields.h"
#include "gnss/ComTime.h"
#include "rinex/Rnxobs.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace ctl::rinex {

namespace {

constexpr std::size_t kMostQuoted = 60; // bytes of what is wrong
constexpr int kFirstYear = 1980;        // of GPS time
constexpr int kLastYear = 2099;         // of the calendar (gnss/ComTime)

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/// What a message shows of a file.
std::string shown(std::string_view text) {
    return "\"" + dump::clean(text.substr(0, kMostQuoted)) +
           (text.size() > kMostQuoted ? "...\"" : "\"");
}

/// A whole number with blanks in front.
std::optional<int> number(std::string_view field) {
    const std::size_t first = std::min(field.find_first_not_of(' '), field.size());
    int n = 0;
    for (const char c : field.substr(first)) {
        if (!isDigit(c))
            return std::nullopt;
        n = 10 * n + (c - '0');
    }
    return first < field.size() ? std::optional(n) : std::nullopt;
}

struct EpochLine {
    std::int64_t ticks = 0;
    int satellites = 0;
};

/// "> 2024  1  5  8 20 30.0000000  0  3"
std::optional<EpochLine> readEpochLine(std::string_view line) {
    if (line.size() != 35 || line.substr(0, 2) != "> " || line[21] != '.')
        return std::nullopt;
    for (const std::size_t blank : {6U, 9U, 12U, 15U, 18U})
        if (line[blank] != ' ')
            return std::nullopt;
    const auto year = number(line.substr(2, 4));
    const auto month = number(line.substr(7, 2));
    const auto day = number(line.substr(10, 2));
    const auto hour = number(line.substr(13, 2));
    const auto minute = number(line.substr(16, 2));
    const auto second = number(line.substr(19, 2));
    const auto fraction = number(line.substr(22, 7));
    const auto flag = number(line.substr(29, 3));
    const auto satellites = number(line.substr(32, 3));
    if (!year || !month || !day || !hour || !minute || !second || !fraction || !flag || !satellites)
        return std::nullopt;
    // Rounded to 7 decimals, a time just before a minute has 60 s.
    const bool rounded = *second == 60 && *fraction == 0;
    if (*year < kFirstYear || *year > kLastYear || *month < 1 || !validDate(*year, *month, *day) ||
        *hour > 23 || *minute > 59 || (*second > 59 && !rounded) || line[22] == ' ' || *flag != 0)
        return std::nullopt;
    const int mjd = md_julday(*year, *month, *day);
    if (mjd2date(mjd, 0.0).day != *day) // that month has fewer days
        return std::nullopt;
    const std::int64_t seconds = *second + 60 * (*minute + 60 * *hour);
    return EpochLine{mjd * kTicksPerDay + seconds * kTicksPerSecond + *fraction, *satellites};
}

/// F14.3, with its decimals.
bool isValue(std::string_view field) {
    std::size_t at = std::min(field.find_first_not_of(' '), field.size());
    if (at < field.size() && field[at] == '-')
        ++at;
    const std::size_t point = kValueWidth - 4;
    if (field.size() != kValueWidth || at >= point || field[point] != '.')
        return false;
    for (; at < field.size(); ++at)
        if (at != point && !isDigit(field[at]))
            return false;
    return true;
}

bool isSatellite(std::string_view name) {
    return name.size() == 3 && systemIndex(name[0]) != std::string_view::npos && isDigit(name[1]) &&
           isDigit(name[2]) && name.substr(1) != "00";
}

} // namespace

Lines::Lines(const std::string& path) : path_(path), file_(path, std::ios::binary) {
    if (!file_)
        throw std::runtime_error(path + ": " + std::strerror(errno));
}

bool Lines::fill() {
    blockOffset_ += static_cast<std::int64_t>(held_);
    at_ = held_ = 0;
    file_.read(block_.data(), static_cast<std::streamsize>(block_.size()));
    held_ = static_cast<std::size_t>(file_.gcount());
    if (held_ == 0 && (file_.bad() || !file_.eof()))
        throw std::runtime_error(path_ + ": cannot be read");
    return held_ > 0;
}

bool Lines::next() {
    if (at_ == held_ && !fill())
        return false;
    place_ = {blockOffset_ + static_cast<std::int64_t>(at_), nextLine_++};
    line_.clear();
    for (bool ended = false; !ended && (at_ < held_ || fill());) {
        const char* const from = block_.data() + at_;
        const char* const end =
            std::find(from, static_cast<const char*>(block_.data()) + held_, '\n');
        const auto size = static_cast<std::size_t>(end - from);
        line_.append(from, std::min(size, kLongest - line_.size()));
        ended = at_ + size < held_;
        at_ += size + (ended ? 1U : 0U);
    }
    if (line_.ends_with('\r'))
        line_.pop_back();
    return true;
}

void Lines::goTo(Place place) {
    nextLine_ = place.line;
    if (place.offset >= blockOffset_ &&
        place.offset <= blockOffset_ + static_cast<std::int64_t>(held_)) {
        at_ = static_cast<std::size_t>(place.offset - blockOffset_);
        return;
    }
    file_.clear();
    file_.seekg(place.offset);
    blockOffset_ = place.offset;
    at_ = held_ = 0;
}

bool isNothing(std::string_view value) {
    return value.find_first_of("123456789") == std::string_view::npos;
}

bool Records::next(Record& out) {
    while (toLine()) {
        const std::string line(lines_.line());
        out.place = lines_.place();
        if (line.find("RINEX VERSION / TYPE") == 60)
            throw std::runtime_error(text("%s:%d: has a header, so it is no file of -rawsav",
                                          path_.c_str(), out.place.line));
        unread_ = false;
        const bool begins = line.starts_with('>');
        if (const auto epoch = readEpochLine(line)) {
            out.ticks = epoch->ticks;
            readSatellites(out, epoch->satellites);
            return true;
        }
        passOver((begins ? text("no epoch of %d to %d begins like this: ", kFirstYear, kLastYear)
                         : "this belongs to no epoch: ") +
                 shown(line));
    }
    return false;
}

/// Everything up to the next epoch is left out with the line before.
void Records::passOver(const std::string& why) {
    const int line = lines_.place().line;
    int more = 0;
    for (; toLine() && !lines_.line().starts_with('>'); ++more)
        unread_ = false;
    fault(line,
          why + "; left out" + (more > 0 ? ", with " + counted(more, "line") + " behind it" : ""));
}

void Records::readSatellites(Record& out, int expected) {
    out.satellites.clear();
    int lines = 0;
    for (; toLine() && !lines_.line().starts_with('>'); ++lines) {
        readSatellite(out);
        unread_ = false;
    }
    if (lines != expected)
        fault(out.place.line,
              text("the epoch says %s and has %d", counted(expected, "line").c_str(), lines));
}

void Records::readSatellite(Record& out) {
    std::string line(lines_.line());
    const int at = lines_.place().line;
    const std::string name = line.substr(0, 3);
    if (!isSatellite(name))
        return fault(at, "no satellite's line begins like this: " + shown(line) + "; left out");
    const auto types = Rnxobs_m_initObsType(name[0]);
    const std::size_t end = 3 + kFieldWidth * types.size();
    const std::size_t used = line.find_last_not_of(' ') + 1;
    if (line.size() + 2 < end || used > end)
        return fault(at, text("the line of %s has %zu characters, not %zu; left out: ",
                              name.c_str(), line.size(), end + 1) +
                             shown(line));
    line.resize(end, ' ');
    SatelliteLine read{name, line.substr(3)};
    for (std::size_t i = 0; i < types.size(); ++i) {
        const std::string_view value = read.value(i);
        const std::string type = name + " " + std::string(types[i]);
        if (!isValue(value))
            return fault(at, type + " is no number: " + shown(value) +
                                 "; the line of the satellite is left out");
        if (read.fields.substr(kFieldWidth * i + kValueWidth, 2) != "  ")
            return fault(at, type + " has something behind it: " +
                                 shown(read.fields.substr(kFieldWidth * i, kFieldWidth)) +
                                 "; the line of the satellite is left out");
        if (types[i][0] == 'D' && isDigit(value[0]))
            return fault(at, type + " is too large: " + shown(value) +
                                 "; the line of the satellite is left out");
    }
    if (std::any_of(out.satellites.begin(), out.satellites.end(),
                    [&](const SatelliteLine& other) { return other.name == name; }))
        return fault(at, name + " is in this epoch already; left out: " + shown(line));
    out.satellites.push_back(std::move(read));
}

} // namespace ctl::rinex
