#include "ctl/Encode.h"

#include "common/gnsscmn.h"
#include "reference/standard/orbit.h"
#include "rtcm/EphemerisMessages.h"
#include "rtcm/Frame.h"
#include "rtcm/Legacy.h"
#include "rtcm/Msm.h"
#include "rtcm/StationMessages.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <stdexcept>

namespace ctl::simulate {

namespace {

WireEph wireOf(const ref::Kepler& k) {
    WireEph w;
    w.id = k.id;
    w.week = k.week;
    w.iode = k.iode;
    w.iodc = k.iodc;
    w.sva = k.ura;
    w.svh = k.health;
    if (k.type == 1045) { // E5a: two bits of health, validity
        w.svh = k.health >> 1;
        w.valid = k.health & 1;
    } else if (k.type == 1046) { // E5b, then E1-B
        w.svh = k.health >> 4;
        w.valid = k.health >> 3 & 1;
        w.health2 = k.health >> 1 & 3;
        w.valid2 = k.health & 1;
    }
    w.code = k.codeL2;
    w.flag = k.l2p;
    w.longFit = k.fit;
    w.toc = k.toc;
    w.toe = k.toe;
    w.f0 = k.af0;
    w.f1 = k.af1;
    w.f2 = k.af2;
    w.crs = k.crs;
    w.crc = k.crc;
    w.cuc = k.cuc;
    w.cus = k.cus;
    w.cic = k.cic;
    w.cis = k.cis;
    w.deln = k.deltaN / kSemicircle;
    w.M0 = k.m0 / kSemicircle;
    w.OMG0 = k.node / kSemicircle;
    w.i0 = k.i0 / kSemicircle;
    w.omg = k.perigee / kSemicircle;
    w.OMGd = k.nodeDot / kSemicircle;
    w.idot = k.idot / kSemicircle;
    w.e = k.e;
    w.sqrtA = k.sqrtA;
    w.tgd = k.tgd[0];
    w.tgd2 = k.tgd[1];
    return w;
}

WireGlonass wireOf(const ref::Glonass& g) {
    WireGlonass w;
    w.slot = g.slot;
    w.channel = g.channel + 7;
    w.tkHours = g.tkHour;
    w.tkMinutes = g.tkMinute;
    w.tkHalf = g.tkHalf;
    w.tb = g.tb;
    w.health = g.bn;
    w.age = g.en;
    w.accuracy = g.ft;
    std::copy_n(g.pos.v, 3, w.posKm.begin());
    std::copy_n(g.vel.v, 3, w.velKmps.begin());
    std::copy_n(g.acc.v, 3, w.accKmps2.begin());
    w.gamn = g.gamn;
    w.taun = g.taun;
    w.dtaun = g.dtaun;
    w.almanacHealth = g.almanacHealth >> 1;
    w.almanacHealthKnown = g.almanacHealth & 1;
    w.p1 = g.p1;
    w.p2 = g.p2;
    w.p3 = g.p3;
    w.p = g.mp;
    w.ln = g.ln3;
    w.p4 = g.p4;
    w.nt = g.nt;
    w.satelliteType = g.m;
    w.additional = g.additional;
    w.na = g.na;
    w.n4 = g.n4;
    w.ln5 = g.ln5;
    w.tauC = g.tauc;
    w.tauGps = g.tauGps;
    return w;
}

int messageType(char system, int msm) {
    constexpr std::string_view order = "GRESJC";
    const std::size_t row = order.find(system);
    if (row == std::string_view::npos || msm < 4 || msm > 7)
        throw std::out_of_range(std::string("no MSM of system ") + system);
    return 1070 + 10 * static_cast<int>(row) + msm;
}

std::size_t signalIdOf(const MsmSystem& system, std::string_view signal) {
    for (std::size_t id = 1; id < system.codes.size(); ++id)
        if (system.codes[id] != 0 && code2obs(system.codes[id]) == signal)
            return id;
    throw std::out_of_range("signal " + std::string(signal) + " has no place in the message");
}

// The first value of a satellite decides its rough range and rate.
MsmSatellite roughOf(std::span<const ref::Cell* const> cells) {
    MsmSatellite s = kNoMsmSatellite;
    for (const ref::Cell* const c : cells) {
        if (!s.hasRange() && c->pseudorangeM) {
            const double steps = roundHalfUp(*c->pseudorangeM / kRangeMs * 1024);
            if (!(steps >= 0 && steps < 255 * 1024))
                throw std::out_of_range("a range beyond 255 ms");
            s.setRange(static_cast<std::uint32_t>(steps));
        }
        if (isNone(s.rateMps) && c->rateMps)
            s.rateMps = roundHalfUp(*c->rateMps);
        s.extended = c->info;
    }
    return s;
}

MsmCell fineOf(const ref::Cell& c, const MsmSatellite& rough) {
    MsmCell cell = kNoMsmCell;
    if (c.pseudorangeM && rough.hasRange())
        cell.rangeMs = *c.pseudorangeM / kRangeMs - rough.roughMs();
    if (c.phaseRangeM && rough.hasRange()) // without a rough range a phase cannot be sent
        cell.phaseMs = *c.phaseRangeM / kRangeMs - rough.roughMs();
    if (c.rateMps)
        cell.rateMps = *c.rateMps - rough.rateMps;
    cell.lock = c.lock;
    cell.halfCycle = c.half ? 1 : 0;
    cell.cnrDb = c.cnr;
    return cell;
}

/// L1 of a satellite; the pseudorange as sent, m.
double putL1(LegacySatellite& s, const ref::Cell& c) {
    const bool glonass = c.system == 'R';
    s.id = c.id;
    s.code1 = indicatorOf(kL1Signals, c.signal);
    s.channel = c.info;
    if (!splitL1Range(s, glonass, *c.pseudorangeM))
        throw std::out_of_range("a range beyond the ambiguity field");
    s.lock1 = legacyLock(c.lockS);
    s.cnr1Db = c.cnr;
    const double rangeM = l1RangeM(s, glonass);
    if (c.phaseRangeM)
        s.phase1M = *c.phaseRangeM - rangeM;
    return rangeM;
}

Descriptor descriptor(std::string_view text) {
    Descriptor d{};
    text.copy(d.data(), d.size() - 1);
    return d;
}

StationInfo simulatedEquipment() {
    StationInfo s;
    s.antdes = descriptor("ADVNULLANTENNA");
    s.antsetup = 0;
    s.antsno = descriptor("1");
    s.rectype = descriptor("KESTRUNE SIMULATOR");
    s.recver = descriptor("2.5");
    s.recsno = descriptor("1");
    return s;
}

SystemParameters announcements(int station, ref::GpsTime t) {
    SystemParameters p;
    const double utc = t - ref::GpsTime{} - ref::kLeapS;
    p.staid = station;
    p.mjd = 44244 + static_cast<int>(utc / 86400); // 1980-01-06
    p.secondsOfDay = static_cast<int>(std::fmod(utc, 86400));
    p.leapSeconds = static_cast<int>(ref::kLeapS);
    for (const int type : {1006, 1033})
        p.messages[static_cast<std::size_t>(p.count++)] = {type, 0, 10.0};
    return p;
}

} // namespace

ref::Bytes ephemerisFrame(const ref::Kepler& k) {
    const WireEph w = wireOf(k);
    switch (k.type) {
    case 1019:
        return frameOf(layout1019, w);
    case 1042:
        return frameOf(layout1042, w);
    case 1044:
        return frameOf(layout1044, w);
    case 1045:
        return frameOf(layout1045, w);
    case 1046:
        return frameOf(layout1046, w);
    default:
        throw std::out_of_range("no ephemeris message " + std::to_string(k.type));
    }
}

ref::Bytes ephemerisFrame(const ref::Glonass& g) {
    return frameOf(layout1020, wireOf(g));
}

ref::Bytes msmFrame(const ref::Msm& m) {
    MsmMessage w;
    w.head.type = messageType(m.system, m.msm);
    w.head.staid = m.station;
    w.head.epoch = m.epochField;
    w.head.more = m.more ? 1 : 0;
    w.head.iods = m.iods;
    const MsmSystem& system = msmSystem(w.head.type);
    // by satellite id and signal id, as the message has them
    std::map<int, std::map<std::size_t, const ref::Cell*>> rows;
    for (const ref::Cell& c : m.cells) {
        const std::size_t signal = signalIdOf(system, c.signal);
        rows[c.id][signal] = &c;
        w.head.satellites |= std::uint64_t{1} << (64 - c.id);
        w.head.signals |= std::uint32_t{1} << (32 - signal);
    }
    w.countHead();
    if (w.pairs() > kMsmCells)
        throw std::out_of_range("more than 64 cells");
    std::size_t satellite = 0;
    for (const auto& [id, row] : rows) {
        std::vector<const ref::Cell*> cells;
        for (std::size_t signal = 1; signal <= kMsmSignals; ++signal) {
            if (!(w.head.signals >> (32 - signal) & 1U))
                continue;
            const auto cell = row.find(signal);
            w.cellMask = w.cellMask << 1 | (cell != row.end() ? 1U : 0U);
            if (cell != row.end())
                cells.push_back(cell->second);
        }
        const MsmSatellite rough = roughOf(cells);
        w.satellites[satellite++] = rough;
        for (const ref::Cell* const c : cells)
            w.cells[w.cellCount++] = fineOf(*c, rough);
    }
    return frameOf(layoutMsm, w);
}

ref::Bytes legacyFrame(char system, int station, std::uint32_t epochField, bool more,
                       const std::vector<ref::Cell>& cells) {
    constexpr int mostSatellites = 31; // the count has five bits
    LegacyMessage w;
    w.head.type = system == 'R' ? 1012 : 1004;
    w.head.staid = station;
    w.head.epochMs = epochField & (system == 'R' ? 0x7FFFFFFU : ~0U);
    w.head.more = more ? 1 : 0;
    const IndicatedSignals& secondSignals = l2Signals(system == 'R');
    double firstRangeM = 0;
    int l1Id = 0;
    for (const ref::Cell& c : cells) {
        if (c.system != system)
            continue;
        if (indicatorOf(kL1Signals, c.signal) >= 0 && c.id != l1Id && c.pseudorangeM &&
            w.head.satellites < mostSatellites) {
            firstRangeM = putL1(w.satellites[static_cast<std::size_t>(w.head.satellites++)], c);
            l1Id = c.id;
        }
        const int indicator = indicatorOf(secondSignals, c.signal);
        if (indicator < 0 || c.id != l1Id)
            continue;
        LegacySatellite& s = w.satellites[static_cast<std::size_t>(w.head.satellites - 1)];
        if (!isNone(s.range2M) || !isNone(s.phase2M))
            continue; // one signal a carrier
        s.code2 = indicator;
        if (c.pseudorangeM)
            s.range2M = *c.pseudorangeM - firstRangeM;
        if (c.phaseRangeM)
            s.phase2M = *c.phaseRangeM - firstRangeM;
        s.lock2 = legacyLock(c.lockS);
        s.cnr2Db = c.cnr;
    }
    return w.head.satellites > 0 ? frameOf(layoutLegacy, w) : ref::Bytes{};
}

ref::Bytes stationFrame(int type, int station, const ref::Vec3& siteM, ref::GpsTime t) {
    WirePosition position;
    position.staid = station;
    position.gps = position.glonass = position.galileo = 1;
    position.oscillator = 1;
    position.pos = {siteM[0], siteM[1], siteM[2]};
    const WireStation equipment{station, simulatedEquipment()};
    switch (type) {
    case 1005:
        return frameOf(layout1005, position);
    case 1006:
        return frameOf(layout1006, position);
    case 1007:
        return frameOf(layout1007, equipment);
    case 1008:
        return frameOf(layout1008, equipment);
    case 1013:
        return frameOf(layout1013, announcements(station, t));
    case 1033:
        return frameOf(layout1033, equipment);
    case 1230:
        return frameOf(layout1230, Biases1230{station, 1, 0xF, {0.02, -0.04, 0.06, -0.08}});
    default:
        throw std::out_of_range("no station message " + std::to_string(type));
    }
}

} // namespace ctl::simulate
