#pragma once

#include "ctl/Fields.h"
#include "rtcm/layouts/EphemerisMessages.h"
#include "rtcm/layouts/Legacy.h"
#include "rtcm/layouts/Msm.h"
#include "rtcm/layouts/StationMessages.h"

#include <array>

/// FieldTables: the names of the fields of every layout in rtcm/, in its order, with the DF numbers
/// of RTCM 10403.x.

namespace ctl::dump::fields {

template <std::size_t... sizes>
constexpr auto joined(const std::array<FieldName, sizes>&... parts) {
    std::array<FieldName, (sizes + ...)> all{};
    std::size_t n = 0;
    const auto append = [&](const auto& part) {
        for (const FieldName& name : part)
            all[n++] = name;
    };
    (append(parts), ...);
    return all;
}

// clang-format off
inline constexpr std::array kStationHead{
    FieldName{"message number", 2}, FieldName{"station id", 3}};
inline constexpr std::array kTimeOfDay{
    FieldName{"modified Julian day", 51}, FieldName{"seconds of day", 52, "s"}};

inline constexpr auto k1005 = joined(kStationHead, std::array{
    FieldName{"ITRF realization year", 21}, FieldName{"GPS indicator", 22},
    FieldName{"GLONASS indicator", 23}, FieldName{"Galileo indicator", 24},
    FieldName{"reference station indicator", 141}, FieldName{"ECEF X", 25, "m"},
    FieldName{"single receiver oscillator", 142}, FieldName{"reserved", 1},
    FieldName{"ECEF Y", 26, "m"}, FieldName{"quarter cycle indicator", 364},
    FieldName{"ECEF Z", 27, "m"}});
inline constexpr auto k1006 = joined(k1005, std::array{FieldName{"antenna height", 28, "m"}});
static_assert(fieldsOf<WirePosition>(layout1005) == k1005.size());
static_assert(fieldsOf<WirePosition>(layout1006) == k1006.size());

inline constexpr auto k1007 = joined(kStationHead, std::array{
    FieldName{"antenna descriptor", 30}, FieldName{"antenna set-up id", 31}});
inline constexpr auto k1008 = joined(k1007, std::array{FieldName{"antenna serial number", 33}});
inline constexpr auto k1033 = joined(k1008, std::array{
    FieldName{"receiver type", 228}, FieldName{"receiver firmware", 230},
    FieldName{"receiver serial number", 232}});
static_assert(fieldsOf<WireStation>(layout1007) == k1007.size());
static_assert(fieldsOf<WireStation>(layout1008) == k1008.size());
static_assert(fieldsOf<WireStation>(layout1033) == k1033.size());

inline constexpr auto k1013 = joined(kStationHead, kTimeOfDay, std::array{
    FieldName{"messages announced", 53}, FieldName{"leap seconds", 54, "s"}});
inline constexpr std::array k1013Announced{
    FieldName{"announced message", 55}, FieldName{"sent synchronously", 56},
    FieldName{"transmission interval", 57, "s"}};
static_assert(fieldsOf<SystemParameters>(layout1013) == k1013.size());

inline constexpr auto k1029 = joined(kStationHead, kTimeOfDay, std::array{
    FieldName{"characters", 138}, FieldName{"UTF-8 bytes", 139}});
static_assert(fieldsOf<UnicodeText>(layout1029Head) == k1029.size());

inline constexpr auto k1230 = joined(kStationHead, std::array{
    FieldName{"code-phase bias indicator", 421}, FieldName{"reserved", 1},
    FieldName{"signals mask", 422}});
inline constexpr std::array k1230Biases{
    FieldName{"L1 C/A bias", 423, "m"}, FieldName{"L1 P bias", 424, "m"},
    FieldName{"L2 C/A bias", 425, "m"}, FieldName{"L2 P bias", 426, "m"}};
static_assert(fieldsOf<Biases1230>(layout1230) == k1230.size());

/// The orbit from Crs to the rate of the node: fifteen numbers in a row.
constexpr std::array<FieldName, 15> orbit(int df) {
    return {{{"Crs", df, "m"}, {"delta n", df + 1, "semicircles/s"}, {"M0", df + 2, "semicircles"},
             {"Cuc", df + 3, "rad"}, {"eccentricity", df + 4}, {"Cus", df + 5, "rad"},
             {"sqrt(A)", df + 6, "sqrt(m)"}, {"toe", df + 7, "s"}, {"Cic", df + 8, "rad"},
             {"OMEGA0", df + 9, "semicircles"}, {"Cis", df + 10, "rad"},
             {"i0", df + 11, "semicircles"}, {"Crc", df + 12, "m"},
             {"omega", df + 13, "semicircles"}, {"OMEGADOT", df + 14, "semicircles/s"}}};
}

inline constexpr auto k1019 = joined(std::array{
    FieldName{"message number", 2}, FieldName{"satellite id", 9}, FieldName{"week modulo 1024", 76},
    FieldName{"URA index", 77}, FieldName{"code on L2", 78}, FieldName{"IDOT", 79, "semicircles/s"},
    FieldName{"IODE", 71}, FieldName{"toc", 81, "s"}, FieldName{"af2", 82, "s/s^2"},
    FieldName{"af1", 83, "s/s"}, FieldName{"af0", 84, "s"}, FieldName{"IODC", 85}},
    orbit(86), std::array{
    FieldName{"TGD", 101, "s"}, FieldName{"SV health", 102}, FieldName{"L2 P data flag", 103},
    FieldName{"fit interval flag", 137}});
static_assert(fieldsOf<WireEph>(layout1019) == k1019.size());

inline constexpr auto k1044 = joined(std::array{
    FieldName{"message number", 2}, FieldName{"satellite id", 429}, FieldName{"toc", 430, "s"},
    FieldName{"af2", 431, "s/s^2"}, FieldName{"af1", 432, "s/s"}, FieldName{"af0", 433, "s"},
    FieldName{"IODE", 434}},
    orbit(435), std::array{
    FieldName{"IDOT", 450, "semicircles/s"}, FieldName{"codes on L2", 451},
    FieldName{"week modulo 1024", 452}, FieldName{"URA index", 453}, FieldName{"SV health", 454},
    FieldName{"TGD", 455, "s"}, FieldName{"IODC", 456}, FieldName{"fit interval flag", 457}});
static_assert(fieldsOf<WireEph>(layout1044) == k1044.size());

inline constexpr auto kGalileo = joined(std::array{
    FieldName{"message number", 2}, FieldName{"satellite id", 252}, FieldName{"week", 289},
    FieldName{"IODnav", 290}, FieldName{"SISA index", 291}, FieldName{"IDOT", 292, "semicircles/s"},
    FieldName{"toc", 293, "s"}, FieldName{"af2", 294, "s/s^2"}, FieldName{"af1", 295, "s/s"},
    FieldName{"af0", 296, "s"}},
    orbit(297), std::array{FieldName{"BGD E5a/E1", 312, "s"}});
inline constexpr auto k1045 = joined(kGalileo, std::array{
    FieldName{"E5a health", 314}, FieldName{"E5a data validity", 315}, FieldName{"reserved", 1}});
inline constexpr auto k1046 = joined(kGalileo, std::array{
    FieldName{"BGD E5b/E1", 313, "s"}, FieldName{"E5b health", 316},
    FieldName{"E5b data validity", 317}, FieldName{"E1-B health", 287},
    FieldName{"E1-B data validity", 288}, FieldName{"reserved", 1}});
static_assert(fieldsOf<WireEph>(layout1045) == k1045.size());
static_assert(fieldsOf<WireEph>(layout1046) == k1046.size());

inline constexpr auto k1042 = joined(std::array{
    FieldName{"message number", 2}, FieldName{"satellite id", 488}, FieldName{"week", 489},
    FieldName{"URA index", 490}, FieldName{"IDOT", 491, "semicircles/s"}, FieldName{"AODE", 492},
    FieldName{"toc", 493, "s"}, FieldName{"a2", 494, "s/s^2"}, FieldName{"a1", 495, "s/s"},
    FieldName{"a0", 496, "s"}, FieldName{"AODC", 497}},
    orbit(498), std::array{
    FieldName{"TGD1", 513, "s"}, FieldName{"TGD2", 514, "s"}, FieldName{"SV health", 515}});
static_assert(fieldsOf<WireEph>(layout1042) == k1042.size());

inline constexpr std::array k1020{
    FieldName{"message number", 2}, FieldName{"satellite id", 38},
    FieldName{"frequency channel", 40, "", -7}, FieldName{"almanac health", 104},
    FieldName{"almanac health availability", 105}, FieldName{"P1", 106},
    FieldName{"tk hours", 107, "h"}, FieldName{"tk minutes", 107, "min"},
    FieldName{"tk half minutes", 107}, FieldName{"Bn, most significant bit", 108},
    FieldName{"P2", 109}, FieldName{"tb", 110, "15 min"},
    FieldName{"X velocity", 111, "km/s"}, FieldName{"X", 112, "km"},
    FieldName{"X acceleration", 113, "km/s^2"}, FieldName{"Y velocity", 114, "km/s"},
    FieldName{"Y", 115, "km"}, FieldName{"Y acceleration", 116, "km/s^2"},
    FieldName{"Z velocity", 117, "km/s"}, FieldName{"Z", 118, "km"},
    FieldName{"Z acceleration", 119, "km/s^2"}, FieldName{"P3", 120},
    FieldName{"gamma_n", 121}, FieldName{"P", 122}, FieldName{"l_n, third string", 123},
    FieldName{"tau_n", 124, "s"}, FieldName{"delta tau_n", 125, "s"},
    FieldName{"E_n, age of data", 126, "days"}, FieldName{"P4", 127}, FieldName{"F_T", 128},
    FieldName{"N_T", 129, "days"}, FieldName{"M, kind of satellite", 130},
    FieldName{"additional data available", 131}, FieldName{"N_A", 132, "days"},
    FieldName{"tau_c", 133, "s"}, FieldName{"N_4", 134}, FieldName{"tau_GPS", 135, "s"},
    FieldName{"l_n, fifth string", 136}, FieldName{"reserved", 1}};
static_assert(fieldsOf<WireGlonass>(layout1020) == k1020.size());

/// DF number of the epoch time, by the tens of the message number from 107 on.
constexpr std::array kEpochDf{4, 34, 248, 4, 428, 427, 546};
constexpr auto msmHead(int epochDf) {
    return joined(kStationHead, std::array{
        FieldName{"epoch time", epochDf, "ms"}, FieldName{"more messages follow", 393},
        FieldName{"IODS", 409}, FieldName{"reserved", 1}, FieldName{"clock steering", 411},
        FieldName{"external clock", 412}, FieldName{"divergence-free smoothing", 417},
        FieldName{"smoothing interval", 418}, FieldName{"satellite mask", 394},
        FieldName{"signal mask", 395}});
}
static_assert(fieldsOf<MsmHead>(layoutMsmHead) == msmHead(4).size());

constexpr auto legacyHead(bool glonass) {
    return joined(kStationHead, std::array{
        FieldName{"epoch time", glonass ? 34 : 4, "ms"}, FieldName{"more messages follow", 5},
        FieldName{"satellites", glonass ? 35 : 6},
        FieldName{"divergence-free smoothing", glonass ? 36 : 7},
        FieldName{"smoothing interval", glonass ? 37 : 8}});
}
static_assert(fieldsOf<LegacyHead>(layoutLegacyHead) == legacyHead(false).size());
// clang-format on

} // namespace ctl::dump::fields
