#pragma once

#include "base/Findings.h"
#include "gnss/Session.h"

#include <string>

/// SiteFile: station coordinates from the file that the tables name ("stacoo"); a station's block
/// is three lines that begin with NAME_POS, NAME_SIG and NAME_ENU.

/// Fills position (m), sigmas (m), reference-point offsets (m) and antenna descriptors of the
/// station by its name. False, with a finding that says why, when the block is not there or
/// malformed.
bool read_siteinfo(StationRecord& station, const std::string& path, Findings& findings);
