#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// RinexText: lines of RINEX files in which every field is there; a blank one reads 0.

/// n fields of `width` characters behind the satellite's name (none before version 3), as the
/// observations of RINEX: the last character of a field is the signal strength, and a field that
/// is blank but for it counts as blank.
std::string fillobs(std::string_view line, std::size_t n, std::size_t width, double version);
/// The four fields of 19 characters of an ephemeris line.
std::string filleph(std::string_view line, double version);
