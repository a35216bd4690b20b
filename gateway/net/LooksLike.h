#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace gateway {

/// What bytes that are no RTCM 3 seem to be: "UBX", "NMEA", "HTML"...; empty: nothing known.
std::string looksLike(std::span<const std::uint8_t> bytes);

} // namespace gateway
