#pragma once

#include "base/Findings.h"
#include "gnss/AntennaRecord.h"
#include "gnss/Session.h"

#include <string>
#include <string_view>

/// Antatx: antenna calibrations from the ANTEX file (ANTEX 1.4, absolute ones only), antenna names
/// and satellite information from the files that the tables name ("antpcv", "antnam", "satnav").
/// Every function takes the path of its file and reports to the findings; a file that cannot be
/// opened is a fatal one.

void Antatx_m_resetMem(AntennaRecord& record);
/// Looks an antenna up and hands its offsets out. `kind` contains "SITE" for a receiver antenna,
/// else it is the satellite's name; `names` are the configured carriers; the calibration must be
/// valid from `from` to `to` (MJD with fraction). False, with a finding, where there is none.
bool Antatx_m_getAnt(AntennaRecord& record, std::string_view kind, const FrequencyTable& names,
                     const std::string& type, const std::string& serial, SatellitePco& satellitePco,
                     SitePco& sitePco, double from, double to, const std::string& path,
                     Findings& findings);
/// Reads the antenna of the record's type and serial from the ANTEX file into the record. An empty
/// serial is any; a type is contained in the one of the file. What is missing or malformed in the
/// entry (a row with too few values, a date that is none) refuses the antenna.
bool Antatx_m_rdatx(AntennaRecord& record, const FrequencyTable& names, double from, double to,
                    const std::string& path, Findings& findings);
/// What is known of a satellite at an epoch (MJD with fraction); false, after a fatal
/// finding, where nothing is. Offsets that the file does not give are zero.
bool Antatx_s_rdSvnav(const std::string& cprn, double mjd, SatelliteInfo& info,
                      const std::string& path, Findings& findings);
/// The canonical name of an antenna; false, after a fatal finding, where the file does not know
/// it.
bool Antatx_s_antnam(const std::string& siteName, const std::string& antenna,
                     std::string& canonical, const std::string& path, Findings& findings);
/// Whether every conversion of a scanf format has an explicit width; reports the first that has
/// none.
bool Antatx_s_checkdata(std::string_view format, Findings& findings);
