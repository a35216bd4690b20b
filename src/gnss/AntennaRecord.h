#pragma once

#include "gnss/ComCoord.h"

#include <array>
#include <cstddef>
#include <string>
#include <vector>

/// AntennaRecord: one calibrated antenna, of a satellite or of a receiver, as ANTEX describes it.
/// Holds only what was read: an antenna with two carriers has two of them here.

inline constexpr std::size_t kAntennaSystems = 8; // in the order of "GRECBSJI"
inline constexpr std::size_t kAntennaSlots = 8;   // carriers of a system, as configured

/// Phase centre of one carrier.
struct PhaseCentre {
    std::string code; // ANTEX frequency code, such as "G01"; empty = not calibrated
    Vector3 pco{};    // m; receivers: north, east, up; satellites: as in the file
    std::size_t rows = 0, columns = 0;
    /// Variations, m, row-major: row 0 without azimuth, then by azimuth; columns by zenith angle.
    std::vector<double> pcv;
};

struct AntennaRecord {
    int frequencies = 0;                                // "# OF FREQUENCIES"
    std::string type;                                   // 20 characters at most
    std::string serial;                                 // satellites: the name, such as "G01"
    double validFrom = 0.0, validUntil = 10000000000.0; // MJD
    double zen1 = 0.0, zen2 = 0.0, dzen = 0.0;          // degrees
    double dazi = 0.0;                                  // degrees; 0 = no azimuth rows
    /// By system and configured slot; a system's list is as long as its last calibrated slot.
    std::array<std::vector<PhaseCentre>, kAntennaSystems> centres;
};

/// Offsets of a satellite's antenna by slot, m.
using SatellitePco = std::array<Vector3, kAntennaSlots>;
/// Offsets of a receiver's antenna by system and slot: east, north, up, m.
using SitePco = std::array<SatellitePco, kAntennaSystems>;

/// What the satellite-information file knows of a satellite at an epoch.
struct SatelliteInfo {
    std::string block;      // antenna type as in ANTEX, such as "BLOCK IIF"
    std::string designator; // of the launch: year, number and piece, two, three and two digits
    int channel = 0;        // GLONASS; 0 for other systems
    double massKg = 0.0;
    Vector3 offsetM{}; // x, y, z
};
