#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// gnsscmn: satellite numbers, observation codes, their carriers and the priority among them.
/// Signals: RINEX 3 observation codes; carriers: the interface documents of the systems.

/// Navigation systems are bit flags.
enum System : unsigned {
    kNoSystem = 0,
    kGps = 1,
    kSbas = 2,
    kGlonass = 4,
    kGalileo = 8,
    kQzss = 16,
    kBds = 32,
    kIrnss = 64,
    kLeo = 128
};

inline constexpr int kMaxSatNumber = 207;
inline constexpr int kGlonassSlots = 27;
inline constexpr int kMaxCode = 68;
/// Codes above this one have a number but print as empty (deliberate).
inline constexpr int kLastPrintedCode = 59;

inline constexpr int kLowestChannel = -7;
inline constexpr int kHighestChannel = 6;
inline constexpr int kUnknownChannel = -8;
constexpr bool validChannel(int k) {
    return k >= kLowestChannel && k <= kHighestChannel;
}

/// Blocks of satellite numbers, laid end to end.
struct SatelliteBlock {
    System system;
    int firstPrn;
    int count;
    char letter;   // of the satellite's name; 0 = the PRN alone
    int prnOfZero; // PRN minus the number in the name
};
inline constexpr std::array<SatelliteBlock, 6> kSatelliteBlocks{
    {{kGps, 1, 32, 'G', 0},
     {kGlonass, 1, kGlonassSlots, 'R', 0},
     {kGalileo, 1, 36, 'E', 0},
     {kQzss, 193, 10, 'J', 192},
     {kBds, 1, 63, 'C', 0},
     {kSbas, 120, 39, 0, 0}}};

/// System and PRN by satellite number.
struct SatelliteId {
    System system = kNoSystem;
    int prn = 0;
};
inline constexpr auto kSatelliteIds = [] {
    std::array<SatelliteId, kMaxSatNumber + 1> ids{};
    std::size_t sat = 1;
    for (const SatelliteBlock& block : kSatelliteBlocks)
        for (int i = 0; i < block.count; ++i)
            ids[sat++] = {block.system, block.firstPrn + i};
    return ids;
}();

/// Satellite number 1..207; 0 where the system has no block or the PRN is outside it. IRNSS and
/// LEO have none (deliberate).
constexpr int satno(unsigned system, int prn) {
    int number = 0;
    for (const SatelliteBlock& block : kSatelliteBlocks) {
        if (block.system == system) {
            const int index = prn - block.firstPrn;
            return prn >= 1 && index >= 0 && index < block.count ? number + index + 1 : 0;
        }
        number += block.count;
    }
    return 0;
}
/// System flag of a satellite number, 0 if invalid; QZSS PRNs are 193.., SBAS PRNs 120...
inline unsigned satsys(int sat, int* prn = nullptr) {
    const SatelliteId id = sat >= 1 && sat <= kMaxSatNumber
                               ? kSatelliteIds[static_cast<std::size_t>(sat)]
                               : SatelliteId{};
    if (prn)
        *prn = id.prn;
    return id.system;
}
/// Number of a satellite from "G05", "J02", "S27" or a bare PRN; 0 if none.
int satid2no(std::string_view id);
/// "G05"; three digits for SBAS; empty for an invalid number.
std::string satno2id(int sat);

/// What a configuration can name: systems, in the order in which their names are tried, and their
/// bands (digits of codes), whose carrier slots are "L1", ..., in that of theirs.
struct ConfiguredSystem {
    char letter;
    std::array<std::string_view, 3> names; // the first is the usual one
    std::string_view fullName;             // in lines
    std::string_view bands;
};
inline constexpr std::array<ConfiguredSystem, 5> kConfiguredSystems{
    {{'G', {"GPS"}, "GPS", "125"},
     {'R', {"GLS"}, "GLONASS", "12"},
     {'E', {"GAL"}, "GALILEO", "18657"},
     // Deliberate: "L2" is B1I; the configuration maps B1 to it and B1c to "L1".
     {'C', {"BDS", "CPS", "CMS"}, "BDS", "125678"},
     {'J', {"QZS"}, "QZSS", "1256"}}};
/// Null for a letter that no configuration can name.
constexpr const ConfiguredSystem* configuredSystem(char letter) {
    for (const ConfiguredSystem& s : kConfiguredSystems)
        if (s.letter == letter)
            return &s;
    return nullptr;
}

// clang-format off
/// Observation codes by number.
inline constexpr std::array<std::string_view, kMaxCode + 1> obscodes{
    "",
    "1C", "1P", "1W", "1Y", "1M", "1N", "1S", "1L", "1E", "1A", "1B", "1X", "1Z",
    "2C", "2D", "2S", "2L", "2X", "2P", "2W", "2Y", "2M", "2N",
    "5I", "5Q", "5X", "7I", "7Q", "7X",
    "6A", "6B", "6C", "6X", "6Z", "6S", "6L",
    "8L", "8Q", "8X",
    "2I", "2Q", "6I", "6Q",
    "3I", "3Q", "3X",
    "1I", "1Q",
    "5A", "5B", "5C", "9A", "9B", "9C", "9X",
    "1D", "5D", "5P", "5Z",
    "6E", "7D", "7P", "7Z", "8D", "8P",
    "4A", "4B", "4X"};
// clang-format on

/// Code number 1..68 of "1C", "2W", ...; 0 if none.
constexpr std::uint8_t obs2code(std::string_view obs) {
    for (std::size_t code = 1; code < obscodes.size(); ++code)
        if (obscodes[code] == obs)
            return static_cast<std::uint8_t>(code);
    return 0;
}
/// The two characters of a code; empty for 0 and above 59.
std::string_view code2obs(int code);
/// Slot of a code's carrier in the decoder's arrays, 0..4; -1 if none.
int code2idx(unsigned system, int code);
/// Carrier of a code, Hz; 0 if none. `fcn` is the GLONASS channel, -7..6.
double code2freq(unsigned system, int code, int fcn);
/// Carrier of a system's band (the digit of its codes), Hz; 0 if none. `fcn` is any number.
double bandFrequency(char systemLetter, char digit, int fcn);

/// Sets the priority letters of a slot for the systems of the mask.
void setcodepri(unsigned systems, int idx, std::string_view letters);
/// Priority 0..15 of a code, the higher the better; options such as "-GL1P" decide first.
int getcodepri(unsigned system, int code, std::string_view options);
