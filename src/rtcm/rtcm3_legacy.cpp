#include "base/Print.h"
#include "gnss/ComCoord.h"
#include "rtcm/Messages.h"
#include "rtcm/rtcm3.h"

namespace {

/// Undoes a roll-over of the phase difference (cycles) against the signal's last one.
double adjcp(RtcmState& s, int sat, std::size_t slot, double cp) {
    double& last = s.phaseBase.of(sat, slot);
    if (last != 0.0) {
        if (cp < last - 750.0)
            cp += 1500.0;
        else if (cp > last + 750.0)
            cp -= 1500.0;
    }
    return last = cp;
}

/// One signal: range, phase difference to the L1 range, lock, CNR and code, into its slot.
struct LegacySignal {
    double rangeM; // kNone = none
    double phaseM; // phase range minus L1 range; kNone = none
    int lock;
    double cnrDb;
    std::string_view code;
};

void storeSignal(RtcmState& s, ObsRecord& record, unsigned system, std::size_t slot, int channel,
                 double l1RangeM, const LegacySignal& signal) {
    const std::uint8_t code = obs2code(signal.code);
    if (code == 0)
        return;
    if (!isNone(signal.rangeM))
        record.P[slot] = signal.rangeM;
    const double hz = code2freq(system, code, channel);
    if (hz > 0.0 && !isNone(signal.phaseM)) {
        const double wavelengthM = kSpeedOfLight / hz;
        const double cp = adjcp(s, record.sat, slot, signal.phaseM / wavelengthM);
        record.L[slot] = l1RangeM / wavelengthM + cp;
    }
    record.LLI[slot] = lossoflock(s, record.sat, slot, signal.lock);
    record.SNR[slot] = snratio(signal.cnrDb);
    record.code[slot] = code;
}

void storeSatellite(RtcmState& s, const LegacySatellite& w, const LegacyForm& f,
                    const EpochMessage& m) {
    unsigned system = f.glonass ? kGlonass : kGps;
    int prn = w.id;
    if (!f.glonass && prn > 39) {
        system = kSbas;
        prn += 80;
    }
    const int sat = satno(system, prn);
    if (sat == 0) {
        if (f.l2)
            trace(2, "rtcm3 %d satellite number error: sys=%u prn=%d\n", m.type, system, prn);
        else
            trace(2, "rtcm3 %d satellite number error: prn=%d\n", m.type, prn);
        return;
    }
    ObsRecord* const record = epochRecord(s, m, sat);
    if (!record)
        return;
    const int channel = w.channel - 7;
    if (f.glonass)
        learnChannel(s, prn, channel);
    const double rangeM = l1RangeM(w, f.glonass);
    const std::string_view l1 = kL1Signals[static_cast<std::size_t>(w.code1)];
    const std::string_view l2 = l2Signals(f.glonass)[static_cast<std::size_t>(w.code2)];
    storeSignal(s, *record, system, 0, channel, rangeM, {rangeM, w.phase1M, w.lock1, w.cnr1Db, l1});
    if (f.l2)
        storeSignal(s, *record, system, 1, channel, rangeM,
                    {rangeM + w.range2M, w.phase2M, w.lock2, w.cnr2Db, l2});
}

bool readBody(const RtcmState& s, BitReader& in, LegacyMessage& m) {
    layoutLegacyBody(in, m);
    if (!in.ok())
        trace(2, "rtcm3 %d length error: len=%d nsat=%d\n", m.head.type, s.len, m.head.satellites);
    return in.ok();
}

} // namespace

void storeLegacy(RtcmState& s, const LegacyMessage& message, const EpochMessage& e) {
    for (int i = 0; i < message.head.satellites; ++i)
        storeSatellite(s, message.satellites[static_cast<std::size_t>(i)],
                       legacyForm(message.head.type), e);
}

int decodeLegacy(RtcmState& s, int type) {
    BitReader in = messageOf(s);
    LegacyMessage message;
    const LegacyHead& head = message.head;
    layoutLegacyHead(in, message.head);
    EpochMessage m = epochMessage(type, head);
    // The length is judged once for all satellites, before any of them is stored.
    if (!admit(s, m) || !readBody(s, in, message))
        return refuse(s, m);
    join(s, m);
    storeLegacy(s, message, m);
    return endOfMessage(s, m.more);
}
