#pragma once

#include "reference/standard/geometry.h"

#include <optional>
#include <string>

/// Calendar: UTC texts of GPS times, from 2017 on.

namespace ctl::simulate {

/// "2018-07-12 23:37:11", with milliseconds where asked for.
enum class Fraction { none, milliseconds };
std::string utcText(ref::GpsTime t, Fraction fraction);
/// Reads "2018-07-12 23:37:11" or with a T in the middle and a Z behind; nothing for another text
/// or a time before 2017 or after 2077 (the week of Galileo ends in February 2078).
std::optional<ref::GpsTime> parseUtc(const std::string& text);
/// Modified Julian Date of the UTC day.
int utcMjd(ref::GpsTime t);

} // namespace ctl::simulate
