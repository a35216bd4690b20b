#include "common/Taiutc.h"

#include "common/ComText.h"
#include "common/DeployConfig.h"
#include "common/LineReader.h"
#include "common/Print.h"

#include <array>
#include <cstddef>

namespace {

/// Room for every leap second since 1972 and a good many to come; rows beyond it are not read.
struct LeapTable {
    std::array<LeapEntry, 128> entries;
    std::size_t count;
    int passedOver;
    bool ended;
};
LeapTable taiutc;

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

void readRow(std::string_view line, int number) {
    LeapEntry entry{};
    TextScanner scan(line);
    const auto integer = [&](int& out) {
        const bool read = scan.integer(out);
        entry.stuck = entry.stuck || (read && stuckTo(line, scan.rest()));
        return read;
    };
    if (integer(entry.mjd) && integer(entry.taiMinusUtc)) {
        entry.line = number;
        taiutc.entries[taiutc.count++] = entry;
    } else if (taiutc.passedOver == 0 && speaks(line)) {
        taiutc.passedOver = number;
    }
}

} // namespace

bool Taiutc_m_load() {
    LineReader file(DLY.tables.leapsc);
    if (!file.isOpen())
        return false;
    taiutc.count = 0;
    taiutc.passedOver = 0;
    taiutc.ended = false;
    std::string_view line;
    while (file.next(line) && !contains(line, "+leap sec")) {
    }
    while (taiutc.count < taiutc.entries.size() && file.next(line)) {
        taiutc.ended = contains(line, "-leap sec");
        if (taiutc.ended)
            break;
        readRow(line, file.lineNumber());
    }
    return true;
}

LeapFile Taiutc_m_file() {
    return {std::span(taiutc.entries).first(taiutc.count), taiutc.passedOver, taiutc.ended};
}

void Taiutc_m_rdUtcFile() {
    if (!Taiutc_m_load())
        fatal("***ERROR(readCommFil):file_table not exist leapsc item ");
}

int Taiutc_m_getTaiutc(int mjd) {
    Taiutc_m_rdUtcFile();
    if (taiutc.count == 0)
        return 0;
    const int first = taiutc.entries[0].mjd;
    const int last = taiutc.entries[taiutc.count - 1].mjd;
    if (mjd < first)
        fatal("mjd = %d,mjde = %d,epoch before table start", mjd, first);
    if (mjd > last)
        fatal("mjd = %d,mjde = %d,epoch after table start", mjd, last);
    for (std::size_t i = 0; i + 1 < taiutc.count; ++i)
        if (taiutc.entries[i].mjd < mjd && mjd < taiutc.entries[i + 1].mjd)
            return taiutc.entries[i].taiMinusUtc;
    return 0;
}
