#pragma once

#include "base/Findings.h"
#include "gnss/Session.h"

#include <string>

/// AntexFile: antenna calibrations as they stand in an ANTEX file (ANTEX 1.4, absolute ones only).

/// Reads the antenna of the record's type and serial from the ANTEX file into the record. An empty
/// serial is any; a type is contained in the one of the file. What is missing or malformed in the
/// entry (a row with too few values, a date that is none) refuses the antenna.
bool Antatx_m_rdatx(AntennaRecord& record, const FrequencyTable& names, double from, double to,
                    const std::string& path, Findings& findings);
