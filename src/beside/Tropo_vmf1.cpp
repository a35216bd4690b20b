#include "beside/Tropo_vmf1.h"

#include "base/ComText.h"
#include "base/Findings.h"
#include "base/LineReader.h"
#include "base/Print.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kGravity = 9.80665;       // m/s^2
constexpr double kMolarMassDry = 0.028965; // kg/mol
constexpr double kGasConstant = 8.3143;    // J/(mol K)
constexpr double kCelsius = 273.15;        // K at 0 degrees Celsius
constexpr double kDaysOfYear = 365.25;

// The file.

constexpr std::size_t kNumbers = 44; // of a line: two coordinates, two heights, eight quantities
using CellNumbers = std::array<double, kNumbers>;

/// Index of the first number that is missing or not finite; kNumbers where all are there.
std::size_t readNumbers(std::string_view line, CellNumbers& numbers) {
    TextScanner scan(line);
    std::size_t i = 0;
    while (i < kNumbers && scan.number(numbers[i]) && std::isfinite(numbers[i]))
        ++i;
    return i;
}

Gpt2Terms termsAt(const CellNumbers& numbers, std::size_t at, double unit) {
    return {numbers[at] / unit, numbers[at + 1] / unit, numbers[at + 2] / unit,
            numbers[at + 3] / unit, numbers[at + 4] / unit};
}

void addCell(Gpt2Grid& grid, const CellNumbers& numbers) {
    // Columns as published; humidity in g/kg, lapse rate in mK/m, ah and aw in thousandths.
    grid.cells.push_back({.pressure = termsAt(numbers, 2, 1.0),
                          .temperature = termsAt(numbers, 7, 1.0),
                          .humidity = termsAt(numbers, 12, 1000.0),
                          .lapseRate = termsAt(numbers, 17, 1000.0),
                          .ah = termsAt(numbers, 24, 1000.0),
                          .aw = termsAt(numbers, 29, 1000.0),
                          .meanTemperature = termsAt(numbers, 39, 1.0),
                          .vapourDecrease = termsAt(numbers, 34, 1.0)});
    grid.undulation.push_back(numbers[22]);
    grid.orography.push_back(numbers[23]);
}

/// What is wrong with a line; empty where it has been taken.
std::string takeLine(Gpt2Grid& grid, std::string_view line) {
    const std::size_t cell = grid.cells.size();
    if (cell == kGpt2Cells && TextScanner(line).atEnd())
        return {}; // blank lines may follow
    if (cell == kGpt2Cells)
        return text("a line beyond the %zu cells", kGpt2Cells);
    CellNumbers numbers{};
    if (const std::size_t bad = readNumbers(line, numbers); bad < kNumbers)
        return text("number %zu of %zu is missing or not finite", bad + 1, kNumbers);
    const std::size_t row = cell / kGpt2Columns;
    const double latitude = 89.5 - static_cast<double>(row);
    const double longitude = 0.5 + static_cast<double>(cell % kGpt2Columns);
    if (std::abs(numbers[0] - latitude) > 1e-6 || std::abs(numbers[1] - longitude) > 1e-6)
        return text("value = %g %g,the cell at %g %g is expected", numbers[0], numbers[1], latitude,
                    longitude);
    // Both are divisors.
    if (numbers[2] <= 0.0 || numbers[7] <= 0.0)
        return text("value = %g %g,pressure and temperature must be positive", numbers[2],
                    numbers[7]);
    addCell(grid, numbers);
    return {};
}

/// What is wrong with the file; empty where the grid is complete.
std::string readGrid(LineReader& file, Gpt2Grid& grid) {
    std::string_view line;
    file.next(line); // header
    while (file.next(line)) {
        std::string wrong =
            file.cut() ? "the line is longer than 1024 bytes" : takeLine(grid, line);
        if (!wrong.empty())
            return wrong;
    }
    if (grid.cells.size() < kGpt2Cells)
        return text("the file ends after %zu of %zu cells", grid.cells.size(), kGpt2Cells);
    return {};
}

// The interpolation.

/// Cosines and sines that the terms of a quantity are multiplied with.
struct SeasonFactors {
    double cosYear, sinYear, cosHalfYear, sinHalfYear;
    double operator()(const Gpt2Terms& t) const {
        return t.mean + t.cosYear * cosYear + t.sinYear * sinYear + t.cosHalfYear * cosHalfYear +
               t.sinHalfYear * sinHalfYear;
    }
};

SeasonFactors seasonFactors(double mjd, Seasons seasons) {
    if (seasons == Seasons::dropped)
        return {};
    const double phase = 2.0 * kPi * (mjd - 51544.5) / kDaysOfYear; // from J2000.0
    return {std::cos(phase), std::sin(phase), std::cos(2.0 * phase), std::sin(2.0 * phase)};
}

struct WeightedCell {
    std::size_t cell;
    double weight;
};
/// The cells that a site lies between; a weight of 0 means that the cell is not needed.
using Neighbours = std::array<WeightedCell, 4>;

/// Row and column count from 1; a column beyond the last or the first is on the other side.
std::size_t cellAt(int row, int column) {
    constexpr int columns = static_cast<int>(kGpt2Columns);
    const int east = (column - 1 + columns) % columns;
    return static_cast<std::size_t>(row - 1) * kGpt2Columns + static_cast<std::size_t>(east);
}

/// Polar distance 0 to 180, longitude 0 to 360, degrees.
Neighbours neighboursOf(double polarDistance, double longitude) {
    const int row = static_cast<int>(std::floor(polarDistance + 1.0));
    const int column = static_cast<int>(std::floor(longitude + 1.0));
    // A cell's centre lies half a degree before its number.
    const double south = polarDistance - (row - 0.5);
    const double east = longitude - (column - 0.5);
    if (polarDistance <= 0.5 || polarDistance >= 179.5)
        return {{{cellAt(std::min(row, static_cast<int>(kGpt2Rows)), column), 1.0}}};
    const int nextRow = row + static_cast<int>(Tropo_vmf1_sign(1.0, south));
    const int nextColumn = column + static_cast<int>(Tropo_vmf1_sign(1.0, east));
    const double bySouth = std::abs(south);
    const double byEast = std::abs(east);
    return {{{cellAt(row, column), (1.0 - bySouth) * (1.0 - byEast)},
             {cellAt(nextRow, column), bySouth * (1.0 - byEast)},
             {cellAt(row, nextColumn), (1.0 - bySouth) * byEast},
             {cellAt(nextRow, nextColumn), bySouth * byEast}}};
}

/// What a cell says for a site at an ellipsoidal height.
Gpt2Values valuesAt(const Gpt2Grid& grid, std::size_t index, double heightM,
                    const SeasonFactors& at) {
    const Gpt2Cell& cell = grid.cells[index];
    const double undulation = grid.undulation[index];
    const double aboveM = heightM - undulation - grid.orography[index];
    const double p0 = at(cell.pressure);    // Pa
    const double t0 = at(cell.temperature); // K
    const double q = at(cell.humidity);
    const double lapseRate = at(cell.lapseRate); // K/m
    const double decrease = at(cell.vapourDecrease);
    const double virtualT = t0 * (1.0 + 0.6077 * q); // K
    const double p = p0 * std::exp(-kGravity * kMolarMassDry / (kGasConstant * virtualT) * aboveM);
    const double e0 = q * p0 / (0.622 + 0.378 * q) / 100.0; // hPa
    return {.pressureHpa = p / 100.0,
            .temperatureC = t0 + lapseRate * aboveM - kCelsius,
            .lapseRateKPerKm = 1000.0 * lapseRate,
            .meanTemperatureK = at(cell.meanTemperature),
            .vapourPressureHpa = e0 * std::pow(p / p0, decrease + 1.0),
            .ah = at(cell.ah),
            .aw = at(cell.aw),
            .vapourDecrease = decrease,
            .undulationM = undulation};
}

void addWeighted(Gpt2Values& sum, const Gpt2Values& values, double weight) {
    for (double Gpt2Values::*const field :
         {&Gpt2Values::pressureHpa, &Gpt2Values::temperatureC, &Gpt2Values::lapseRateKPerKm,
          &Gpt2Values::meanTemperatureK, &Gpt2Values::vapourPressureHpa, &Gpt2Values::ah,
          &Gpt2Values::aw, &Gpt2Values::vapourDecrease, &Gpt2Values::undulationM})
        sum.*field += weight * values.*field;
}

Gpt2Values interpolate(const Gpt2Grid& grid, const Vector3& site, const SeasonFactors& factors) {
    const auto [latitude, longitude, heightM] = site;
    const double polarDistance = (kPi / 2.0 - latitude) * 180.0 / kPi;
    double east = std::fmod(longitude, 2.0 * kPi);
    if (east < 0.0)
        east += 2.0 * kPi;
    Gpt2Values sum{};
    for (const auto& [cell, weight] :
         neighboursOf(std::clamp(polarDistance, 0.0, 180.0), east * 180.0 / kPi))
        if (weight != 0.0)
            addWeighted(sum, valuesAt(grid, cell, heightM, factors), weight);
    return sum;
}

/// A rounding of 6 mm beyond a pole is still the pole.
bool onEarth(const Vector3& site) {
    return std::all_of(site.begin(), site.end(), [](double x) { return std::isfinite(x); }) &&
           std::abs(site[0]) <= kPi / 2.0 + 1e-9;
}

// The mapping functions.

/// Marini's continued fraction, 1 at the zenith (Herring 1992).
double continuedFraction(double sine, double a, double b, double c) {
    return (1.0 + a / (1.0 + b / (1.0 + c))) / (sine + a / (sine + b / (sine + c)));
}

/// The third hydrostatic coefficient varies with latitude and season.
double hydrostaticC(double mjd, double latitude) {
    const bool south = latitude < 0.0;
    const double phase = south ? kPi : 0.0;
    const double c11 = south ? 0.007 : 0.005;
    const double c10 = south ? 0.002 : 0.001;
    const double doy =
        mjd - 44239.0 + 1.0 - 28.0; // from 28 January, the coldest day of Niell (1996)
    const double season = std::cos(2.0 * kPi * doy / kDaysOfYear + phase) + 1.0;
    return 0.062 + (season * c11 / 2.0 + c10) * (1.0 - std::cos(latitude));
}

} // namespace

void Tropo_vmf1(Gpt2Grid& grid, const std::string& path) {
    LineReader file(path);
    if (!file.isOpen())
        fatal("file = %s,can't open file to read!", path.c_str());
    grid = {};
    grid.cells.reserve(kGpt2Cells);
    grid.undulation.reserve(kGpt2Cells);
    grid.orography.reserve(kGpt2Cells);
    if (const std::string wrong = readGrid(file, grid); !wrong.empty())
        fatal("file = %s,line = %d,%s", path.c_str(), file.lineNumber(), wrong.c_str());
}

std::vector<std::optional<Gpt2Values>> Tropo_vmf1_gpt2_1w(const Gpt2Grid& grid, double mjd,
                                                          std::span<const Vector3> sites,
                                                          Seasons seasons) {
    std::vector<std::optional<Gpt2Values>> values(sites.size());
    if (!std::isfinite(mjd) || grid.cells.size() != kGpt2Cells ||
        grid.undulation.size() != kGpt2Cells || grid.orography.size() != kGpt2Cells)
        return values;
    const SeasonFactors factors = seasonFactors(mjd, seasons);
    for (std::size_t i = 0; i < sites.size(); ++i)
        if (onEarth(sites[i]))
            values[i] = interpolate(grid, sites[i], factors);
    return values;
}

MappingFactors Tropo_vmf1_vmf1_ht(double ah, double aw, double mjd, double latitude, double heightM,
                                  double zenithDistance) {
    const double sine = std::sin(kPi / 2.0 - zenithDistance);
    const double perKm = 1.0 / sine - continuedFraction(sine, 2.53e-5, 5.49e-3, 1.14e-3);
    return {.hydrostatic = continuedFraction(sine, ah, 0.0029, hydrostaticC(mjd, latitude)) +
                           perKm * heightM / 1000.0,
            .wet = continuedFraction(sine, aw, 0.00146, 0.04391)};
}

double Tropo_vmf1_saasthyd(double pressureHpa, double latitude, double heightM) {
    return 0.0022768 * pressureHpa / (1.0 - 0.00266 * std::cos(2.0 * latitude) - 2.8e-7 * heightM);
}

double Tropo_vmf1_asknewet(double vapourPressureHpa, double meanTemperatureK,
                           double vapourDecrease) {
    constexpr double k1 = 77.604;                           // K/hPa
    constexpr double k2 = 64.79;                            // K/hPa
    constexpr double k3 = 377600.0;                         // K^2/hPa
    constexpr double k2Prime = k2 - k1 * 18.0152 / 28.9644; // molar masses of water, dry air
    constexpr double gasDry = kGasConstant / kMolarMassDry; // J/(kg K)
    return 1e-6 * (k2Prime + k3 / meanTemperatureK) * gasDry / (vapourDecrease + 1.0) / kGravity *
           vapourPressureHpa;
}

double Tropo_vmf1_sign(double a, double b) {
    return b >= 0.0 ? std::abs(a) : -std::abs(a);
}

void GPT2_Data_Initial(Gpt2Record& record) {
    record = {};
}
