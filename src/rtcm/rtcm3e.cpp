#include "rtcm/Msm.h"
#include "rtcm/StationMessages.h"
#include "rtcm/rtcm.h"

#include "common/ComCoord.h"
#include "common/Print.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <span>

namespace {

constexpr double kMaxRoughRangeM = 76447076.79;
constexpr double kMaxFineRangeM = 292.7;
constexpr double kMaxFinePhaseM = 1171.0;

/// Signal ids by observation code; 0 = the system's MSM has no such signal.
using IdTable = std::array<std::array<std::uint8_t, kMaxCode + 1>, kMsmSystems.size()>;
constexpr IdTable makeSignalIds() {
    // GPS tracking modes of the P code that have no signal of their own.
    constexpr std::array<std::array<std::string_view, 2>, 7> aliases{{{"1Y", "1P"},
                                                                      {"1M", "1P"},
                                                                      {"1N", "1P"},
                                                                      {"2D", "2P"},
                                                                      {"2Y", "2P"},
                                                                      {"2M", "2P"},
                                                                      {"2N", "2P"}}};
    IdTable ids{};
    for (std::size_t row = 0; row < kMsmSystems.size(); ++row)
        for (std::size_t id = kMsmSignals; id > 0; --id)
            if (const std::uint8_t code = kMsmSystems[row].codes[id])
                ids[row][code] = static_cast<std::uint8_t>(id);
    for (const auto& [alias, code] : aliases)
        ids[0][obs2code(alias)] = ids[0][obs2code(code)];
    return ids;
}
constexpr IdTable kSignalIds = makeSignalIds();

/// The index of a message: which satellites and signals it has, and where a cell lies.
struct MsmIndex {
    std::size_t row = 0; // of kMsmSystems
    std::uint64_t satellites = 0;
    std::uint32_t signals = 0;
    std::size_t satelliteCount = 0;
    std::size_t signalCount = 0;
    std::size_t cellCount = 0;
    /// Number of a cell by satellite and signal, from 1; 0 = none.
    std::array<std::uint8_t, kMsmSatellites * kMsmSignals> cellNumber;

    std::size_t at(std::size_t satellite, std::size_t signal) const {
        return satellite * signalCount + signal;
    }
    std::size_t pairs() const { return satelliteCount * signalCount; }
};

/// Rank of an id (1-based) among the bits of a mask.
template <class Mask> std::size_t rankOf(Mask mask, int id) {
    return static_cast<std::size_t>(
        id > 1 ? std::popcount(
                     static_cast<Mask>(mask >> (static_cast<int>(sizeof(Mask)) * 8 - id + 1)))
               : 0);
}

/// MSM satellite id of a record, 0 where it is not of the system.
int msmId(const ObsRecord& record, const MsmSystem& system) {
    int prn = 0;
    return satsys(record.sat, &prn) == system.system ? prn - system.firstPrn + 1 : 0;
}

/// Calls f(record, satellite id) for the records of the system, in order.
template <class F> void forRecords(const RtcmState& s, const MsmSystem& system, F f) {
    for (int i = 0; i < s.obs.n; ++i) {
        const ObsRecord& record = s.obs.data[static_cast<std::size_t>(i)];
        if (const int id = msmId(record, system))
            f(record, id);
    }
}

/// Calls f(slot, signal id) for the signals of a record that the system's MSM has.
template <class F> void forSignals(const ObsRecord& record, std::size_t row, F f) {
    for (std::size_t k = 0; k < kObsSlots; ++k)
        if (const int id = record.code[k] <= kMaxCode ? kSignalIds[row][record.code[k]] : 0)
            f(k, id);
}

MsmIndex indexOf(const RtcmState& s, std::size_t row) {
    MsmIndex index;
    index.row = row;
    const MsmSystem& system = kMsmSystems[row];
    forRecords(s, system, [&](const ObsRecord& record, int id) {
        forSignals(record, row, [&](std::size_t, int signal) {
            index.satellites |= std::uint64_t{1} << (64 - id);
            index.signals |= std::uint32_t{1} << (32 - signal);
        });
    });
    index.satelliteCount = static_cast<std::size_t>(std::popcount(index.satellites));
    index.signalCount = static_cast<std::size_t>(std::popcount(index.signals));
    const std::span cells(index.cellNumber.data(), index.pairs());
    std::fill(cells.begin(), cells.end(), std::uint8_t{0});
    forRecords(s, system, [&](const ObsRecord& record, int id) {
        const std::size_t satellite = rankOf(index.satellites, id);
        forSignals(record, row, [&](std::size_t, int signal) {
            cells[index.at(satellite, rankOf(index.signals, signal))] = 1;
        });
    });
    // Row by row, and never beyond 64: a cell after the 64th keeps no number.
    for (std::uint8_t& cell : cells)
        if (cell != 0)
            cell = index.cellCount < kMsmCells ? static_cast<std::uint8_t>(++index.cellCount)
                                               : std::uint8_t{0};
    return index;
}

std::uint32_t milliseconds(double seconds) {
    return static_cast<std::uint32_t>(static_cast<std::int64_t>(roundHalfUp(seconds * 1000.0)));
}

std::uint32_t epochField(System system, GTime time) {
    if (system == kGlonass) {
        const WeekTime moscow = time2gpst(timeadd(gpst2utc(time), 10800.0));
        const auto day = static_cast<std::uint32_t>(static_cast<int>(moscow.sow / kSecondsPerDay));
        const double tod = std::fmod(moscow.sow, kSecondsPerDay);
        return day << 27 | milliseconds(tod);
    }
    const WeekTime t = system == kBds ? time2bdt(timeadd(time, -kBdtOffset)) : time2gpst(time);
    return milliseconds(t.sow);
}

/// A time for a trace line.
struct TimeText {
    std::array<char, 32> text{};
    explicit TimeText(GTime time) {
        const CalendarTime c = time2epoch(time);
        std::snprintf(text.data(), text.size(), "%04.0f/%02.0f/%02.0f %02.0f:%02.0f:%06.3f", c[0],
                      c[1], c[2], c[3], c[4], c[5]);
    }
};

/// Rough range of a satellite: the first pseudorange of its record, in steps of 2^-10 ms.
struct RoughRange {
    double steps = 0.0; // 0 = none
    double metres() const { return steps * kRangeMs * pow2(-10); }
    bool valid() const { return steps > 0.0 && metres() <= kMaxRoughRangeM; }
};

RoughRange roughRangeOf(const ObsRecord& record, std::size_t row) {
    RoughRange rough;
    forSignals(record, row, [&](std::size_t k, int) {
        if (rough.steps == 0.0 && record.P[k] != 0.0)
            rough.steps = roundHalfUp(record.P[k] / kRangeMs / pow2(-10));
    });
    return rough;
}

MsmSatellite satelliteFields(const RoughRange& rough, GTime time) {
    MsmSatellite fields;
    if (rough.valid()) {
        const auto steps = static_cast<std::uint32_t>(rough.steps);
        fields.rangeMs = static_cast<int>(steps >> 10);
        fields.rangeFraction = static_cast<int>(steps & 0x3FF);
    } else if (rough.steps != 0.0 && traceHook) {
        trace(2, "msm rough range overflow %s rrng=%.3f\n", TimeText(time).text.data(),
              rough.metres());
    }
    return fields;
}

/// Phase range minus rough range, taken back by whole cycles to what the field can hold.
double finePhase(RtcmState& s, const ObsRecord& record, std::size_t k, double wavelengthM,
                 double roughM, bool& lost) {
    if (record.L[k] == 0.0 || wavelengthM <= 0.0)
        return 0.0;
    s.touch(record.sat);
    SignalTrack& track = s.tracks[static_cast<std::size_t>(record.sat - 1)][k];
    const double phaseM = record.L[k] * wavelengthM - roughM;
    lost = (record.LLI[k] & 1) != 0 || std::fabs(phaseM - track.cp) >= kMaxFinePhaseM;
    if (lost)
        track.cp = roundHalfUp(phaseM / wavelengthM) * wavelengthM;
    return phaseM - track.cp;
}

int lockIndicator(double seconds) {
    double bound = 0.032;
    for (int indicator = 0; indicator < 15; ++indicator, bound *= 2.0)
        if (seconds < bound)
            return indicator;
    return 15;
}

/// Lock time of a signal, s; starts anew where lock was lost.
double lockTime(RtcmState& s, const ObsRecord& record, std::size_t k, bool lost) {
    s.touch(record.sat);
    GTime& start = s.tracks[static_cast<std::size_t>(record.sat - 1)][k].lltime;
    if (start.unknown() || lost)
        start = record.time;
    return timediff(record.time, start);
}

/// The value of a fine field in ms, or none where it is 0 or out of its limit.
double fineField(double metres, double limitM, GTime time, const char* field, const char* value) {
    if (std::fabs(metres) > limitM) {
        if (traceHook)
            trace(2, "msm fine %s overflow %s %s=%.3f\n", field, TimeText(time).text.data(), value,
                  metres);
        return kNone;
    }
    return metres == 0.0 ? kNone : metres / kRangeMs;
}

MsmCell cellFields(RtcmState& s, const ObsRecord& record, std::size_t k, const MsmIndex& index,
                   double roughM) {
    const System system = kMsmSystems[index.row].system;
    const int fcn = fcn_glo(record.sat, s);
    const double hz = code2freq(system, record.code[k], fcn < 0 ? kUnknownChannel : fcn - 7);
    const double wavelengthM = hz > 0.0 ? kSpeedOfLight / hz : 0.0;
    const double rangeM = record.P[k] == 0.0 ? 0.0 : record.P[k] - roughM;
    bool lost = false;
    const double phaseM = finePhase(s, record, k, wavelengthM, roughM, lost);
    MsmCell cell;
    cell.rangeMs = fineField(rangeM, kMaxFineRangeM, s.time, "pseudorange", "psrng");
    cell.phaseMs = fineField(phaseM, kMaxFinePhaseM, s.time, "phase-range", "phrng");
    cell.lock = lockIndicator(lockTime(s, record, k, lost));
    cell.halfCycle = (record.LLI[k] & 2) != 0;
    cell.cnrDb = record.SNR[k] * 0.001;
    return cell;
}

/// Head, counts and masks.
void fillHead(MsmMessage& m, const RtcmState& s, const MsmIndex& index, int type, int sync) {
    m.head = {.type = type,
              .staid = s.staid,
              .epoch = epochField(kMsmSystems[index.row].system, s.time),
              .more = sync ? 1 : 0,
              .iods = s.seqno,
              .satellites = index.satellites,
              .signals = index.signals};
    m.satelliteCount = index.satelliteCount;
    m.signalCount = index.signalCount;
    m.cellCount = index.cellCount; // also those whose bit has no place in the mask
    for (std::size_t i = 0; i < m.maskBits(); ++i)
        m.cellMask = m.cellMask << 1 | (index.cellNumber[i] != 0 ? 1U : 0U);
}

/// MSM4 of one system from the records of the state.
int encode_msm4(RtcmState& s, std::size_t row, int type, int sync) {
    const MsmIndex index = indexOf(s, row);
    MsmMessage m;
    fillHead(m, s, index, type, sync);
    std::array<RoughRange, kMsmSatellites> rough;
    forRecords(s, kMsmSystems[row], [&](const ObsRecord& record, int id) {
        const std::size_t satellite = rankOf(index.satellites, id);
        if (satellite < index.satelliteCount && rough[satellite].steps == 0.0)
            rough[satellite] = roughRangeOf(record, row);
    });
    for (std::size_t i = 0; i < index.satelliteCount; ++i)
        m.satellites[i] = satelliteFields(rough[i], s.time);
    forRecords(s, kMsmSystems[row], [&](const ObsRecord& record, int id) {
        const std::size_t satellite = rankOf(index.satellites, id);
        forSignals(record, row, [&](std::size_t k, int signal) {
            const std::size_t number =
                index.cellNumber[index.at(satellite, rankOf(index.signals, signal))];
            if (number > 0 && number < kMsmCells) // the 64th stays without values
                m.cells[number - 1] = cellFields(s, record, k, index, rough[satellite].metres());
        });
    });
    BitWriter out(s.buff, kMessageBit);
    layoutMsm(out, m);
    s.nbit = static_cast<int>(out.at());
    return 1;
}

template <class Layout, class Record>
int encodeStation(RtcmState& s, const Layout& layout, const Record& record) {
    BitWriter out(s.buff, kMessageBit);
    layout(out, record);
    s.nbit = static_cast<int>(out.at());
    return 1;
}

int encode_type1005(RtcmState& s) {
    return encodeStation(s, layout1005,
                         WirePosition{.staid = s.staid,
                                      .itrf = s.sta.itrf,
                                      .gps = 1,
                                      .glonass = 1,
                                      .pos = s.sta.pos,
                                      .oscillator = 1});
}
int encode_type1033(RtcmState& s) {
    return encodeStation(s, layout1033, WireStation{s.staid, s.sta});
}

} // namespace

int encode_rtcm3(RtcmState& s, int type, int /*subtype*/, int sync) {
    int result = 0;
    if (type == 1005)
        result = encode_type1005(s);
    else if (type == 1033)
        result = encode_type1033(s);
    else if (type >= 1074 && type <= 1134 && type % 10 == 4)
        result = encode_msm4(s, static_cast<std::size_t>((type - 1070) / 10), type, sync);
    if (result) {
        const auto index = static_cast<std::size_t>(type - 1000);
        ++s.nmsg3[index];
        s.countedPages |= 1U << index / 16;
    }
    return result;
}
