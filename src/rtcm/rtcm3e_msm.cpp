#include "base/Print.h"
#include "gnss/ComCoord.h"
#include "rtcm/Messages.h"
#include "rtcm/rtcm3e.h"

#include <algorithm>
#include <array>
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

/// A record of the message's system and the signal ids of its slots, 0 = not in the message.
struct Source {
    const ObsRecord* record;
    std::size_t satellite; // id - 1
    std::array<std::uint8_t, kObsSlots> signals;
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

struct Satellite {
    std::uint32_t signals = 0; // bit 31 = id 1
    std::size_t firstCell = 0; // cells of the satellites before it
    Rough rough;

    /// Place of a signal's cell in the message.
    std::size_t cell(int signal) const {
        std::size_t place = firstCell;
        std::uint32_t before = signals & ~(~std::uint32_t{0} >> (signal - 1));
        for (; before != 0; before &= before - 1)
            ++place;
        return place;
    }
};

/// What goes into a message: collected in one pass over the records.
struct MsmContents {
    explicit MsmContents(int type) : system(msmSystem(type)), form(msmForm(type)) {}

    const MsmSystem& system;
    const MsmForm& form;
    std::uint64_t satelliteMask = 0;
    std::uint32_t signalMask = 0;
    std::array<Satellite, kMsmSatellites> satellites; // by id - 1
    std::array<Source, kMaxObs> sources;
    std::size_t sourceCount = 0;
};

void collect(MsmContents& c, const RtcmState& s, std::size_t row) {
    for (int i = 0; i < s.obs.n; ++i) {
        const ObsRecord& record = s.obs.data[static_cast<std::size_t>(i)];
        int prn = 0;
        if (satsys(record.sat, &prn) != c.system.system)
            continue;
        Source& source = c.sources[c.sourceCount++];
        source.record = &record;
        source.satellite = static_cast<std::size_t>(prn - c.system.firstPrn);
        Satellite& satellite = c.satellites[source.satellite];
        for (std::size_t k = 0; k < kObsSlots; ++k) {
            const std::uint8_t id =
                record.code[k] <= kMaxCode ? kSignalIds[row][record.code[k]] : 0;
            source.signals[k] = id;
            if (id != 0)
                satellite.signals |= std::uint32_t{1} << (32 - id);
        }
        c.signalMask |= satellite.signals;
        if (satellite.signals != 0)
            c.satelliteMask |= std::uint64_t{1} << (63 - source.satellite);
    }
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

Rough roughOf(const RtcmState& s, const Source& source, System system, const MsmForm& form) {
    const ObsRecord& record = *source.record;
    Rough rough;
    if (form.rates)
        rough.extended = extendedInfo(s, system, record.sat);
    for (std::size_t k = 0; k < kObsSlots; ++k) {
        if (source.signals[k] == 0)
            continue;
        if (rough.steps == 0.0 && record.P[k] != 0.0)
            rough.steps = roundHalfUp(record.P[k] / kRangeMs / pow2(-10));
        if (form.rates && isNone(rough.rateMps))
            rough.rateMps = roundHalfUp(rateOf(record, k, wavelengthM(s, system, record, k)));
    }
    return rough;
}

MsmSatellite satelliteFields(const Rough& rough, GTime time) {
    MsmSatellite fields = kNoMsmSatellite;
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
    double& base = s.phaseBase.of(record.sat, k);
    const double phaseM = record.L[k] * wavelength - roughM;
    lost = (record.LLI[k] & 1) != 0 || std::fabs(phaseM - base) >= kMaxFinePhaseM;
    if (lost)
        base = roundHalfUp(phaseM / wavelength) * wavelength;
    return phaseM - base;
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
    MsmCell cell = kNoMsmCell;
    cell.rangeMs = fineField(rangeM, kMaxFineRangeM, s.time, "pseudorange", "psrng");
    cell.phaseMs = fineField(phaseM, kMaxFinePhaseM, s.time, "phase-range", "phrng");
    cell.lock = lockIndicator(form, lockTime(s, record, k, lost));
    cell.halfCycle = (record.LLI[k] & 2) != 0;
    cell.cnrDb = record.SNR[k] * 0.001;
    if (form.rates)
        cell.rateMps = fineRate(rateOf(record, k, wavelength), rough.rateMps);
    return cell;
}

/// Counts, masks and satellites of a message, in order of the satellites; where their cells begin.
void fillSatellites(MsmMessage& m, MsmContents& c, GTime time) {
    m.head.satellites = c.satelliteMask;
    m.head.signals = c.signalMask;
    m.countHead();
    std::array<int, kMsmSatellites> ids;
    std::array<int, kMsmSignals> signals;
    listBits(c.satelliteMask, ids);
    listBits(c.signalMask, signals);
    std::size_t cells = 0;
    std::size_t pairs = 0;
    for (std::size_t i = 0; i < m.satelliteCount; ++i) {
        Satellite& satellite = c.satellites[static_cast<std::size_t>(ids[i] - 1)];
        m.satellites[i] = satelliteFields(satellite.rough, time);
        satellite.firstCell = cells;
        for (std::size_t j = 0; j < m.signalCount; ++j) {
            const std::uint32_t has = satellite.signals >> (32 - signals[j]) & 1U;
            cells += has;
            if (pairs++ < kMsmCells)
                m.cellMask = m.cellMask << 1 | has;
        }
    }
    m.makeCells(std::min(cells, kMsmCells)); // also those whose bit has no place in the mask
}

} // namespace

int encodeMsm(RtcmState& s, int type, int sync) {
    if (!isMsm4To7(type))
        return 0;
    const auto row = static_cast<std::size_t>((type - 1070) / 10);
    const System system = msmSystem(type).system;
    MsmContents c(type);
    collect(c, s, row);
    const std::span sources(c.sources.data(), c.sourceCount);
    for (const Source& source : sources)
        if (Satellite& satellite = c.satellites[source.satellite];
            satellite.signals != 0 && satellite.rough.steps == 0.0)
            satellite.rough = roughOf(s, source, system, c.form);
    MsmMessage m;
    m.head = {.type = type,
              .staid = s.staid,
              .epoch = epochField(system, s.time),
              .more = sync ? 1 : 0,
              .iods = s.seqno};
    fillSatellites(m, c, s.time);
    for (const Source& source : sources) {
        const Satellite& satellite = c.satellites[source.satellite];
        for (std::size_t k = 0; k < kObsSlots; ++k) {
            if (source.signals[k] == 0)
                continue;
            const std::size_t cell = satellite.cell(source.signals[k]);
            if (cell < kMsmCells - 1) // the 64th stays without values
                m.cells[cell] = cellFields(s, *source.record, k, system, c.form, satellite.rough);
        }
    }
    return writeMessage(s, layoutMsm, m);
}
