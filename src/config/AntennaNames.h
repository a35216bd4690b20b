#pragma once

#include "base/Findings.h"

#include <string>

/// AntennaNames: canonical antenna names from the file that the tables name ("antnam").

/// The canonical name of an antenna; false, after a fatal finding, where the file does not know
/// it.
bool Antatx_s_antnam(const std::string& siteName, const std::string& antenna,
                     std::string& canonical, const std::string& path, Findings& findings);
