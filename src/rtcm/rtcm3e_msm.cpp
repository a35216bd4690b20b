#include "rtcm/Msm.h"
#include "rtcm/encode.h"

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
constexpr double kMaxRoughRateMps = 8191.0; // DF399
constexpr double kMaxFineRateMps = 1.6383;  // DF404

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

/// A time for a trace line.
struct TimeText {
    std::array<char, 32> text{};
    explicit TimeText(GTime time) {
        const CalendarTime c = time2epoch(time);
        std::snprintf(text.data(), text.size(), "%04.0f/%02.0f/%02.0f %02.0f:%02.0f:%06.3f", c[0],
                      c[1], c[2], c[3], c[4], c[5]);
    }
};

/// What a satellite sends once for all its signals: the first pseudorange of its record in steps of
/// 2^-10 ms, the first range rate in whole m/s, the extended information.
struct Rough {
    double steps = 0.0; // 0 = none
    double rateMps = kNone;
    int extended = 0;
    double metres() const { return steps * kRangeMs * pow2(-10); }
    bool valid() const { return steps > 0.0 && metres() <= kMaxRoughRangeM; }
};

/// Range rate of a signal, m/s; a Doppler of 0 is none.
double rateOf(const ObsRecord& record, std::size_t k, double wavelength) {
    const auto dopplerHz = static_cast<double>(record.D[k]);
    return dopplerHz == 0.0 || wavelength <= 0.0 ? kNone : -dopplerHz * wavelength;
}

/// DF419: GLONASS channel + 7, 15 where it is unknown; nothing for other systems.
int extendedInfo(const RtcmState& s, System system, int sat) {
    if (system != kGlonass)
        return 0;
    const int fcn = fcn_glo(sat, s);
    return fcn < 0 ? 15 : fcn;
}

Rough roughOf(const RtcmState& s, const ObsRecord& record, std::size_t row, const MsmForm& form) {
    const System system = kMsmSystems[row].system;
    Rough rough;
    if (form.rates)
        rough.extended = extendedInfo(s, system, record.sat);
    forSignals(record, row, [&](std::size_t k, int) {
        if (rough.steps == 0.0 && record.P[k] != 0.0)
            rough.steps = roundHalfUp(record.P[k] / kRangeMs / pow2(-10));
        if (form.rates && isNone(rough.rateMps))
            rough.rateMps = roundHalfUp(rateOf(record, k, wavelengthM(s, system, record, k)));
    });
    return rough;
}

MsmSatellite satelliteFields(const Rough& rough, GTime time) {
    MsmSatellite fields;
    if (rough.valid())
        fields.setRange(static_cast<std::uint32_t>(rough.steps));
    else if (rough.steps != 0.0 && traceHook)
        trace(2, "msm rough range overflow %s rrng=%.3f\n", TimeText(time).text.data(),
              rough.metres());
    if (std::fabs(rough.rateMps) <= kMaxRoughRateMps)
        fields.rateMps = rough.rateMps;
    fields.extended = rough.extended;
    return fields;
}

/// Phase range minus rough range, taken back by whole cycles to what the field can hold.
double finePhase(RtcmState& s, const ObsRecord& record, std::size_t k, double wavelength,
                 double roughM, bool& lost) {
    if (record.L[k] == 0.0 || wavelength <= 0.0)
        return 0.0;
    s.touch(record.sat);
    SignalTrack& track = s.tracks[static_cast<std::size_t>(record.sat - 1)][k];
    const double phaseM = record.L[k] * wavelength - roughM;
    lost = (record.LLI[k] & 1) != 0 || std::fabs(phaseM - track.cp) >= kMaxFinePhaseM;
    if (lost)
        track.cp = roundHalfUp(phaseM / wavelength) * wavelength;
    return phaseM - track.cp;
}

/// The value of a fine field in ms, or none where it is 0 (deliberate) or out of its limit.
double fineField(double metres, double limitM, GTime time, const char* field, const char* value) {
    if (std::fabs(metres) > limitM) {
        if (traceHook)
            trace(2, "msm fine %s overflow %s %s=%.3f\n", field, TimeText(time).text.data(), value,
                  metres);
        return kNone;
    }
    return metres == 0.0 ? kNone : metres / kRangeMs;
}

/// The fine rate of a signal, m/s. Here 0 is a value.
double fineRate(double rateMps, double roughMps) {
    const double fine = rateMps - roughMps;
    return std::fabs(fine) <= kMaxFineRateMps ? fine : kNone;
}

MsmCell cellFields(RtcmState& s, const ObsRecord& record, std::size_t k, System system,
                   const MsmForm& form, const Rough& rough) {
    const double wavelength = wavelengthM(s, system, record, k);
    const double rangeM = record.P[k] == 0.0 ? 0.0 : record.P[k] - rough.metres();
    bool lost = false;
    const double phaseM = finePhase(s, record, k, wavelength, rough.metres(), lost);
    MsmCell cell;
    cell.rangeMs = fineField(rangeM, kMaxFineRangeM, s.time, "pseudorange", "psrng");
    cell.phaseMs = fineField(phaseM, kMaxFinePhaseM, s.time, "phase-range", "phrng");
    cell.lock = lockIndicator(form, lockTime(s, record, k, lost));
    cell.halfCycle = (record.LLI[k] & 2) != 0;
    cell.cnrDb = record.SNR[k] * 0.001;
    if (form.rates)
        cell.rateMps = fineRate(rateOf(record, k, wavelength), rough.rateMps);
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

using Roughs = std::array<Rough, kMsmSatellites>; // by rank of the satellite

Roughs roughsOf(const RtcmState& s, const MsmIndex& index, const MsmForm& form) {
    Roughs roughs;
    forRecords(s, kMsmSystems[index.row], [&](const ObsRecord& record, int id) {
        if (!(index.satellites >> (64 - id) & 1U))
            return; // none of its signals has a place
        Rough& rough = roughs[rankOf(index.satellites, id)];
        if (rough.steps == 0.0)
            rough = roughOf(s, record, index.row, form);
    });
    return roughs;
}

} // namespace

int encodeMsm(RtcmState& s, int type, int sync) {
    const auto row = static_cast<std::size_t>((type - 1070) / 10);
    const MsmSystem& system = kMsmSystems[row];
    const MsmForm& form = msmForm(type);
    const MsmIndex index = indexOf(s, row);
    MsmMessage m;
    fillHead(m, s, index, type, sync);
    const Roughs roughs = roughsOf(s, index, form);
    for (std::size_t i = 0; i < index.satelliteCount; ++i)
        m.satellites[i] = satelliteFields(roughs[i], s.time);
    forRecords(s, system, [&](const ObsRecord& record, int id) {
        const std::size_t satellite = rankOf(index.satellites, id);
        forSignals(record, row, [&](std::size_t k, int signal) {
            const std::size_t number =
                index.cellNumber[index.at(satellite, rankOf(index.signals, signal))];
            if (number > 0 && number < kMsmCells) // the 64th stays without values
                m.cells[number - 1] =
                    cellFields(s, record, k, system.system, form, roughs[satellite]);
        });
    });
    return writeMessage(s, layoutMsm, m);
}
