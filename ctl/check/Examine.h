#pragma once

#include "ctl/check/Remarks.h"

#include <string>
#include <string_view>
#include <vector>

/// Examine: what the readers of a configuration take as it stands and the service cannot use as it
/// is likely meant. Looks at the record that they filled.

namespace ctl::check {

/// Adds remarks on all of it; with the name of a unit as what that unit would meet.
void examineSession(const std::string& unit, Reading& reading);
/// Adds remarks on the leap-second file, where GLONASS needs it.
void examineLeapSeconds(Reading& reading);
/// What the service would do with it, a few lines.
std::vector<std::string> outlineOfSession(const Deployment& d);

/// Whether a reply can hold the signal, such as 'G' and "2W", where its carrier is configured.
bool repliesCarry(char system, std::string_view code);

/// The day on which the service would start: UTC, modified Julian day.
int dayOfStart(const Deployment& d);
/// "2030-01-01"
std::string dateText(int mjd);
/// TAI - UTC of the leap-second file and how long it holds; empty where it is not needed.
std::string outlineOfLeapSeconds(const Deployment& d);

} // namespace ctl::check
