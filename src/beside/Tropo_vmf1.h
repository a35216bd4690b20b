#pragma once

#include "gnss/ComCoord.h"

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

/// Tropo_vmf1: zenith delays and mapping functions of the neutral atmosphere.
/// GPT2w on its 1-degree grid: Boehm, Moeller, Schindelegger, Pain, Weber (2015). VMF1: Boehm,
/// Werl, Schuh (2006), height correction by Niell (1996). Saastamoinen (1972) as in Davis et al.
/// (1985). Askne and Nordius (1987). Angles in radians, ellipsoidal heights in metres, epochs as
/// MJD with its fraction. Nothing in the service uses them.

/// A quantity of the grid: its mean, and the cosine and sine terms of the year and half year.
struct Gpt2Terms {
    double mean, cosYear, sinYear, cosHalfYear, sinHalfYear;
};

struct Gpt2Cell {
    Gpt2Terms pressure;        // Pa, at the height of the orography
    Gpt2Terms temperature;     // K, likewise
    Gpt2Terms humidity;        // specific, kg/kg, likewise
    Gpt2Terms lapseRate;       // of the temperature, K/m
    Gpt2Terms ah, aw;          // coefficients of the mapping functions
    Gpt2Terms meanTemperature; // weighted with the water vapour, K
    Gpt2Terms vapourDecrease;  // exponent of the water vapour's decrease with height
};
static_assert(sizeof(Gpt2Cell) == 40 * sizeof(double));

/// Cells of 1 degree from the north pole on, row by row, each from the Greenwich meridian east.
inline constexpr std::size_t kGpt2Rows = 180;
inline constexpr std::size_t kGpt2Columns = 360;
inline constexpr std::size_t kGpt2Cells = kGpt2Rows * kGpt2Columns;
struct Gpt2Grid {
    std::vector<Gpt2Cell> cells;
    std::vector<double> undulation; // of the geoid, m
    std::vector<double> orography;  // height above the geoid, m
};

/// Loads the grid that the tables name ("gptgrd_w"): a header line, then a line of 44 numbers for
/// each cell. Ends the process with a line on a file that is not just that.
void Tropo_vmf1(Gpt2Grid& grid, const std::string& path);

/// The atmosphere at a site.
struct Gpt2Values {
    double pressureHpa, temperatureC, lapseRateKPerKm, meanTemperatureK, vapourPressureHpa;
    double ah, aw, vapourDecrease, undulationM;
};
enum class Seasons { followed, dropped };
/// GPT2w at sites (latitude, longitude, height). No value for a site that is not on the Earth
/// (beyond a pole, or not finite), and for none while the grid is not loaded.
std::vector<std::optional<Gpt2Values>> Tropo_vmf1_gpt2_1w(const Gpt2Grid& grid, double mjd,
                                                          std::span<const Vector3> sites,
                                                          Seasons seasons);

/// Slant delay over zenith delay.
struct MappingFactors {
    double hydrostatic, wet;
};
/// VMF1 with the height correction, for zenith distances below 90 degrees; published for
/// elevations from 3 degrees on.
MappingFactors Tropo_vmf1_vmf1_ht(double ah, double aw, double mjd, double latitude, double heightM,
                                  double zenithDistance);

/// Hydrostatic zenith delay, m.
double Tropo_vmf1_saasthyd(double pressureHpa, double latitude, double heightM);
/// Wet zenith delay, m.
double Tropo_vmf1_asknewet(double vapourPressureHpa, double meanTemperatureK,
                           double vapourDecrease);

/// |a| when b is not negative, else -|a|.
double Tropo_vmf1_sign(double a, double b);

/// Room for the results of a caller; nothing here fills it.
struct Gpt2Record {
    std::array<double, 35> values{};
    std::array<double, 5> auxiliary{};
};
void GPT2_Data_Initial(Gpt2Record& record);
