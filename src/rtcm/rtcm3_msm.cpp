#include "base/Print.h"
#include "gnss/ComCoord.h"
#include "rtcm/Messages.h"
#include "rtcm/rtcm3.h"

#include <array>

namespace {

constexpr std::size_t kMainSlots = 4; // the slot after them takes one further signal

/// The message, and its masks as lists.
struct ReceivedMsm : MsmMessage {
    explicit ReceivedMsm(int type) : system(msmSystem(type)) {}
    explicit ReceivedMsm(const MsmMessage& m) : MsmMessage(m), system(msmSystem(m.head.type)) {
        listIds();
    }
    void listIds() {
        listBits(head.satellites, ids);
        listBits(head.signals, signalIds);
    }

    const MsmSystem& system;
    std::array<int, kMsmSatellites> ids; // 1..64
    std::array<int, kMsmSignals> signalIds;
};

/// A signal of the message: where its cells go.
struct Signal {
    int code;
    int slot; // of the record; -1 = dropped
    double hz;
};
using Signals = std::array<Signal, kMsmSignals>;

/// The masks and the body; false where they do not fit each other or the frame.
bool readBody(const RtcmState& s, BitReader& in, ReceivedMsm& m, int type) {
    m.countHead();
    m.listIds();
    const auto satellites = static_cast<int>(m.satelliteCount);
    const auto signals = static_cast<int>(m.signalCount);
    if (m.pairs() > kMsmCells) {
        trace(2, "rtcm3 %d number of sats and sigs error: nsat=%d nsig=%d\n", type, satellites,
              signals);
        return false;
    }
    if (in.left() < m.pairs()) {
        trace(2, "rtcm3 %d length error: len=%d nsat=%d nsig=%d\n", type, s.len, satellites,
              signals);
        return false;
    }
    layoutMsmBody(in, m);
    if (!in.ok())
        trace(2, "rtcm3 %d length error: nsat=%d ncell=%d len=%d\n", type, satellites,
              static_cast<int>(m.cellCount), s.len);
    return in.ok();
}

/// Gives every signal its slot: the best priority of a main slot holds it, the first of the
/// others goes to the extended slot, the rest are dropped.
void sigindex(const ReceivedMsm& m, std::string_view options, Signals& signals) {
    std::array<int, kMainSlots> best{};
    std::array<std::size_t, kMainSlots> holder{};
    std::array<bool, kMsmSignals> extended{};
    for (std::size_t i = 0; i < m.signalCount; ++i) {
        Signal& signal = signals[i];
        if (signal.code == 0)
            continue;
        const int slot = code2idx(m.system.system, signal.code);
        if (slot < 0 || static_cast<std::size_t>(slot) >= kMainSlots) {
            extended[i] = true;
            continue;
        }
        const auto k = static_cast<std::size_t>(slot);
        const int priority = getcodepri(m.system.system, signal.code, options);
        if (priority > best[k]) {
            if (best[k] > 0)
                extended[holder[k]] = true;
            best[k] = priority;
            holder[k] = i;
            signal.slot = slot;
        } else {
            extended[i] = true;
        }
    }
    bool taken = false;
    for (std::size_t i = 0; i < m.signalCount; ++i) {
        if (!extended[i])
            continue;
        signals[i].slot = taken ? -1 : static_cast<int>(kMainSlots);
        if (taken)
            trace(2, "rtcm msm: no space in obs data sys=%d code=%d\n",
                  static_cast<int>(m.system.system), signals[i].code);
        taken = true;
    }
}

/// Writes the signal list, such as "1C,2W", into the system's entry.
void nameSignals(RtcmState& s, const ReceivedMsm& m) {
    if (m.system.msmtype < 0)
        return;
    auto& out = s.msmtype[static_cast<std::size_t>(m.system.msmtype)];
    std::size_t at = 0;
    for (std::size_t i = 0; i < m.signalCount; ++i) {
        const std::string_view code =
            code2obs(m.system.codes[static_cast<std::size_t>(m.signalIds[i])]);
        if (code.empty() || at + code.size() + 2 > out.size())
            continue;
        if (at > 0)
            out[at++] = ',';
        at += code.copy(out.data() + at, code.size());
    }
    out[at] = '\0';
}

Signals signalsOf(RtcmState& s, const ReceivedMsm& m, int type) {
    Signals signals;
    for (std::size_t i = 0; i < m.signalCount; ++i) {
        const auto id = static_cast<std::size_t>(m.signalIds[i]);
        signals[i] = {m.system.codes[id], -1, 0.0};
        if (signals[i].code == 0)
            trace(2, "rtcm3 %d: unknown signal id=%2d\n", type, m.signalIds[i]);
    }
    nameSignals(s, m);
    sigindex(m, s.opt, signals);
    if (m.system.system != kGlonass)
        for (std::size_t i = 0; i < m.signalCount; ++i)
            signals[i].hz = code2freq(m.system.system, signals[i].code, 0);
    return signals;
}

void storeCell(RtcmState& s, ObsRecord& record, const Signal& signal, double hz,
               const MsmSatellite& satellite, const MsmCell& cell) {
    const auto k = static_cast<std::size_t>(signal.slot);
    const bool rough = satellite.hasRange();
    const double roughMs = satellite.roughMs();
    if (rough && !isNone(cell.rangeMs))
        record.P[k] = (roughMs + cell.rangeMs) * kRangeMs;
    if (hz > 0.0 && rough && !isNone(cell.phaseMs))
        record.L[k] = (roughMs + cell.phaseMs) * kRangeMs * hz / kSpeedOfLight;
    if (hz > 0.0 && !isNone(satellite.rateMps) && !isNone(cell.rateMps))
        record.D[k] = static_cast<float>(-(satellite.rateMps + cell.rateMps) * hz / kSpeedOfLight);
    record.LLI[k] = static_cast<std::uint8_t>(lossoflock(s, record.sat, k, cell.lock) +
                                              (cell.halfCycle ? 2 : 0));
    record.SNR[k] = snratio(cell.cnrDb);
    record.code[k] = static_cast<std::uint8_t>(signal.code);
}

/// Puts the cells of a whole message into the records of its epoch.
void save_msm_obs(RtcmState& s, const ReceivedMsm& m, const EpochMessage& e) {
    const Signals signals = signalsOf(s, m, e.type);
    const MsmCell* cell = m.cells.data();
    std::uint64_t mask = m.pairs() == 0 ? 0 : m.cellMask << (kMsmCells - m.pairs());
    for (std::size_t i = 0; i < m.satelliteCount; ++i) {
        const int prn = m.ids[i] + m.system.firstPrn - 1;
        const int sat = satno(m.system.system, prn);
        ObsRecord* record = nullptr;
        if (sat == 0)
            trace(2, "rtcm3 %d satellite error: prn=%d\n", e.type, prn);
        else
            record = epochRecord(s, e, sat);
        int channel = kUnknownChannel;
        if (m.system.system == kGlonass && sat != 0)
            if (const int fcn = fcn_glo(sat, s); fcn >= 0)
                channel = fcn - 7;
        for (std::size_t j = 0; j < m.signalCount; ++j, mask <<= 1) {
            if (mask >> (kMsmCells - 1) == 0)
                continue;
            const MsmCell& values = *cell++;
            if (!record || signals[j].slot < 0)
                continue;
            const double hz = m.system.system == kGlonass
                                  ? code2freq(kGlonass, signals[j].code, channel)
                                  : signals[j].hz;
            storeCell(s, *record, signals[j], hz, m.satellites[i], values);
        }
    }
}

} // namespace

void storeMsm(RtcmState& s, const MsmMessage& message, const EpochMessage& e) {
    save_msm_obs(s, ReceivedMsm(message), e);
}

/// Every MSM; MSM1 to MSM3 carry no full observations and are passed over.
int decodeMsm(RtcmState& s, int type) {
    if (!isMsm4To7(type))
        return kNothing;
    ReceivedMsm m(type);
    BitReader in = messageOf(s);
    layoutMsmHead(in, m.head);
    EpochMessage e = epochMessage(type, m.head);
    if (!admit(s, e) || !readBody(s, in, m, type))
        return refuse(s, e);
    join(s, e);
    save_msm_obs(s, m, e);
    return endOfMessage(s, e.more);
}
