#pragma once

#include "common/DeployConfig.h"
#include "common/Findings.h"

#include <string>
#include <string_view>

/// RecordRemarks: lines of the object file that are probably not meant as they are read. The
/// service uses them as they are.

struct RecordPlace {
    std::string file;
    int line; // 1-based
};

enum class RecordKind { satellite, station };

/// Whether the stream can carry a satellite of that name.
bool isSatellite(const std::string& name);

/// A line that is passed over because it does not begin with a blank, but looks like a record;
/// `expected` are those of the section that it stands in.
void remarkOnComment(std::string_view line, RecordKind expected, const RecordPlace& place,
                     Findings& findings);
/// A satellite with `numbers` of its numbers read, in front of `rest`.
void remarkOnSatellite(const SatelliteRecord& satellite, std::size_t numbers, std::string_view rest,
                       const RecordPlace& place, Findings& findings);
/// A station in front of `rest`; the first one is served.
void remarkOnStation(const StationRecord& station, bool first, std::string_view rest,
                     const RecordPlace& place, Findings& findings);
