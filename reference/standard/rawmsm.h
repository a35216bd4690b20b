/// RTCM 10403.x MSM4 to MSM7 as their fields stand in the message, in steps of each field.
#pragma once

#include "bits.h"

#include <array>

namespace ref {

constexpr std::size_t kMostPairs = 64; ///< of satellite and signal: bits of a cell mask

struct RawMsm {
    struct Satellite {
        int id = 0;       ///< 1..64
        int ms = 255;     ///< DF397; 255: no rough range
        int info = 0;     ///< DF419, MSM5 and MSM7
        int part = 0;     ///< DF398, 2^-10 ms
        int rate = -8192; ///< DF399, m/s; -8192: none
    };
    struct Cell {
        int id = 0, signal = 0;          ///< 1..64, 1..32; signal 0: behind the mask
        int range = 0, phase = 0;        ///< DF400/405, DF401/406
        int lock = 0, half = 0, cnr = 0; ///< DF402/407, DF420, DF403/408
        int rate = 0;                    ///< DF404, MSM5 and MSM7
    };
    int type = 0, station = 0;
    std::uint32_t epochField = 0;
    bool more = false;                   ///< DF393
    int iods = 0, reserved = 0;          ///< DF409, DF001
    int steering = 0, externalClock = 0; ///< DF411, DF412
    int smoothed = 0, smoothing = 0;     ///< DF417, DF418
    std::vector<Satellite> satellites{}; ///< by id
    std::vector<int> signals{};          ///< ids of the mask
    std::vector<Cell> cells{};           ///< in order of satellite id, then signal id
    bool exact = true; ///< read: nothing but zero bits to the next byte behind the message

    char system() const;
    const Satellite& satellite(int id) const; ///< std::out_of_range for one that is not there
};

/// Widths and exponents of the units (ms, ms, dB-Hz) of DF400/405, DF401/406, DF402/407, DF403/408.
struct MsmForm {
    int range, rangeExp, phase, phaseExp, lock, cnr, cnrExp;
    bool rates;
    int rangeNone() const { return -(1 << (range - 1)); }
    int phaseNone() const { return -(1 << (phase - 1)); }
};
constexpr int kRateBits = 15; ///< DF404, 1e-4 m/s
constexpr int kRateNone = -(1 << (kRateBits - 1));
/// Of MSM 4 to 7; std::invalid_argument for another number.
const MsmForm& msmForm(int msm);

/// The system of a message number 107x, 108x, ...; std::invalid_argument for others.
char msmSystem(int type);
/// 1070, 1080, ... of a system; std::invalid_argument for one without.
int msmBase(char system);

/// Whether a message may have more than 64 pairs of satellite and signal. Its cell mask ends after
/// 64 bits then, its length says how many cells it has; cells behind the mask have signal 0.
enum class Pairs { atMost64, more };
/// std::invalid_argument for another type, std::out_of_range for a body that is too short or has
/// too many pairs.
RawMsm readRawMsm(const Bytes& body, Pairs pairs = Pairs::atMost64);
/// Masks are those of `satellites` and `signals`. std::out_of_range for a value wider than its
/// field.
Bytes writeRawMsm(const RawMsm& m);

} // namespace ref
