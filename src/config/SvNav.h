#pragma once

#include "base/Findings.h"
#include "gnss/AntennaRecord.h"

#include <string>
#include <string_view>

/// SvNav: satellite information from the file that the tables name ("satnav").

/// What is known of a satellite at an epoch (MJD with fraction); false, after a fatal
/// finding, where nothing is. Offsets that the file does not give are zero.
bool Antatx_s_rdSvnav(const std::string& cprn, double mjd, SatelliteInfo& info,
                      const std::string& path, Findings& findings);
/// Whether every conversion of a scanf format has an explicit width; reports the first that has
/// none.
bool Antatx_s_checkdata(std::string_view format, Findings& findings);
