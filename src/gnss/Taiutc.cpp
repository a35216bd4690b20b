#include "gnss/Taiutc.h"

#include "base/ComText.h"
#include "base/LineReader.h"
#include "base/Print.h"
#include "gnss/ComTime.h"

#include <algorithm>
#include <sys/stat.h>
#include <utility>

namespace {

/// The file is read at each GLONASS ephemeris; one of the IERS has some kB.
constexpr std::size_t kLongestFile = std::size_t{1} << 20;

/// A row that is neither empty nor marked as a comment.
bool speaks(std::string_view line) {
    const std::size_t at = line.find_first_not_of(" \t");
    return at != std::string_view::npos && line[at] != '*' && line[at] != '#';
}

/// Whether something is stuck to the number behind which `rest` of the line is left.
bool stuckTo(std::string_view line, std::string_view rest) {
    return rest.size() < line.size() && speaks(rest) &&
           !contains(" \t", line.substr(line.size() - rest.size() - 1, 1));
}

void readRow(LeapTable& table, std::string_view line, int number) {
    LeapEntry entry{};
    TextScanner scan(line);
    const auto integer = [&](int& out) {
        const bool read = scan.integer(out);
        entry.stuck = entry.stuck || (read && stuckTo(line, scan.rest()));
        return read;
    };
    if (integer(entry.mjd) && integer(entry.taiMinusUtc)) {
        entry.line = number;
        table.entries[table.count++] = entry;
    } else if (table.passedOver == 0 && speaks(line)) {
        table.passedOver = number;
    }
}

bool readTable(const std::string& path, LeapTable& table) {
    LineReader file(path, kLongestFile);
    std::string_view line;
    while (file.next(line) && !contains(line, "+leap sec")) {
    }
    while (table.count < table.entries.size() && file.next(line)) {
        table.ended = contains(line, "-leap sec");
        if (table.ended)
            break;
        readRow(table, line, file.lineNumber());
    }
    return file.isOpen();
}

bool sameValues(const LeapTable& a, const LeapTable& b) {
    return a.ended == b.ended && std::ranges::equal(a.rows(), b.rows(), [](auto& x, auto& y) {
               return x.mjd == y.mjd && x.taiMinusUtc == y.taiMinusUtc;
           });
}

enum class Kind { regular, other, missing };
Kind kindOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        return Kind::missing;
    return S_ISREG(status.st_mode) ? Kind::regular : Kind::other;
}

/// Reads the file once more; why the reading cannot take the place of the table in force, or null.
const char* readAnew(const LeapSeconds& leaps, LeapTable& table) {
    // A pipe must not even be opened: that would wait for a writer. Where the table came from no
    // regular file, such as a device, it stays so.
    if (leaps.regular && kindOf(leaps.path) == Kind::other)
        return "is not a regular file";
    if (!readTable(leaps.path, table))
        return "cannot be read";
    if (sameValues(table, leaps.table))
        return nullptr;
    if (!table.ended)
        return "has no -leap sec";
    return table.count == 0 ? "has no rows" : nullptr;
}

void putInForce(LeapSeconds& leaps, const LeapTable& table) {
    leaps.read = true;
    leaps.regular = kindOf(leaps.path) == Kind::regular;
    leaps.table = table;
    leaps.told = false;
    // The last row only ends the validity.
    extendLeaps(table.rows().first(table.count > 0 ? table.count - 1 : 0));
}

/// Tells when the table ends, where that is near.
void tellEnd(const LeapSeconds& leaps, int day) {
    if (leaps.table.count == 0)
        return;
    const int last = leaps.table.rows().back().mjd;
    // A file may hold any number; days before MJD 0 have no date here.
    if (last < 0 || last - day > kLeapTableEndsSoonDays)
        return;
    const DateTime end = mjd2date(last, 0.0);
    if (leaps.end == LeapEnd::endsService)
        print(Level::warning,
              "***WARN(Taiutc): file = %s,table ends on %04d-%02d-%02d,days left = %d,a GLONASS "
              "ephemeris after that ends the service!\n",
              leaps.path.c_str(), end.year, end.month, end.day, last - day);
    else
        print(Level::warning,
              "***WARN(Taiutc): file = %s,table ends on %04d-%02d-%02d,days left = %d,its last "
              "value stays in force!\n",
              leaps.path.c_str(), end.year, end.month, end.day, last - day);
}

} // namespace

bool Taiutc_m_load(LeapSeconds& leaps) {
    LeapTable table;
    if (!leaps.read) {
        if (!readTable(leaps.path, table))
            return false;
        putInForce(leaps, table);
        return true;
    }
    const char* const fault = readAnew(leaps, table);
    if (!fault)
        putInForce(leaps, table);
    else if (!std::exchange(leaps.told, true))
        print(Level::warning,
              "***WARN(Taiutc): file = %s,%s,the table read before stays in force!\n",
              leaps.path.c_str(), fault);
    return true;
}

void Taiutc_m_lookDaily(LeapSeconds& leaps, GTime utc) {
    const int day = time2mjd(utc.time).mjd;
    // A clock that is set back over midnight does not bring the day a second time.
    if (day == leaps.lookedDay || day + 1 == leaps.lookedDay)
        return;
    leaps.lookedDay = day;
    if ((leaps.read || kindOf(leaps.path) == Kind::regular) && Taiutc_m_load(leaps) &&
        leaps.end != LeapEnd::doesNot)
        tellEnd(leaps, day);
}

void Taiutc_m_rdUtcFile(LeapSeconds& leaps) {
    if (!Taiutc_m_load(leaps))
        fatal("***ERROR(readCommFil):file_table not exist leapsc item ");
}

int Taiutc_m_getTaiutc(LeapSeconds& leaps, int mjd) {
    Taiutc_m_rdUtcFile(leaps);
    const std::span<const LeapEntry> rows = leaps.table.rows();
    if (rows.empty())
        return 0;
    const int first = rows.front().mjd;
    const int last = rows.back().mjd;
    if (mjd < first)
        fatal("mjd = %d,mjde = %d,epoch before table start", mjd, first);
    if (mjd > last && leaps.end == LeapEnd::lastValueStays)
        return rows[rows.size() > 1 ? rows.size() - 2 : 0].taiMinusUtc; // the last row only ends it
    if (mjd > last)
        fatal("mjd = %d,mjde = %d,epoch after table start", mjd, last);
    for (std::size_t i = 0; i + 1 < rows.size(); ++i)
        if (rows[i].mjd < mjd && mjd < rows[i + 1].mjd)
            return rows[i].taiMinusUtc;
    return 0;
}
