#pragma once

#include "base/Findings.h"
#include "config/Configuration.h"
#include "config/JsonDocument.h"

#include <optional>
#include <string>
#include <string_view>

/// Deploy: turns the command line, the deployment file, the tables file and the object file into
/// a configuration and its session. Every reader reports what it finds and reads on; m_readJsonFile
/// alone prints, and ends the process at the first fatal finding.

/// Prints the three lines of usage and ends the process with status 1.
[[noreturn]] void usage();

/// Reads everything that the command line names; ends the process on a fatal finding.
void m_readJsonFile(Deployment& out, int argc, const char* const* argv);

/// Reads the deployment file and all it names without printing.
Findings readDeployment(Deployment& out, const std::string& path,
                        ReadingWatcher* watcher = nullptr);
/// Sets the switches that an argument contains; false where it contains none.
bool Deploy_m_readSwitch(Deployment& out, std::string_view argument);
/// The time of "common/clock", "YYYY-MM-DD hh:mm:ss", UTC; nothing where it is none.
std::optional<GTime> Deploy_m_parseClock(const std::string& value);
/// A system as "freqused" names it; empty where it has no such name.
std::string_view Deploy_m_systemName(char letter);

/// Reads the keys of one section ("common", "reqs" or "vrs").
void m_readJsonItem(Deployment& out, const JsonDocument& document, std::string_view section,
                    Findings& findings);
/// Reads the tables file.
void m_parseTablesConfigures(TablePaths& out, const std::string& path, Findings& findings);
/// One "freqused" value, such as "GPS:L1_L2 BDS:B1_B3", into a table; false with a finding at
/// the place given where it makes no sense.
bool m_parseFrequency(FrequencyTable& table, std::string_view value, const std::string& file,
                      const std::string& key, Findings& findings);
