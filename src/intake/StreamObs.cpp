#include "intake/StreamObs.h"

#include "common/Clock.h"
#include "common/ComText.h"
#include "common/ComTime.h"
#include "common/DeployConfig.h"
#include "common/Print.h"
#include "common/Taiutc.h"
#include "intake/Contradictions.h"
#include "orbit/Rnxeph.h"

#include <algorithm>
#include <cmath>
#include <utility>

ReplyCallback onrtcm = nullptr;

namespace {

RtcmState Decoder;
bool decoderReady = false;
Contradictions contradictions;
LeapSeconds leapSeconds;

void storeEpoch(std::size_t station) {
    print(Level::debug, "***INFO(StreamObs): Got observation data\n");
    StationEpoch& epoch = DLY.stationEpochs[station];
    const WeekTime t = time2gpst(Decoder.time);
    const MjdTime day = wksow2mjd(t.week, t.sow);
    epoch.mjd = DLY.currentMjd = day.mjd;
    epoch.sod = DLY.currentSod = day.sod;
    epoch.glonassChannels = Decoder.nav.glo_fcn;
    StreamObs_m_setObsData(Decoder.obs, station);
}

/// Channels that the stream has stated so far, against those of the object file.
void compareChannels(Contradictions::Instant now) {
    for (int slot = 1; slot <= kGlonassSlots; ++slot) {
        const int index = DLY.satelliteIndex[static_cast<std::size_t>(satno(kGlonass, slot))];
        if (index >= 0)
            contradictions.channel(
                slot, Decoder.nav.glo_fcn[static_cast<std::size_t>(slot - 1)] - 8,
                DLY.satellites[static_cast<std::size_t>(index)].glonassChannel, now);
    }
}

/// Tells what in the message contradicts what is known otherwise.
void compare(int status, std::size_t station, Contradictions::Instant now) {
    const auto type = static_cast<int>(getbitu(Decoder.buff, kMessageBit, 12));
    if (status == kStation && (type == 1005 || type == 1006)) {
        const StationRecord& configured = DLY.stations[station];
        contradictions.position(type, Decoder.sta.pos, configured.name, configured.xyz, now);
    }
    if (status == kEphemeris && type != 1020 &&
        DLY.satelliteIndex[static_cast<std::size_t>(Decoder.ephsat)] >= 0)
        contradictions.ephemeris(
            satno2id(Decoder.ephsat),
            Decoder.nav.eph[static_cast<std::size_t>(Decoder.ephsat - 1)].stated,
            utc2gpst(utcNow()), now);
    if (status == kEpoch || type == 1020)
        compareChannels(now);
}

/// What the message brought goes to its place, then to the callback; then the decoder starts
/// afresh, so that nothing survives from message to message but an unfinished epoch.
void take(int status, std::size_t station, int framelen, Contradictions::Instant now) {
    if (status == kStation) {
        print("***WARN(StreamObs): Not support antenna!\n");
    } else if (status == kEpoch) {
        storeEpoch(station);
    } else if (status == kEphemeris) {
        print("***INFO(StreamObs): Got ephemeris data, %d-%s!\n", Decoder.ephsat,
              satno2id(Decoder.ephsat).c_str());
        StreamObs_m_setEphData(Decoder.nav, Decoder.ephsat);
    }
    compare(status, station, now);
    if (onrtcm)
        onrtcm(static_cast<std::uint32_t>(status), Decoder.buff.data(), framelen);
    init_rtcm(Decoder);
}

void tellRefused() {
    if (const RefusedMessage m = std::exchange(Decoder.refused, {}); m.type != 0)
        print(Lasting{Cause::messageRefused, static_cast<std::size_t>(m.type)},
              "***WARN(StreamObs): message %d refused, epoch time %u!\n", m.type, m.epoch);
}

MjdTime mjdOf(GTime t) {
    const WeekTime w = time2gpst(t);
    return wksow2mjd(w.week, w.sow);
}

GLSEPH glonassRecord(const GloEphRecord& from, const std::string& name) {
    GLSEPH r;
    r.cprn = name;
    for (std::size_t i = 0; i < 3; ++i) {
        r.posKm[i] = from.pos[i] / 1000.0;
        r.velKmps[i] = from.vel[i] / 1000.0;
        r.accKmps2[i] = from.acc[i] / 1000.0;
    }
    const MjdTime toe = mjdOf(from.toe);
    r.mjd = toe.mjd;
    r.sod = toe.sod;
    r.channel = from.frq;
    r.gamma = from.gamn;
    r.clockBias = -from.taun;
    r.health = from.svh;
    r.ageDays = from.age;
    r.frameTime = time2gpst(gpst2utc(from.tof)).sow;
    r.aode = genAode('R', toe.mjd, from.iode, toe.sod, toe.sod, leapSeconds);
    return r;
}

GPSEPH keplerRecord(const EphRecord& from, const std::string& name) {
    GPSEPH r;
    r.cprn = name;
    const MjdTime toc = mjdOf(from.toc);
    const WeekTime toe = time2gpst(from.toe);
    r.tocMjd = toc.mjd;
    r.tocSod = toc.sod;
    r.af0 = from.f0;
    r.af1 = from.f1;
    r.af2 = from.f2;
    r.crs = from.crs;
    r.deln = from.deln;
    r.M0 = from.M0;
    r.cuc = from.cuc;
    r.e = from.e;
    r.cus = from.cus;
    r.sqrtA = std::sqrt(from.A);
    r.toe = toe.sow;
    r.cic = from.cic;
    r.OMEGA0 = from.OMG0;
    r.cis = from.cis;
    r.i0 = from.i0;
    r.crc = from.crc;
    r.omega = from.omg;
    r.OMEGADOT = from.OMGd;
    r.idot = from.idot;
    r.codesOnL2 = from.code;
    r.week = toe.week;
    r.l2pFlag = from.flag;
    r.accuracy = from.sva;
    r.health = from.svh;
    r.tgd1 = from.tgd[0];
    r.tgd2 = from.tgd[1];
    r.iodc = from.iodc;
    r.aode = genAode(name[0], toc.mjd, from.iode, toc.sod, toe.sow, leapSeconds);
    return r;
}

/// Replaces the record that carries the name, or says that the store has none.
template <class Record>
void replace(std::span<Record> records, int slot, int sat, const Record& record) {
    if (slot < 0) {
        print(Lasting{Cause::ephemerisNotStored, static_cast<std::size_t>(sat)},
              "***WARN(StreamObs): %s is not used in session.obj!\n", record.cprn.c_str());
        return;
    }
    print("***INFO(StreamObs): %s eph is got!\n", record.cprn.c_str());
    records[static_cast<std::size_t>(slot)] = record;
}

} // namespace

void RtcmObsDecoder_Initial(RtcmState& state) {
    init_rtcm(state);
    state.nav.glo_fcn = {};
}

int StreamReader(std::size_t station, const std::uint8_t* buffer, int length) {
    if (!decoderReady) {
        print("***INFO(StreamObs): RtcmObsDecoder_Initial\n");
        RtcmObsDecoder_Initial(Decoder);
        Decoder.nav.configuredChannels = DLY.glonassChannels();
        decoderReady = true;
    }
    if (length <= 0)
        return 0;
    Taiutc_m_lookDaily(leapSeconds, utcNow(),
                       contains(DLY.systems, "R") ? LeapEnd::matters : LeapEnd::doesNot);
    const Contradictions::Instant now = monotonicNow();
    int framelen = 0;
    for (std::span left(buffer, static_cast<std::size_t>(length)); !left.empty();) {
        const Taken taken = input_rtcm3_block(Decoder, left, framelen);
        if (Decoder.statedId >= 0)
            contradictions.stationId(Decoder.statedId, now);
        tellRefused();
        if (taken.status > 0)
            take(taken.status, station, framelen, now);
        left = left.subspan(taken.bytes);
    }
    return 0;
}

void StreamObs_m_initial() {
    decoderReady = false;
    contradictions = {};
    leapSeconds = {};
    leapSeconds.path = DLY.tables.leapsc;
}

void StreamObs_m_restart() {
    init_rtcm(Decoder);
    contradictions.newConnection();
}

int StreamObs_m_setObsData(const ObsSet& obs, std::size_t station) {
    EpochObs& out = DLY.stationEpochs[station].obs;
    for (int n = 0; n < obs.n; ++n) {
        const ObsRecord& record = obs.data[static_cast<std::size_t>(n)];
        const int satellite = DLY.satelliteIndex[record.sat];
        const int system = kSystemOf[record.sat];
        if (satellite < 0 || system < 0)
            continue;
        const auto& slots = DLY.slotOf[static_cast<std::size_t>(system)];
        for (std::size_t i = 0; i < kObsSlots; ++i) {
            const std::uint8_t code = record.code[i];
            if (slots[code] < 0)
                continue;
            // Where two signals share a carrier, the later slot overwrites the earlier.
            SatelliteObs& row = out.row(static_cast<std::size_t>(satellite));
            const auto k = static_cast<std::size_t>(slots[code]);
            row.phase[k] = record.L[i];
            row.range[k] = record.P[i];
            row.cn0[k] = record.SNR[i] / 1000.0;
            row.doppler[k] = -static_cast<double>(record.D[i]);
            row.phaseType[k] = row.rangeType[k] = code;
        }
    }
    return 1;
}

char StreamObs_m_setEphData(NavData& nav, int sat) {
    const std::string name = satno2id(sat);
    if (name.empty() || index_string(kSystems, name[0]) < 0 ||
        pointer_string(DLY.satelliteNames, name) < 0)
        return ' ';
    if (name[0] == 'R') {
        int slot = 0;
        satsys(sat, &slot);
        const GLSEPH record = glonassRecord(nav.geph[static_cast<std::size_t>(slot - 1)], name);
        const std::span records(BRDEPH.glonass.data(),
                                static_cast<std::size_t>(BRDEPH.glonassCount));
        replace(records, map_glseph_find(records, name), sat, record);
        return name[0];
    }
    EphRecord& from = nav.eph[static_cast<std::size_t>(sat - 1)];
    if (name[0] == 'C') { // the store holds BDT readings
        from.toe = timeadd(from.toe, -kBdtOffset);
        from.toc = timeadd(from.toc, -kBdtOffset);
    }
    const GPSEPH record = keplerRecord(from, name);
    const std::span records(BRDEPH.kepler.data(), static_cast<std::size_t>(BRDEPH.keplerCount));
    replace(records, map_gpseph_find(records, name), sat, record);
    return name[0];
}
