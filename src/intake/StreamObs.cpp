#include "intake/StreamObs.h"

#include "base/ComText.h"
#include "base/Print.h"
#include "gnss/Clock.h"
#include "gnss/ComTime.h"
#include "gnss/Leaps.h"
#include "rtcm/layouts/StationMessages.h"
#include "rtcm/rtcm3.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

void storeEpoch(StreamIntake& in, std::size_t station, GTime time) {
    print(Level::debug, "***INFO(StreamObs): Got observation data\n");
    StationEpoch& epoch = in.epoch.stationEpochs[station];
    const WeekTime t = time2gpst(time);
    const MjdTime day = wksow2mjd(t.week, t.sow);
    epoch.mjd = in.epoch.currentMjd = day.mjd;
    epoch.sod = in.epoch.currentSod = day.sod;
    epoch.glonassChannels = in.decoder.nav.glo_fcn;
    StreamObs_m_setObsData(in, in.decoder.obs, station);
}

/// Channels that the stream has stated so far, against those of the object file.
void compareChannels(StreamIntake& in, Contradictions::Instant now) {
    for (int slot = 1; slot <= kGlonassSlots; ++slot) {
        const int index =
            in.session.satelliteIndex[static_cast<std::size_t>(satno(kGlonass, slot))];
        if (index >= 0)
            in.contradictions.channel(
                slot, in.decoder.nav.glo_fcn[static_cast<std::size_t>(slot - 1)] - 8,
                in.session.satellites[static_cast<std::size_t>(index)].glonassChannel, now);
    }
}

/// Whether a place is beyond the guard's limit.
bool beyondGuard(const StreamIntake& in, const Vector3& stated, const StationRecord& configured) {
    return in.session.guard && !(distance(stated, configured.xyz) <= in.session.guard->mostM);
}

/// Tells when the sender begins and ends to state a place beyond the guard's limit.
void guardPlace(StreamIntake& in, const StatedPlace& place, const StationRecord& configured) {
    const bool displaced = beyondGuard(in, place.xyz, configured);
    if (std::exchange(in.displaced, displaced) == displaced)
        return;
    const double apartM = distance(place.xyz, configured.xyz);
    if (displaced)
        print(Level::warning, "***WARN(StreamObs): %d is %.1f m from %s, replies %s!\n", place.type,
              apartM, configured.name.c_str(),
              in.session.guard->warnOnly ? "go on" : "are held back");
    else
        print(Level::notice, "***INFO(StreamObs): %d is %.1f m from %s, which is in order again!\n",
              place.type, apartM, configured.name.c_str());
}

/// Tells what in the message contradicts what is known otherwise.
void compare(StreamIntake& in, int status, std::size_t station, Contradictions::Instant now) {
    const int type = messageType(in.decoder.buff);
    if (status == kStation && (type == 1005 || type == 1006)) {
        const StationRecord& configured = in.session.stations[station];
        in.contradictions.position(type, in.decoder.sta.pos, configured.name, configured.xyz, now);
        guardPlace(in, {in.decoder.staid, type, in.decoder.sta.pos}, configured);
    }
    if (status == kEphemeris && type != 1020 &&
        in.session.satelliteIndex[static_cast<std::size_t>(in.decoder.ephsat)] >= 0)
        in.contradictions.ephemeris(
            satno2id(in.decoder.ephsat),
            in.decoder.nav.eph[static_cast<std::size_t>(in.decoder.ephsat - 1)].stated,
            utc2gpst(utcNow()), now);
    if (status == kEpoch || type == 1020)
        compareChannels(in, now);
}

/// Keeps what a station message says; the decoder forgets it.
void rememberSender(StreamIntake& in) {
    const int type = messageType(in.decoder.buff);
    const StationInfo& said = in.decoder.sta;
    StationInfo& kept = in.sender.said;
    if (type == 1005 || type == 1006) {
        in.sender.placed = true;
        kept.pos = said.pos;
    }
    if (type == 1006) {
        in.sender.height = true;
        kept.hgt = said.hgt;
    }
    if (type != 1007 && type != 1008 && type != 1033)
        return;
    in.sender.named = true;
    kept.antdes = said.antdes;
    kept.antsetup = said.antsetup;
    if (type != 1007)
        kept.antsno = said.antsno;
    if (type == 1033) {
        kept.rectype = said.rectype;
        kept.recver = said.recver;
        kept.recsno = said.recsno;
    }
}

/// What the message brought goes to its place, then to the callback; then the decoder starts
/// afresh, so that nothing survives from message to message but an unfinished epoch.
void take(StreamIntake& in, int status, std::size_t station, int framelen,
          Contradictions::Instant now) {
    if (status == kStation) {
        print("***WARN(StreamObs): Not support antenna!\n");
        rememberSender(in);
    } else if (status == kEpoch) {
        storeEpoch(in, station, in.decoder.time);
    } else if (status == kEphemeris) {
        print("***INFO(StreamObs): Got ephemeris data, %d-%s!\n", in.decoder.ephsat,
              satno2id(in.decoder.ephsat).c_str());
        StreamObs_m_setEphData(in, in.decoder.nav, in.decoder.ephsat);
    }
    compare(in, status, station, now);
    if (in.onrtcm)
        in.onrtcm(static_cast<std::uint32_t>(status), in.decoder.buff.data(), framelen);
    init_rtcm(in.decoder);
}

void tellRefused(StreamIntake& in) {
    const RefusedMessage m = std::exchange(in.decoder.refused, {});
    if (m.type == 0)
        return;
    if (in.watcher)
        in.watcher->refused(m.type);
    const auto type = static_cast<std::size_t>(m.type);
    const Lasting what{Cause::messageRefused, type};
    if (m.epoch)
        print(what, "***WARN(StreamObs): message %d refused, epoch time %u!\n", m.type, *m.epoch);
    else
        print(what, "***WARN(StreamObs): message %d refused, too short!\n", m.type);
    if (m.lostEpoch)
        print(Lasting{Cause::epochLost, type},
              "***WARN(StreamObs): epoch before it is not answered!\n");
}

/// Answers what the run has collected, and begins the next one.
void endRun(StreamIntake& in, std::size_t station, EpochRun::Ended how, int framelen) {
    // Before the stream had a station, another one may have spoken of itself.
    const bool anotherSpoke = in.spokeFirst && in.spokeFirst != in.run.stationId();
    if (anotherSpoke)
        in.sender = {};
    const ReceivedEpoch& epoch = in.run.ended();
    if (!epoch.time.unknown() && !epoch.messages().empty()) {
        if (in.savesEpochs)
            decodeEpoch(in.decoder, epoch);
        storeEpoch(in, station, epoch.time);
        if (in.onrtcm)
            in.onrtcm(kEpoch, in.decoder.buff.data(), framelen);
    }
    if (in.watcher)
        in.watcher->epochEnd(how == EpochRun::Ended::whole);
    in.streamStation.runEnded(in.run.stationId(), how == EpochRun::Ended::whole);
    in.run.begin(how);
    if (!in.streamStation.id())
        return;
    if (anotherSpoke)
        in.displaced = false;
    in.spokeFirst.reset();
}

/// The place that a station stated last while it did not count; null where there is none.
const StatedPlace* placeOf(const StreamIntake& in, int id) {
    const auto place = std::ranges::find(in.otherPlaces, id, &StatedPlace::stationId);
    return place == in.otherPlaces.end() ? nullptr : &*place;
}

/// A station that has had three epochs without a message of the stream's takes over.
void changeStation(StreamIntake& in, std::size_t station, int own, int framelen,
                   Contradictions::Instant now) {
    const int rival = *in.streamStation.rival();
    const StatedPlace* const place = placeOf(in, rival);
    const StationRecord& configured = in.session.stations[station];
    const bool elsewhere = place && beyondGuard(in, place->xyz, configured);
    const bool standsElsewhere = elsewhere && !in.session.guard->warnOnly;
    in.contradictions.takeOverRefused(rival, standsElsewhere, now);
    if (standsElsewhere) {
        in.streamStation.refuseRival();
        return;
    }
    if (!in.run.empty())
        endRun(in, station, EpochRun::Ended::unfinished, framelen);
    print(Level::warning, "***WARN(StreamObs): station %d is gone, the stream is station %d's!\n",
          own, rival);
    if (place)
        guardPlace(in, *place, configured);
    else if (std::exchange(in.displaced, false))
        print(Level::notice, "***INFO(StreamObs): station %d has stated no place, replies go on!\n",
              rival);
    in.streamStation.takeOver();
    in.run.forgetStation();
    in.sender = {};
    in.spokeFirst.reset();
}

/// The station that counts: the stream's, else that of the run that is being collected.
std::optional<int> ownStation(const StreamIntake& in) {
    if (in.streamStation.id() || in.run.empty())
        return in.streamStation.id();
    return in.run.stationId();
}

/// GPS time by the stream, as far as it tells: a time of week needs a clock that is right to half a
/// week, GLONASS' times of day one that is right to half a day.
GTime streamNow(const StreamIntake& in, GTime clock) {
    return timeadd(clock, in.aheadS);
}

std::optional<GTime> timeOf(const StreamIntake& in, const EpochMessage& m, GTime clock) {
    return epochTime(m.system == kGlonass ? streamNow(in, clock) : clock, m.system, m.field);
}

/// A time of week says how far the clock is off.
void compareWithClock(StreamIntake& in, const EpochMessage& m, GTime clock) {
    if (m.time && m.system != kGlonass && dates(m.system))
        in.aheadS = timediff(*m.time, clock);
}

/// Puts an observation message into the epoch that is being collected.
void collect(StreamIntake& in, std::size_t station, EpochMessage m, int framelen,
             Contradictions::Instant now) {
    RefusedMessage& refused = in.decoder.refused;
    if (m.tooShort) {
        refused = {m.type, std::nullopt, false};
        return;
    }
    const GTime clock = utc2gpst(utcNow());
    m.time = timeOf(in, m, clock);
    const int own = ownStation(in).value_or(m.staid);
    in.contradictions.otherStation(m.staid, own, now);
    if (!in.streamStation.counts(m, own)) {
        if (in.watcher)
            in.watcher->ofOtherStation();
        if (in.streamStation.rival())
            changeStation(in, station, own, framelen, now);
        return;
    }
    compareWithClock(in, m, clock);
    const bool whole = in.run.read(m, messageOf(in.decoder));
    if (!whole)
        refused = {m.type, m.field, false};
    if (in.run.endsBefore(m))
        endRun(in, station, EpochRun::Ended::unfinished, framelen);
    in.run.take(m);
    if (in.watcher && whole)
        in.watcher->observations({in.decoder.buff.data(), static_cast<std::size_t>(framelen)});
    if (!m.more)
        endRun(in, station, EpochRun::Ended::whole, framelen);
}

/// Keeps the place of a station that does not count, in that of the one that is longest here where
/// there are many.
void keepPlace(StreamIntake& in, const StatedPlace& place) {
    constexpr std::size_t most = 32;
    std::erase_if(in.otherPlaces,
                  [&](const StatedPlace& p) { return p.stationId == place.stationId; });
    if (in.otherPlaces.size() >= most)
        in.otherPlaces.erase(in.otherPlaces.begin());
    in.otherPlaces.push_back(place);
}

/// Whether a message of a complete answer's stream is none to be decoded: its observations are
/// collected, and what another station says of itself is passed over.
bool collected(StreamIntake& in, std::size_t station, int framelen, Contradictions::Instant now) {
    if (const std::optional<EpochMessage> m = observationHead(in.decoder)) {
        collect(in, station, *m, framelen, now);
        return true;
    }
    const int type = messageType(in.decoder.buff);
    const int id = stationIdOf(in.decoder.buff);
    if (!tellsOfStation(type))
        return false;
    const std::optional<int> own = ownStation(in);
    if (!own || id == *own) {
        if (!in.streamStation.id())
            in.spokeFirst = id;
        return false;
    }
    if (type == 1005 || type == 1006) {
        PositionMessage m;
        BitReader message = messageOf(in.decoder);
        layoutPosition<1005>(message, m); // 1006 begins so
        if (message.ok())
            keepPlace(in, {id, type, m.pos});
    }
    return true;
}

MjdTime mjdOf(GTime t) {
    const WeekTime w = time2gpst(t);
    return wksow2mjd(w.week, w.sow);
}

GLSEPH glonassRecord(const GloEphRecord& from, const std::string& name, LeapSeconds& leaps) {
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
    r.aode = genAode('R', toe.mjd, from.iode, toe.sod, toe.sod, leaps);
    return r;
}

GPSEPH keplerRecord(const EphRecord& from, const std::string& name, LeapSeconds& leaps) {
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
    r.aode = genAode(name[0], toc.mjd, from.iode, toc.sod, toe.sow, leaps);
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

/// Says what a message has brought of an epoch, or cost it. `unfinished` is the epoch that the
/// decoder was collecting; a specified answer has nothing of one that loses its end.
void tellWatcher(StreamIntake& in, const std::optional<GTime>& unfinished, int status,
                 int framelen) {
    const RtcmState& s = in.decoder;
    const int type = messageType(s.buff);
    const bool taken = status >= 0 && s.refused.type == 0; // refused: told with its line
    const bool wiped = status > 0 && status != kEpoch;
    const GTime goesOn = status == kEpoch ? s.time : s.epoch;
    if (unfinished && (wiped || !sameTime(goesOn, *unfinished)))
        in.watcher->epochEnd(/*whole=*/false);
    if (taken && (isMsm4To7(type) || isLegacy(type)))
        in.watcher->observations({s.buff.data(), static_cast<std::size_t>(framelen)});
    else if (status < 0 && s.refused.type == 0)
        in.watcher->refused(type);
}

/// The message of the frame in the decoder's buffer.
void takeMessage(StreamIntake& in, std::size_t station, int framelen, Contradictions::Instant now) {
    const bool complete = in.session.answering.complete;
    if (complete && collected(in, station, framelen, now)) {
        tellRefused(in);
        return;
    }
    if (complete)
        in.decoder.time = streamNow(in, utc2gpst(utcNow()));
    const std::optional<GTime> unfinished =
        in.decoder.dated ? std::optional(in.decoder.epoch) : std::nullopt;
    const int status = decode_rtcm3(in.decoder);
    if (in.watcher)
        tellWatcher(in, unfinished, status, framelen);
    if (in.decoder.statedId >= 0 && !complete)
        in.contradictions.stationId(in.decoder.statedId, now);
    tellRefused(in);
    if (status > 0)
        take(in, status, station, framelen, now);
    if (in.watcher && status == kEpoch)
        in.watcher->epochEnd(/*whole=*/true);
}

} // namespace

void RtcmObsDecoder_Initial(RtcmState& state) {
    init_rtcm(state);
    state.nav.glo_fcn = {};
}

int StreamReader(StreamIntake& in, std::size_t station, const std::uint8_t* buffer, int length) {
    if (!in.decoderReady) {
        print("***INFO(StreamObs): RtcmObsDecoder_Initial\n");
        RtcmObsDecoder_Initial(in.decoder);
        in.decoder.nav.configuredChannels = in.session.glonassChannels();
        in.decoder.byStandards = in.session.answering.complete;
        in.decoderReady = true;
    }
    if (length <= 0)
        return 0;
    Taiutc_m_lookDaily(in.leapSeconds, utcNow());
    const Contradictions::Instant now = monotonicNow();
    int framelen = 0;
    for (std::span left(buffer, static_cast<std::size_t>(length)); !left.empty();) {
        framelen = 0; // until a frame ends
        const Framed frame = takeFrame(in.decoder, left, framelen);
        if (in.watcher && frame.whole)
            in.watcher->frame({in.decoder.buff.data(), static_cast<std::size_t>(framelen)});
        else if (in.watcher && framelen > 0)
            in.watcher->wrongCheckWord();
        if (frame.whole)
            takeMessage(in, station, framelen, now);
        left = left.subspan(frame.bytes);
    }
    return 0;
}

void StreamObs_m_initial(StreamIntake& in, const std::string& leapSecondFile) {
    in.decoderReady = false;
    in.contradictions = {};
    in.sender = {};
    in.displaced = false;
    in.run.forgetStation();
    in.streamStation = {};
    in.otherPlaces.clear();
    in.spokeFirst.reset();
    in.aheadS = 0.0;
    in.leapSeconds = {};
    in.leapSeconds.path = leapSecondFile;
    in.leapSeconds.end = !contains(in.session.systems, "R") ? LeapEnd::doesNot
                         : in.session.answering.complete    ? LeapEnd::lastValueStays
                                                            : LeapEnd::endsService;
}

void StreamObs_m_restart(StreamIntake& in) {
    if (in.watcher && (in.decoder.dated || !in.run.empty()))
        in.watcher->epochEnd(/*whole=*/false);
    init_rtcm(in.decoder);
    in.run.drop();
    in.contradictions.newConnection();
}

int StreamObs_m_setObsData(StreamIntake& in, const ObsSet& obs, std::size_t station) {
    EpochObs& out = in.epoch.stationEpochs[station].obs;
    for (int n = 0; n < obs.n; ++n) {
        const ObsRecord& record = obs.data[static_cast<std::size_t>(n)];
        const int satellite = in.session.satelliteIndex[record.sat];
        const int system = kSystemOf[record.sat];
        if (satellite < 0 || system < 0)
            continue;
        const auto& slots = in.session.slotOf[static_cast<std::size_t>(system)];
        for (std::size_t i = 0; i < kObsSlots; ++i) {
            const std::uint8_t code = record.code[i];
            if (slots[code] < 0)
                continue;
            // Where two signals share a carrier, the later slot overwrites the earlier.
            out.slot(static_cast<std::size_t>(satellite),
                     static_cast<std::size_t>(slots[code])) = {.phase = record.L[i],
                                                               .range = record.P[i],
                                                               .cn0 = record.SNR[i] / 1000.0,
                                                               .doppler = -record.D[i],
                                                               .phaseType = code,
                                                               .rangeType = code};
        }
    }
    return 1;
}

char StreamObs_m_setEphData(StreamIntake& in, NavData& nav, int sat) {
    const std::string name = satno2id(sat);
    if (name.empty() || systemIndex(name[0]) >= kSystemCount ||
        pointer_string(in.session.satelliteNames, name) < 0)
        return ' ';
    if (name[0] == 'R') {
        int slot = 0;
        satsys(sat, &slot);
        const GLSEPH record =
            glonassRecord(nav.geph[static_cast<std::size_t>(slot - 1)], name, in.leapSeconds);
        const std::span records(in.ephemerides.glonass.data(),
                                static_cast<std::size_t>(in.ephemerides.glonassCount));
        replace(records, map_glseph_find(records, name), sat, record);
        return name[0];
    }
    EphRecord& from = nav.eph[static_cast<std::size_t>(sat - 1)];
    if (name[0] == 'C') { // the store holds BDT readings
        from.toe = timeadd(from.toe, -kBdtOffset);
        from.toc = timeadd(from.toc, -kBdtOffset);
    }
    const GPSEPH record = keplerRecord(from, name, in.leapSeconds);
    const std::span records(in.ephemerides.kepler.data(),
                            static_cast<std::size_t>(in.ephemerides.keplerCount));
    replace(records, map_gpseph_find(records, name), sat, record);
    return name[0];
}
