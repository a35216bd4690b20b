#include "ctl/check/Examine.h"

#include "base/ComText.h"
#include "gnss/Clock.h"
#include "gnss/ComTime.h"
#include "gnss/Taiutc.h"

#include <cstdlib>
#include <optional>

namespace ctl::check {

namespace {

// The last leap second so far (IERS Bulletin C 52): TAI - UTC is 37 s from 2017-01-01 on.
constexpr int kLastKnownMjd = 57754;
constexpr int kLastKnownS = 37;
constexpr int kMostPlausibleS = kLastKnownS + 5;

struct Examination {
    const std::string& path;
    const LeapTable& file;
    Reading& reading;

    void tell(Severity severity, int line, std::string what, std::string advice) const {
        reading.remarks.add({severity, path, line, {}, std::move(what), std::move(advice)});
    }
    void rows() const;
    void steps() const;
    void validity(int day) const;
    void value(int day) const;
};

/// The row that holds on a day, or null.
const LeapEntry* inForce(const LeapTable& file, int day) {
    const LeapEntry* found = nullptr;
    for (const LeapEntry& entry : file.rows())
        if (entry.mjd < day)
            found = &entry;
    return found;
}

/// What was read and what was not.
void Examination::rows() const {
    if (file.passedOver > 0)
        tell(Severity::warning, file.passedOver, "is no row of the table and passed over",
             "write the MJD and TAI - UTC in seconds, such as 57754 37");
    for (const LeapEntry& entry : file.rows())
        if (entry.stuck)
            tell(Severity::warning, entry.line,
                 text("is read as MJD %d and TAI - UTC %d s, and something is stuck to a number",
                      entry.mjd, entry.taiMinusUtc),
                 "write the MJD and TAI - UTC in whole seconds, blanks between, such as 57754 37");
    if (file.rows().empty())
        tell(Severity::warning, 0, "no leap seconds: TAI - UTC is taken for 0",
             "write rows of an MJD and TAI - UTC in seconds between +leap sec and -leap sec");
    else if (!file.ended)
        tell(Severity::warning, 0,
             text("no -leap sec behind the %zu rows that are read", file.rows().size()),
             "are rows missing at the end? At most 128 are read, of the first MiB");
}

void Examination::steps() const {
    for (std::size_t i = 1; i < file.rows().size(); ++i) {
        const LeapEntry& before = file.rows()[i - 1];
        const LeapEntry& entry = file.rows()[i];
        if (entry.mjd <= before.mjd)
            tell(Severity::warning, entry.line,
                 text("MJD %d does not follow %d", entry.mjd, before.mjd),
                 "rows stand in the order of their days");
        // The last row only ends the validity.
        else if (i + 1 < file.rows().size() &&
                 std::abs(entry.taiMinusUtc - before.taiMinusUtc) != 1)
            tell(Severity::warning, entry.line,
                 text("TAI - UTC goes from %d s to %d s", before.taiMinusUtc, entry.taiMinusUtc),
                 "a leap second changes it by 1 s: is a row missing?");
    }
}

void Examination::validity(int day) const {
    const LeapEntry& first = file.rows().front();
    const LeapEntry& last = file.rows().back();
    constexpr const char* fate = "the service ends at the first GLONASS ephemeris: ";
    if (day <= first.mjd)
        tell(Severity::fatal, first.line,
             text("the table begins on %s, and the clock stands at %s", dateText(first.mjd).c_str(),
                  dateText(day).c_str()),
             std::string(fate) + "add the rows before, or correct the clock");
    else if (day >= last.mjd)
        tell(Severity::fatal, last.line,
             text("the table has ended on %s, and the clock stands at %s",
                  dateText(last.mjd).c_str(), dateText(day).c_str()),
             std::string(fate) + "put an MJD of the future into the last row");
    else if (last.mjd - day <= kLeapTableEndsSoonDays)
        tell(Severity::warning, last.line,
             text("the table ends on %s, in %d day%s", dateText(last.mjd).c_str(), last.mjd - day,
                  last.mjd - day == 1 ? "" : "s"),
             "then the service ends: put a later MJD into the last row");
}

void Examination::value(int day) const {
    const LeapEntry* const now = inForce(file, day);
    if (!now || day <= kLastKnownMjd)
        return;
    const bool lastKnown = now->mjd <= kLastKnownMjd;
    if (lastKnown ? now->taiMinusUtc != kLastKnownS
                  : now->taiMinusUtc < kLastKnownS - 1 || now->taiMinusUtc > kMostPlausibleS)
        tell(Severity::warning, now->line,
             text("TAI - UTC is %d s on %s", now->taiMinusUtc, dateText(day).c_str()),
             "it is 37 s since 2017-01-01: add the row 57754 37");
}

/// The file of a deployment; nothing where it is not needed or not there.
std::optional<LeapSeconds> leapSecondsOf(const Deployment& d) {
    LeapSeconds leaps;
    leaps.path = d.tables.leapsc;
    if (!contains(d.systems, "R") || !Taiutc_m_load(leaps))
        return std::nullopt;
    return leaps;
}

} // namespace

void examineLeapSeconds(Reading& reading) {
    const Deployment& d = reading.deployment;
    const std::optional<LeapSeconds> leaps = leapSecondsOf(d);
    if (!leaps)
        return;
    const Examination examination{leaps->path, leaps->table, reading};
    examination.rows();
    if (examination.file.rows().empty())
        return;
    examination.steps();
    examination.validity(dayOfStart(d));
    examination.value(dayOfStart(d));
}

std::string outlineOfLeapSeconds(const Deployment& d) {
    const std::optional<LeapSeconds> leaps = leapSecondsOf(d);
    if (!leaps)
        return {};
    const LeapTable& file = leaps->table;
    const LeapEntry* const now = inForce(file, dayOfStart(d));
    return now ? text("TAI - UTC is %d s; the leap-second file ends on %s", now->taiMinusUtc,
                      dateText(file.rows().back().mjd).c_str())
               : "";
}

int dayOfStart(const Deployment& d) {
    return time2mjd((d.clock ? *d.clock : utcNow()).time).mjd;
}

std::string dateText(int mjd) {
    // Rows of a file may hold any number.
    constexpr int last = 2973483; // 9999-12-31
    if (mjd < 0 || mjd > last)
        return text("MJD %d", mjd);
    const DateTime t = mjd2date(mjd, 0.0);
    return text("%04d-%02d-%02d", t.year, t.month, t.day);
}

} // namespace ctl::check
