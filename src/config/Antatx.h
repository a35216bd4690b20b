#pragma once

#include "base/Findings.h"
#include "gnss/AntennaRecord.h"
#include "gnss/Session.h"

#include <string>
#include <string_view>

/// Antatx: the antenna of a station or satellite, by the ANTEX file that the tables name
/// ("antpcv"). As all readers here, it takes the path of its file and reports to the findings; a
/// file that cannot be opened is a fatal one.

void Antatx_m_resetMem(AntennaRecord& record);
/// Looks an antenna up and hands its offsets out. `kind` contains "SITE" for a receiver antenna,
/// else it is the satellite's name; `names` are the configured carriers; the calibration must be
/// valid from `from` to `to` (MJD with fraction). False, with a finding, where there is none.
bool Antatx_m_getAnt(AntennaRecord& record, std::string_view kind, const FrequencyTable& names,
                     const std::string& type, const std::string& serial, SatellitePco& satellitePco,
                     SitePco& sitePco, double from, double to, const std::string& path,
                     Findings& findings);
