#pragma once

#include "gnss/GTime.h"
#include "gnss/gnsscmn.h"
#include "rtcm/BitCursor.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

/// rtcm: RtcmState, the one record that a decoder or an encoder of RTCM 3 (RTCM 10403.x) keeps
/// between bytes and between messages. Times are GPS time; phases cycles, ranges m.

inline constexpr std::size_t kObsSlots = 5; // signals of an observation record
inline constexpr std::size_t kMaxObs = 96;  // records of an epoch

/// Statuses of the decoders; an intake callback gets the positive ones.
enum Status : int {
    kEndOfFile = -2, // of input_rtcm3f alone
    kMalformed = -1,
    kNothing = 0,
    kEpoch = 1,
    kEphemeris = 2,
    kStation = 5,
};

struct ObsRecord {
    GTime time;
    std::uint8_t sat = 0;                       // satellite number
    std::uint8_t rcv = 0;                       // always 0; recorded only
    std::array<std::uint16_t, kObsSlots> SNR{}; // 0.001 dB-Hz; 0 = none
    std::array<std::uint8_t, kObsSlots> LLI{};  // bit 0 slip possible, bit 1 half cycle
    std::array<std::uint8_t, kObsSlots> code{}; // observation code; 0 = empty
    std::array<double, kObsSlots> L{};          // cycles
    std::array<double, kObsSlots> P{};          // m
    std::array<float, kObsSlots> D{};           // Hz
};

struct ObsSet {
    int n = 0;
    std::array<ObsRecord, kMaxObs> data;
    /// Where obsindex put the record of a satellite; it holds where that record says so, too.
    std::array<std::uint8_t, kMaxSatNumber + 1> rows{};
};

/// Keplerian broadcast ephemeris; sat 0 = none.
struct EphRecord {
    int sat = 0;
    int iode = 0, iodc = 0;
    int sva = 0; // URA or SISA index
    int svh = 0;
    int week = 0; // full
    GTime stated; // toe in the week that the message names; `week` may be the one beside it
    int code = 0; // codes on L2, or data sources
    int flag = 0; // L2 P data flag
    GTime toe, toc, ttr;
    double A = 0;                                    // m
    double e = 0, i0 = 0, OMG0 = 0, omg = 0, M0 = 0; // rad
    double deln = 0, OMGd = 0, idot = 0;             // rad/s
    double crc = 0, crs = 0;                         // m
    double cuc = 0, cus = 0, cic = 0, cis = 0;       // rad
    double toes = 0;                                 // toe, seconds of week
    double fit = 0;                                  // h
    double f0 = 0, f1 = 0, f2 = 0;                   // s, s/s, s/s^2
    std::array<double, 6> tgd{};                     // s
    double Adot = 0, ndot = 0;                       // m/s, rad/s^2
};

/// GLONASS broadcast ephemeris; sat 0 = none.
struct GloEphRecord {
    int sat = 0;
    int iode = 0; // tb, low 7 bits
    int frq = 0;  // channel
    int svh = 0, sva = 0;
    int age = 0; // days
    GTime toe, tof;
    std::array<double, 3> pos{}, vel{}, acc{}; // m, m/s, m/s^2; PZ-90
    double taun = 0, gamn = 0, dtaun = 0;      // s, -, s
};

struct StationInfo {
    Descriptor antdes{}, antsno{}, rectype{}, recver{}, recsno{};
    int antsetup = 0;
    int itrf = 0;
    int deltype = 0;             // 0: east, north, up
    std::array<double, 3> pos{}; // m
    std::array<double, 3> del{}; // m
    double hgt = 0.0;            // m
    int glo_cp_align = 0;
    std::array<double, 4> glo_cp_bias{}; // m: 1C, 1P, 2C, 2P
};

struct NavData {
    std::array<EphRecord, kMaxSatNumber> eph;     // row sat - 1
    std::array<GloEphRecord, kGlonassSlots> geph; // row slot - 1
    /// GLONASS channel + 8 by slot - 1; 0 = unknown. Not cleared by init_rtcm.
    std::array<int, 32> glo_fcn{};
    /// The same of the configured satellites, which come first.
    std::array<int, 32> configuredChannels{};
};

/// Satellites whose rows were touched, bit sat - 1: what is cleared of them costs what was touched.
class Touched {
public:
    void add(int sat) {
        const auto row = static_cast<std::size_t>(sat - 1);
        words_[row / 64] |= std::uint64_t{1} << row % 64;
    }
    bool has(int sat) const {
        const auto row = static_cast<std::size_t>(sat - 1);
        return (words_[row / 64] >> row % 64 & 1) != 0;
    }
    /// Calls clear(row) for each row, sat - 1, and forgets them.
    template <class Clear> void forget(Clear clear) {
        for (std::size_t word = 0; word < words_.size(); ++word)
            for (; words_[word] != 0; words_[word] &= words_[word] - 1)
                clear(64 * word + static_cast<std::size_t>(std::countr_zero(words_[word])));
    }

private:
    std::array<std::uint64_t, kMaxSatNumber / 64 + 1> words_{};
};

/// What is carried from message to message for each signal of a satellite. One value of all signals
/// stands together: an epoch that needs one of them leaves the memory of the others alone.
template <class Value> class SignalTrack {
public:
    Value& of(int sat, std::size_t slot) {
        touched_.add(sat);
        return rows_[static_cast<std::size_t>(sat - 1)][slot];
    }
    /// Whether a value of the satellite was asked for since the last clear().
    bool has(int sat) const { return touched_.has(sat); }
    void clear() {
        touched_.forget([this](std::size_t row) { rows_[row] = {}; });
    }

private:
    std::array<std::array<Value, kObsSlots>, kMaxSatNumber> rows_{}; // row sat - 1
    Touched touched_;
};

/// An observation message whose time, station or contents were refused.
struct RefusedMessage {
    int type = 0;                       // 0 = none
    std::optional<std::uint32_t> epoch; // time as sent; none in a message that is too short
    bool lostEpoch = false;             // the epoch being collected is given up
};

struct RtcmState {
    int staid = 0; // 0 = not yet known
    /// Id in the last message that has one, also in one that was refused because of it; -1 = none.
    int statedId = -1;
    int stah = 0;
    int seqno = 0;   // issue of data station
    int outtype = 0; // non-zero: each message writes its label into msgtype
    GTime time;
    ObsSet obs;
    NavData nav;
    StationInfo sta;
    std::array<char, 128> msg{};                    // last 1029 text
    std::string msgtype;                            // label of the last message
    std::array<std::array<char, 128>, 6> msmtype{}; // signals last seen: G R E J S C
    int obsflag = 0;                                // 1: obs holds a completed epoch
    GTime epoch;            // of the epoch being collected; unknown = none of its messages has come
    bool dated = false;     // `epoch` is from a system that replies carry
    RefusedMessage refused; // the last one since somebody took it from here
    int ephsat = 0;         // satellite of the last stored ephemeris
    SignalTrack<std::uint16_t> lastLock; // decoder: last lock-time indicator
    SignalTrack<double> phaseBase; // decoder: last phase difference, cycles; encoder: offset, m
    SignalTrack<GTime> lockStart;  // encoder
    int nbyte = 0;                 // bytes held in buff
    int nbit = 0;                  // bits written
    int len = 0;                   // frame length without check word
    std::array<std::uint8_t, 1200> buff{};
    std::array<std::uint32_t, 400> nmsg3{}; // messages by type
    std::string opt;                        // options
    /// 1042 is placed within half a week, and a channel that the stream states goes before the
    /// configured one. Not cleared by init_rtcm.
    bool byStandards = false;

    /// Counts a message of a type.
    void count(int type);
    Touched withEphemeris;          // init_rtcm clears theirs
    std::uint32_t countedPages = 0; // bit k: some of the 16 counters from 16 k on is not 0
};

/// Takes the state back to its empty start; GLONASS channels stay. Costs what was touched.
void init_rtcm(RtcmState& state);

/// What a station has said of itself.
struct SenderInfo {
    StationInfo said;
    bool placed = false; // by 1005 or 1006
    bool named = false;  // antenna or receiver, by 1007, 1008 or 1033
    bool height = false; // it sends 1006
};

/// GLONASS channel + 7 of a satellite: from the configured satellite, its ephemeris in the state,
/// or the state's channel table; -1 if unknown or not GLONASS.
int fcn_glo(int sat, const RtcmState& state);
/// Record of a satellite in the set, added cleared where absent; -1 when the set is full.
int obsindex(ObsSet& obs, GTime time, int sat);
