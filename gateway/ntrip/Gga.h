#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Gga: the position sentence of NMEA 0183 that rovers send to casters.

namespace gateway::ntrip {

struct Gga {
    double latitudeDeg = 0.0, longitudeDeg = 0.0; // WGS 84
    double heightM = 0.0; // above the ellipsoid where the separation is told
    int quality = 0;      // 0 = no fix
    int satellites = 0;
};

/// Reads `$GPGGA`, `$GNGGA`... with its check sum; nothing for any other or damaged line, or values
/// that no place has. A line is at most 128 characters here.
std::optional<Gga> parseGga(std::string_view line);
/// The sentence of a place, with sum and CR LF. `utcS`: seconds of the day.
std::string ggaText(const Gga& place, double utcS);

/// Takes what a rover sends in pieces of any size; the last valid position of it.
class GgaReader {
public:
    /// The newest valid sentence in these bytes; nothing where none ended in them.
    std::optional<Gga> take(std::string_view bytes);

private:
    std::string line_; // of at most 128 characters; longer ones are passed over
    bool over_ = false;
};

} // namespace gateway::ntrip
