#pragma once

#include "base/ComText.h"
#include "base/Findings.h"
#include "base/LineReader.h"
#include "gnss/ComTime.h"

#include <string>
#include <string_view>

/// ModelFile: what the readers of antennas, their names, satellites and baselines share.

/// False, with a fatal finding, where the file could not be opened.
inline bool opened(const LineReader& file, const std::string& path, Findings& findings) {
    if (!file.isOpen())
        findings.add(FindingId::modelFileUnreadable, path, 0);
    return file.isOpen();
}

inline std::string_view withoutTrailingSpace(std::string_view s) {
    return s.substr(0, s.find_last_not_of(kWhiteSpace) + 1); // npos + 1 is 0
}

/// A calendar date that files of antennas and satellites may carry.
inline bool plausibleDate(const DateTime& t) {
    return t.year >= 1 && t.year <= 9999 && t.month >= 1 && t.day >= 1 &&
           validDate(t.year, t.month, t.day);
}

/// MJD with fraction of a plausible date.
inline double fractionalMjd(const DateTime& t) {
    return md_julday(t.year, t.month, t.day) + t.hour / 24.0 + t.minute / 1440.0 +
           t.second / kSecondsPerDay;
}
