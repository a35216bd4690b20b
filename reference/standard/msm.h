/// RTCM 10403.x observation messages MSM4 to MSM7.
/// Metres, metres per second, dB-Hz.
#pragma once

#include "geometry.h"
#include "rawmsm.h"

#include <optional>

namespace ref {

/// Signal (RINEX band digit and attribute) of an MSM signal id 1..32; empty when unassigned.
std::string signalOf(char system, int signalId);
int signalId(char system, std::string_view signal); ///< std::out_of_range when unassigned
double frequencyHz(char system, std::string_view signal, int glonassChannel = 0);
std::string satName(char system, int id); ///< "G05"; the numbers of J and C are the MSM ids

struct Cell {
    char system = 'G';
    int id = 0;                                               ///< MSM satellite id, 1..64
    std::string signal;                                       ///< empty: an unassigned signal id
    std::optional<double> pseudorangeM, phaseRangeM, rateMps; ///< rate: MSM5, MSM7
    int lock = 0;                                             ///< indicator as sent
    bool half = false;
    double cnr = 0;   ///< dB-Hz
    int info = 0;     ///< extended satellite information, MSM5 and MSM7; GLONASS: channel + 7
    std::string sat;  ///< satName(system, id)
    double lockS = 0; ///< time of continuous lock behind the indicator, where known
};

struct Msm {
    int type = 0, station = 0;
    char system = 'G';
    int msm = 4;
    std::uint32_t epochField = 0; ///< DF004, DF034 with its day of week, and their like; as sent
    bool more = false;            ///< multiple-message bit
    int iods = 0;
    int reserved = 0, steering = 0, externalClock = 0; ///< DF001, DF411, DF412
    int smoothed = 0, smoothing = 0;                   ///< DF417, DF418
    std::vector<int> sats{};
    std::vector<std::string> signals{};
    std::vector<Cell> cells{}; ///< in order of satellite id, then signal id
    bool exact = true;         ///< read: reserved and unused fields 0, nothing behind the message
};

/// std::invalid_argument for another type, std::out_of_range for a body that is too short or more
/// than 64 pairs of satellite and signal.
Msm readMsm(const Bytes& body);
/// The same for an encoder that goes beyond 64 pairs: its cell mask ends after 64 bits, its length
/// says how many cells it has. Cells behind the mask have no signal.
Msm readOverfullMsm(const Bytes& body);

/// Uses the fields of the head (type follows from system and msm) and the cells (in any order, none
/// twice; masks follow from them). A satellite's rough range and rate are those of its first cell
/// that has one; a fine field that is absent gets its invalid marker, one that does not fit throws
/// std::out_of_range.
Bytes writeMsm(const Msm& m);
/// The fields that writeMsm writes.
RawMsm rawOf(const Msm& m);

/// DF402 (MSM4, MSM5) or DF407 of a lock time.
int lockIndicator(int msm, double lockS);

/// The epoch field of a system at a GPS time.
std::uint32_t epochField(char system, GpsTime t);

} // namespace ref
