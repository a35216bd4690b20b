#include "common/Taiutc.h"

#include "common/ComText.h"
#include "common/DeployConfig.h"
#include "common/LineReader.h"
#include "common/Print.h"

#include <array>
#include <cstddef>

namespace {

struct LeapEntry {
    int mjd;
    int taiMinusUtc;
};
/// Room for every leap second since 1972 and a good many to come; rows beyond it are not read.
struct LeapTable {
    std::array<LeapEntry, 128> entries;
    std::size_t count;
};
LeapTable taiutc;

} // namespace

void Taiutc_m_rdUtcFile() {
    LineReader file(DLY.tables.leapsc);
    if (!file.isOpen())
        fatal("***ERROR(readCommFil):file_table not exist leapsc item ");
    taiutc.count = 0;
    std::string_view line;
    while (file.next(line) && !contains(line, "+leap sec")) {
    }
    while (taiutc.count < taiutc.entries.size() && file.next(line) &&
           !contains(line, "-leap sec")) {
        LeapEntry entry{};
        TextScanner scan(line);
        if (scan.integer(entry.mjd) && scan.integer(entry.taiMinusUtc))
            taiutc.entries[taiutc.count++] = entry;
    }
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
