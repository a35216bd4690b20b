#pragma once

#include "base/Findings.h"
#include "config/Configuration.h"

/// PostMode: what "-post" resolves at start-up, beyond what a live session needs: satellite
/// information, antennas of satellites and stations, names of files. Reports to the findings; the
/// line is that of the record in the object file.

/// Fills a satellite's information, carriers and antenna; false after a fatal finding.
bool resolveSatellite(const Deployment& config, SatelliteRecord& satellite, int line,
                      Findings& findings);

enum class Resolved { kept, dropped, failed };
/// Fills a station's file names, local axes and antenna. A fixed station without coordinates is
/// to be dropped; `failed` after a fatal finding.
Resolved resolveStation(const Deployment& config, StationRecord& station, int line,
                        Findings& findings);

/// Baseline names from the file that the tables name ("baselines").
void Deploy_m_readBaselines(const std::string& path, std::vector<std::string>& names,
                            Findings& findings);
/// Real-time sessions have nothing to check here.
inline void Deploy_m_checkRtConfigures() {}
