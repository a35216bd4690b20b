#pragma once

#include "gnss/AntennaRecord.h"
#include "gnss/ComCoord.h"
#include "gnss/EpochObs.h"
#include "gnss/gnsscmn.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Session: what a service works on, made once from the configuration: satellites with their
/// carriers and indices, stations, requests. Constant while the service runs.

/// Systems in the order in which every per-system table is laid out; 'B' marks BDS-3.
inline constexpr std::string_view kSystems = "GRECBSJI";
inline constexpr std::size_t kSystemCount = kSystems.size();
/// Place of a system's letter in kSystems; npos = none.
constexpr std::size_t systemIndex(char letter) {
    return kSystems.find(letter);
}
/// Place of a satellite number's system in kSystems; -1 = none: its names are numbers.
inline constexpr auto kSystemOf = [] {
    std::array<std::int16_t, kMaxSatNumber + 1> places{};
    places.fill(-1);
    for (const SatelliteBlock& block : kSatelliteBlocks)
        for (int i = 0; i < block.count && block.letter != 0; ++i)
            places[static_cast<std::size_t>(satno(block.system, block.firstPrn + i))] =
                static_cast<std::int16_t>(kSystems.find(block.letter));
    return places;
}();
inline constexpr std::size_t kMaxFrequencies = 4; // per system

inline constexpr std::size_t kMaxKeplerSatellites = 120;
inline constexpr std::size_t kMaxGlonassSatellites = 40;

/// Carrier slot names ("L1", "L2", ...) used per system.
using FrequencyTable = std::array<std::vector<std::string>, kSystemCount>;

/// A carrier slot of an accepted satellite.
struct CarrierSlot {
    std::string name; // "L1", ...
    double hz = 0.0;
    double wavelengthM = 0.0; // both 0 = frequency unknown
};

/// Wavelength of the difference of two carriers.
struct CarrierPair {
    std::string name; // "L1_L2"
    double wavelengthM = 0.0;
};

/// Constants of the combinations of a satellite's two highest carriers f1 > f2. Recorded only.
struct CombinationConstants {
    double g = 0.0;               // f1 / f2
    double g2 = 0.0;              // its square
    double wideLaneM = 0.0;       // c / |f1 - f2|
    double narrowLaneM = 0.0;     // c / |f1 + f2|
    double ionosphereFree1 = 0.0; // g2 / (g2 - 1), of the first carrier
    double ionosphereFree2 = 0.0; // 1 / (g2 - 1), of the second
};

/// What "-post" resolves of a satellite: its vehicle and the antenna of that.
struct SatelliteVehicle {
    SatelliteInfo info;
    AntennaRecord calibration;
    SatellitePco pco{}; // by slot, m
};

struct SatelliteRecord {
    std::string cprn; // "G05"
    std::array<std::string, 3> texts;
    std::array<double, 23> numbers{};
    bool used = false;
    int glonassChannel = kUnknownChannel;
    std::vector<CarrierSlot> slots;
    std::array<CarrierPair, kMaxFrequencies> pairs;
    std::optional<CombinationConstants> combination; // nothing with fewer than two carriers
    std::unique_ptr<SatelliteVehicle> vehicle;       // null without "-post"
};

struct StationRecord {
    std::string name;           // 4 characters
    std::string coordinateMode; // "F..." = fixed
    std::array<std::string, 2> texts;
    std::array<double, 15> numbers{}; // the last is an angle, rad
    std::string text;                 // with "-post" a template of a file name, expanded
    std::array<double, 20> moreNumbers{};
    Vector3 xyz{};   // m
    Vector3 sigma{}; // of xyz, m
    Vector3 more{};  // the three further numbers of the "_SIG" line
    Vector3 enu{};   // antenna reference point, m
    std::string antenna;
    std::string antennaWithRadome;
    // With "-post":
    std::string obsFile, logFile; // paths
    Vector3 blh{};                // rad, rad, m
    Matrix3 fromLocal{};          // east-north-up to Earth-centred axes
    AntennaRecord calibration;
    SitePco pco{}; // of its antenna, m
};

/// A virtual station: one per element of "reqs".
struct RequestRecord {
    std::string name;             // at most 7 characters
    std::int32_t stationId = -1;  // RTCM reference station id
    std::int32_t requestWord = 0; // carried in the reply frame
    Vector3 blh{};                // rad, rad, m
    Vector3 xyz{};                // m
    double distanceM = 0.0;       // to the reference station
};

/// Switches of the command line.
struct Switches {
    bool post = false;
    bool pthread = false;
    bool debug = false;
    bool vrsSave = false;
    bool rawSave = false;
};

inline constexpr double kMaxOffsetM = 5000.0; // of a virtual station from its reference

/// How epochs are answered.
struct Answering {
    bool complete = false; // all signals in messages of the numbers that came, else MSM4 of a few
    bool plain = false;    // as an RTCM 3 stream, else in reply frames
    std::optional<Vector3> offsetM; // virtual station, east, north, up; else about 300 m north
};

/// Largest distance (m) of the place that a station states from the configured one.
struct PlaceGuard {
    double mostM = 0.0;
    bool warnOnly = false; // replies go on
};

struct Session {
    Answering answering;
    std::optional<PlaceGuard> guard;

    std::vector<std::string> stationNames; // upper case
    std::string systems;                   // letters in use, the primary system first
    int primarySystem = 0;                 // position of that letter in kSystems
    std::array<int, kSystemCount> useNumbers{};
    FrequencyTable frequencies; // of stations and satellites alike

    std::vector<std::string> satelliteNames; // cprn of satellites[i]
    std::vector<SatelliteRecord> satellites;
    std::vector<StationRecord> stations;
    std::vector<RequestRecord> requests;
    std::vector<std::string> baselineNames;

    /// Index of a satellite by its satellite number, -1 = not configured: what a search of
    /// satelliteNames for satno2id(number) gives.
    std::array<std::int16_t, kMaxSatNumber + 1> satelliteIndex = noSatellites();
    /// The reverse: number of a configured satellite's name.
    std::array<std::uint8_t, kMaxSatellites> satelliteNumber{};
    /// Carriers of a configured satellite by slot, Hz: those of its record, in one place. 0 where
    /// there is no slot or its frequency was unknown.
    std::array<std::array<double, kMaxFrequencies>, kMaxSatellites> carrierHz{};
    /// Carrier slot by place in kSystems and observation code: the first frequency name of the
    /// station whose digit is that of the code; -1 = none.
    std::array<std::array<std::int16_t, kMaxCode + 1>, kSystemCount> slotOf{};
    /// Enters the satellite of that place in satelliteNames, or all of them anew with carriers and
    /// slots.
    void indexSatellite(std::size_t place);
    void indexSatellites();
    /// Index of a satellite by its name, -1 = not configured.
    int satelliteNamed(std::string_view name) const;

    /// Configured carriers of a satellite's system, none of an unknown one.
    std::span<const std::string> carriersOf(const SatelliteRecord& satellite) const;
    /// GLONASS channel + 8 by slot number - 1, of the satellites that have one; 0 = unknown.
    GlonassChannels glonassChannels() const;

    static constexpr std::array<std::int16_t, kMaxSatNumber + 1> noSatellites() {
        std::array<std::int16_t, kMaxSatNumber + 1> none{};
        none.fill(-1);
        return none;
    }
};
