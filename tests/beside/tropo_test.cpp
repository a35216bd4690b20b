#include "beside/Tropo_vmf1.h"
#include "check.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <limits>

namespace {

constexpr double kDegree = 3.141592653589793 / 180;

/// A smooth world: the terms of a quantity at a place (degrees), in the units and the order of the
/// file: pressure, temperature, humidity, lapse rate, ah, aw, decrease of vapour, mean temperature.
std::array<double, 5> world(int quantity, double lat, double lon) {
    constexpr double means[] = {98000, 285, 8, -6, 1.25, 0.58, 2.7, 280};
    const double smooth = 1 + 0.05 * std::sin(lat * kDegree + quantity) +
                          0.03 * std::sin(lon * kDegree - quantity) * std::cos(lat * kDegree);
    const double mean = means[quantity] * smooth;
    return {mean, 0.01 * mean + 0.02, 0.02 * mean * smooth, -0.007 * mean, 0.004 * mean / smooth};
}
double undulationAt(double lat, double lon) {
    return 40 * std::sin(lon * kDegree) * std::cos(lat * kDegree) + lat / 10;
}
double orographyAt(double lat, double lon) {
    return 500 + 300 * std::sin(2 * lon * kDegree + lat * kDegree);
}

double centreLat(std::size_t cell) {
    return 89.5 - std::floor(static_cast<double>(cell) / 360);
}
double centreLon(std::size_t cell) {
    return static_cast<double>(cell % 360) + 0.5;
}

std::string worldLine(std::size_t cell) {
    const double lat = centreLat(cell), lon = centreLon(cell);
    std::vector<double> numbers{lat, lon};
    for (int quantity = 0; quantity < 8; ++quantity) {
        if (quantity == 4)
            numbers.insert(numbers.end(), {undulationAt(lat, lon), orographyAt(lat, lon)});
        const auto terms = world(quantity, lat, lon);
        numbers.insert(numbers.end(), terms.begin(), terms.end());
    }
    std::string line;
    char digits[32];
    for (const double x : numbers)
        line.append(" ").append(digits, std::to_chars(digits, digits + 32, x).ptr);
    return line;
}

std::string worldFile(std::size_t cells) {
    std::string file = "% lat lon p:a0 A1 B1 A2 B2 ...\n";
    for (std::size_t cell = 0; cell < cells; ++cell)
        file += worldLine(cell) + " any further text\n";
    return file;
}

using Nine = std::array<double, 9>; // a Gpt2Values, field by field

/// The weight of a cell by the distance of its centre; within half a degree of a pole the cell of
/// the site's meridian alone.
double weightOf(std::size_t cell, double lat, double lon) {
    const double north = std::abs(lat - centreLat(cell));
    if (north >= 1)
        return 0;
    const double eastOf = std::remainder(lon - centreLon(cell), 360);
    if (std::abs(lat) >= 89.5)
        return eastOf >= -0.5 && eastOf < 0.5 ? 1 : 0;
    return (1 - north) * std::max(0.0, 1 - std::abs(eastOf));
}

/// The atmosphere of the world, all cells weighed; season: what the four terms are multiplied with.
Nine predict(double lat, double lon, double heightM, const std::array<double, 4>& season) {
    Nine sum{};
    for (std::size_t cell = 0; cell < 64800; ++cell) {
        const double weight = weightOf(cell, lat, lon);
        if (weight == 0)
            continue;
        std::array<double, 8> q{};
        for (int i = 0; i < 8; ++i) {
            const auto terms = world(i, centreLat(cell), centreLon(cell));
            q[static_cast<std::size_t>(i)] = terms[0] + season[0] * terms[1] +
                                             season[1] * terms[2] + season[2] * terms[3] +
                                             season[3] * terms[4];
        }
        const double undulation = undulationAt(centreLat(cell), centreLon(cell));
        const double up = heightM - undulation - orographyAt(centreLat(cell), centreLon(cell));
        // Scale height of a moist atmosphere; vapour pressure by its share of the molar masses.
        const double scaleHeight =
            8.3143 * q[1] * (1 + 0.6077 * q[2] / 1000) / (28.965e-3 * 9.80665);
        const double vapour = q[0] / 100 / (0.378 + 0.622 * 1000 / q[2]);
        const Nine values = {q[0] / 100 * std::exp(-up / scaleHeight),
                             q[1] + q[3] * up / 1000 - 273.15,
                             q[3],
                             q[7],
                             vapour * std::exp(-up / scaleHeight * (q[6] + 1)),
                             q[4] / 1000,
                             q[5] / 1000,
                             q[6],
                             undulation};
        for (std::size_t i = 0; i < sum.size(); ++i)
            sum[i] += weight * values[i];
    }
    return sum;
}

} // namespace

TEST(Gpt2w, IsLoadedAndInterpolatedBetweenFourCells) {
    const check::Scratch scratch;
    const std::string path = scratch.write("grid", worldFile(64800));
    Gpt2Grid grid;
    Tropo_vmf1(grid, path);
    const double half = std::sqrt(0.5), year = 365.25, j2000 = 51544.5;
    const struct {
        double mjd;
        Seasons seasons;
        std::array<double, 4> factors;
    } epochs[] = {{j2000, Seasons::followed, {1, 0, 1, 0}},
                  {j2000 + 7.125 * year, Seasons::followed, {half, half, 0, 1}},
                  {j2000 - 0.25 * year, Seasons::followed, {0, -1, -1, 0}},
                  {56141, Seasons::dropped, {0, 0, 0, 0}}};
    // Centre, inside, edges, Greenwich from both sides, date line, further turns, poles.
    const Vector3 places[] = {
        {48.5, 16.5, 156},    {48.2, 16.37, 156},   {-48.8, 16.8, 3000},  {48, 16.2, -20},
        {48.3, 16, 0},        {0, 100, 9000},       {51.3, 0.2, 50},      {51.3, -0.2, 50},
        {51.3, 359.8, 50},    {51.3, 0, 50},        {51.3, 360, 50},      {-17.3, 179.7, 10},
        {-17.3, -179.7, 10},  {-17.3, 180, 10},     {-17.3, -180, 10},    {20.1, 735.3, 0},
        {20.1, -1079.8, 0},   {89.4, 33.3, 5},      {-89.4, -0.1, 2800},  {89.7, 200.7, 5},
        {90, 0, 5},           {-90, -0.25, 2800},   {-89.6, 359.9, 2800}, {90, 360, 0},
        {90 + 1e-8, 12.5, 0}, {-90 - 1e-8, 12.5, 0}};
    std::vector<Vector3> sites;
    for (const Vector3& p : places)
        sites.push_back({p[0] * kDegree, p[1] * kDegree, p[2]});
    for (const auto& epoch : epochs) {
        const auto values = Tropo_vmf1_gpt2_1w(grid, epoch.mjd, sites, epoch.seasons);
        ASSERT_EQ(values.size(), sites.size());
        for (std::size_t i = 0; i < sites.size(); ++i) {
            ASSERT_TRUE(values[i].has_value());
            const auto found = std::bit_cast<Nine>(*values[i]);
            const Nine expected = predict(places[i][0], places[i][1], places[i][2], epoch.factors);
            for (std::size_t k = 0; k < found.size(); ++k)
                EXPECT_NEAR(found[k], expected[k], 1e-9 * (1e-3 + std::abs(expected[k])))
                    << places[i][0] << " " << places[i][1] << " at " << epoch.mjd << ", " << k;
        }
    }
    EXPECT_TRUE(Tropo_vmf1_sign(-2, 0) == 2 && Tropo_vmf1_sign(2, -1) == -2);
    const double pole = 90 * kDegree, nan = std::numeric_limits<double>::quiet_NaN();
    const Vector3 nowhere[] = {{pole + 1e-6, 0, 0}, {-2, 0, 0}, {0, nan, 0}, {0, 0, HUGE_VAL}};
    for (const auto& value : Tropo_vmf1_gpt2_1w(grid, 56141, nowhere, Seasons::followed))
        EXPECT_FALSE(value.has_value());
    EXPECT_FALSE(Tropo_vmf1_gpt2_1w({}, 56141, sites, Seasons::followed)[0].has_value());
    EXPECT_FALSE(Tropo_vmf1_gpt2_1w(grid, nan, sites, Seasons::followed)[0].has_value());
    std::ofstream(path, std::ios::app) << " \r\n";
    Tropo_vmf1(grid, path);
    std::ofstream(path, std::ios::app) << "0\n";
    check::expectFatal([&] { Tropo_vmf1(grid, path); }, "file = " + path +
                                                            ",line = 64803,a line beyond the 64800 "
                                                            "cells\n");
}

TEST(Gpt2w, IsRefusedWithTheLineThatIsWrong) {
    const check::Scratch scratch;
    const std::string good = worldFile(2), third = worldLine(2);
    const std::string fields = third.substr(0, third.rfind(' '));
    const struct {
        std::string content, complaint;
    } cases[] = {
        {"", "line = 0,the file ends after 0 of 64800 cells"},
        {good, "line = 3,the file ends after 2 of 64800 cells"},
        {good.substr(good.find('\n') + 1), "line = 2,value = 89.5 1.5,the cell at 89.5 0.5 is "
                                           "expected"},
        {"header\n" + worldLine(64440),
         "line = 2,value = -89.5 0.5,the cell at 89.5 0.5 is expected"},
        {good + fields, "line = 4,number 44 of 44 is missing or not finite"},
        {good + fields + " nan", "line = 4,number 44 of 44 is missing or not finite"},
        {good + " 89.5 2.5 1e999", "line = 4,number 3 of 44 is missing or not finite"},
        {good + " 89.5 2.5 98000 x", "line = 4,number 4 of 44 is missing or not finite"},
        {good + " 89.5 2.5 98000 0 0 0 0 0" + fields,
         "line = 4,value = 98000 0,pressure and temperature must be positive"},
        {good + third + std::string(1024, ' '), "line = 4,the line is longer than 1024 bytes"}};
    Gpt2Grid grid;
    for (const auto& c : cases) {
        const std::string path = scratch.write("grid", c.content);
        check::expectFatal([&] { Tropo_vmf1(grid, path); },
                           "file = " + path + "," + c.complaint + "\n");
    }
    check::expectFatal([&] { Tropo_vmf1(grid, scratch.path + "none"); },
                       "file = " + scratch.path + "none,can't open file to read!\n");
}

TEST(MappingFunction, MeetsTheExamplesOfTheIersConventions) {
    // VMF1_HT.F and VMF1.F (without height) of the IERS Conventions 2010, chapter 9.
    const auto at = [](double heightM) {
        return Tropo_vmf1_vmf1_ht(0.00127683, 0.00060955, 55055, 0.6708665767, heightM,
                                  1.278564131);
    };
    EXPECT_NEAR(at(824.17).hydrostatic, 3.425088087972572, 1e-13);
    EXPECT_NEAR(at(0).hydrostatic, 3.424342122738071, 1e-13);
    EXPECT_NEAR(at(824.17).wet, 3.448299714692572, 1e-13);
}

TEST(MappingFunction, FollowsSeasonAndHemisphere) {
    const struct {
        double mjd, latitudeDeg, c; // Boehm et al. 2006, table 1, at the two ends of the season
    } cases[] = {{44266, 60, 0.062 + 0.006 * 0.5},
                 {44266 + 182.625, 60, 0.062 + 0.001 * 0.5},
                 {44266, -60, 0.062 + 0.002 * 0.5},
                 {44266 + 182.625, -60, 0.062 + 0.009 * 0.5}};
    // The continued fraction s + a/(s + b/(s + c)) as a quotient of polynomials.
    const auto fraction = [](double s, double a, double b, double c) {
        return s + a * (s + c) / (s * s + c * s + b);
    };
    for (const auto& c : cases)
        for (const double elevationDeg : {3.0, 15.0, 90.0}) {
            const double s = std::sin(elevationDeg * kDegree);
            const auto found = Tropo_vmf1_vmf1_ht(0.00125, 0.0006, c.mjd, c.latitudeDeg * kDegree,
                                                  0, (90 - elevationDeg) * kDegree);
            EXPECT_NEAR(found.hydrostatic,
                        fraction(1, 0.00125, 0.0029, c.c) / fraction(s, 0.00125, 0.0029, c.c),
                        1e-12)
                << c.mjd << " " << c.latitudeDeg;
        }
}

TEST(ZenithDelay, IsThatOfAHydrostaticAtmosphere) {
    // Refractivity 77.604 p/T summed up through the standard atmosphere in the Earth's normal
    // gravity (Moritz, GRS 80).
    for (const double latitudeDeg : {0.0, 45.0, -90.0})
        for (const double siteM : {0.0, 4000.0}) {
            const double sine2 = std::pow(std::sin(latitudeDeg * kDegree), 2);
            const double onEllipsoid = 9.7803267715 * (1 + 0.001931851353 * sine2) /
                                       std::sqrt(1 - 0.0066943800229 * sine2);
            const double surfaceHpa = siteM == 0.0 ? 1013.25 : 616.0;
            double p = surfaceHpa, delay = 0;
            for (int step = 0; step < 8000; ++step) {
                const double h = siteM + 10 * step + 5;
                const double kelvin = 288.15 - 0.0065 * std::min(h, 11000.0);
                const double gravity = onEllipsoid * std::pow(1 + h / 6371000, -2);
                const double drop = std::exp(-gravity * 0.0289644 * 5 / (8.31446 * kelvin));
                delay += 1e-6 * 77.604 * p * drop / kelvin * 10;
                p *= drop * drop;
            }
            EXPECT_NEAR(Tropo_vmf1_saasthyd(surfaceHpa, latitudeDeg * kDegree, siteM), delay, 3e-4)
                << latitudeDeg << " " << siteM;
        }
}

TEST(ZenithDelay, IsThatOfVapourThatThinsOutWithHeight) {
    // The example that comes with GPT2w, to its four digits.
    EXPECT_NEAR(Tropo_vmf1_asknewet(10.9621, 273.8720, 2.8071), 0.1176, 5e-5);
}
