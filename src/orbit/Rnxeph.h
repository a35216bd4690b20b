#pragma once

#include "gnss/Session.h"

#include <array>
#include <span>
#include <string>
#include <string_view>

/// Rnxeph: the ephemeris store, one slot per configured satellite, in the shape of a
/// RINEX 3 navigation record. A new ephemeris replaces the old one whole; nothing is removed, so
/// readers judge the age. BDS times are BDT readings, the others GPS time. "Recorded" is what is
/// kept for a reader of whole records; no orbit needs it.

/// What an orbit needs stands in front, in three lines of a cache.
struct alignas(64) GPSEPH {
    std::string cprn;
    int tocMjd = 0; // clock epoch; 0 = no ephemeris
    double tocSod = 0;
    double toe = 0, week = 0; // s of GPS week; GPS count
    /// BDS: above 6.0 the record has deltaA, Adot and ndot in place of sqrtA; what the stream
    /// brings has 0.
    double type = 0;
    double sqrtA = 0, deln = 0, M0 = 0, e = 0; // m, rad/s, rad
    double crs = 0, cuc = 0, cus = 0, cic = 0, cis = 0, crc = 0;
    double omega = 0, OMEGA0 = 0, OMEGADOT = 0, i0 = 0, idot = 0;
    double deltaA = 0, Adot = 0;      // m and m/s, against the reference axis of the satellite
    double ndot = 0;                  // rate of deln, rad/s^2
    double af0 = 0, af1 = 0, af2 = 0; // s, s/s, s/s^2
    double tgd1 = 0, tgd2 = 0;
    double iodc = 0;
    int aode = 0;                                  // age-of-data number; recorded
    double selection = 1000000.0;                  // recorded
    double codesOnL2 = 0, l2pFlag = 0, health = 0; // recorded
    double accuracy = 0;                           // index as received; recorded
    std::array<double, 6> spare{};                 // recorded
};

struct GLSEPH {
    std::string cprn;
    int mjd = 0;                                          // of toe; 0 = no ephemeris
    int aode = 0;                                         // recorded
    double sod = 0;                                       // of toe
    std::array<double, 3> posKm{}, velKmps{}, accKmps2{}; // PZ-90
    double clockBias = 0;                                 // s; -TauN
    double gamma = 0;                                     // relative frequency bias
    double frameTime = 0;                                 // s of week, UTC; recorded
    double channel = 0;
    double selection = 1000000.0;              // recorded
    double health = 0, ageDays = 0, spare = 0; // recorded
};

struct EphemerisStore {
    int keplerCount = 0;
    int glonassCount = 0;
    std::array<GPSEPH, kMaxKeplerSatellites> kepler;
    std::array<GLSEPH, kMaxGlonassSatellites> glonass;
    /// Slot by configured-satellite index, in the array of the satellite's system; -1 = none.
    std::array<int, kMaxSatellites> slotOf{};
};

/// Lays out an empty store for the configured satellites.
void Rnxeph_initial(EphemerisStore& store, std::span<const std::string> satelliteNames);
void Rnxeph_GPSEPH_initial(GPSEPH& record);
void Rnxeph_GLSEPH_initial(GLSEPH& record);
/// Slot of the first record whose name contains the name, or -1.
int map_gpseph_find(std::span<const GPSEPH> records, std::string_view name);
int map_glseph_find(std::span<const GLSEPH> records, std::string_view name);
