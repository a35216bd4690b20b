#include "session.h"

#include "ctl/simulate/Encode.h"
#include "reference/standard/ephemeris.h"
#include "reference/standard/legacy.h"
#include "reference/standard/msm.h"
#include "rtcm/Messages.h"

#include <map>
#include <set>

// Layouts as writers. Expectations are bit strings typed field by field, the writers of reference/,
// and recorded frames.

namespace {

using ref::BitString;
using ref::Bytes;
using ref::frame;

/// The frame of one message; empty where the message is too long.
template <class Layout, class Record> Bytes frameOf(const Layout& layout, const Record& record) {
    Bytes buff(kMaxFrame);
    BitWriter out{std::span(buff).subspan(kHeaderBytes)};
    layout(out, record);
    buff.resize(closeFrame(buff, kMessageBit + out.finish()));
    return buff;
}

/// Fills a record from a whole frame; false where the message is shorter than its layout.
template <class Layout, class Record>
bool readFrame(const Layout& layout, std::span<const std::uint8_t> frame, Record& record) {
    BitReader in = messageOf(frame);
    layout(in, record);
    return in.ok();
}

/// Reads a frame into a new record and writes that again.
template <class Record, class Layout> Bytes again(const Layout& layout, const Bytes& bytes) {
    const auto record = std::make_unique<Record>();
    EXPECT_TRUE(readFrame(layout, bytes, *record));
    return frameOf(layout, *record);
}

/// The record gives the message, and the message gives the record.
template <class Record, class Layout>
void expectBoth(const Layout& layout, const Record& record, const Bytes& body) {
    EXPECT_EQ(frameOf(layout, record), frame(body));
    EXPECT_EQ(again<Record>(layout, frame(body)), frame(body));
    Record cut;
    EXPECT_FALSE(readFrame(layout, frame(Bytes(body.begin(), body.end() - 1)), cut));
}

void put(Descriptor& d, std::string_view text) {
    text.copy(d.data(), text.size());
}

/// A frame read and written again by the layout of its type; empty for other types.
Bytes rewritten(const ref::Frame& f) {
    Bytes bytes;
    visitMessage(f.type, [&](const auto& row) {
        using Row = std::remove_cvref_t<decltype(row)>;
        bytes = again<typename Row::Record>(row.layout, f.bytes);
    });
    if (!bytes.empty())
        return bytes;
    if (isLegacy(f.type))
        return again<LegacyMessage>(layoutLegacy, f.bytes);
    return isMsm4To7(f.type) ? again<MsmMessage>(layoutMsm, f.bytes) : Bytes{};
}

ref::Kepler kepler(int type) {
    ref::Kepler k{.type = type, .id = 9, .week = 1001, .ura = 5, .iode = 23, .iodc = 29};
    k.health = type == 1042 ? 1 : type == 1045 ? 0b101 : 0b101101;
    k.codeL2 = 2;
    k.l2p = 1;
    k.fit = 1;
    k.toe = 302400.0;
    k.toc = 309600.0;
    k.af0 = -1.1e-5;
    k.af1 = 2.2e-11;
    k.af2 = type == 1042 ? -1e-17 : -5e-17;
    k.sqrtA = 5153.6;
    k.e = 0.0123;
    k.i0 = 0.95;
    k.node = -2.1;
    k.perigee = 1.7;
    k.m0 = -0.4;
    k.deltaN = 4.5e-9;
    k.nodeDot = -8.1e-9;
    k.idot = 3.3e-10;
    k.crc = 210.3;
    k.crs = -33.7;
    k.cuc = -1.9e-6;
    k.cus = 8.8e-6;
    k.cic = 5e-8;
    k.cis = -9e-8;
    k.tgd = {-1.02e-8, 1.35e-8};
    return k;
}

KeplerMessage messageOf(const ref::Kepler& k) {
    KeplerMessage m;
    m.id = k.id;
    m.week = k.week;
    m.sva = k.ura;
    m.iode = k.iode;
    m.iodc = k.iodc;
    m.code = k.codeL2;
    m.flag = k.l2p;
    m.longFit = k.fit;
    m.svh = k.health;
    if (k.type == 1045) {
        m.svh = k.health >> 1; // two bits of health, one of validity
        m.valid = k.health & 1;
    } else if (k.type == 1046) { // E5b, then E1-B
        m.svh = k.health >> 4;
        m.valid = k.health >> 3 & 1;
        m.health2 = k.health >> 1 & 3;
        m.valid2 = k.health & 1;
    }
    m.toes = k.toe;
    m.tocs = k.toc;
    m.f0 = k.af0;
    m.f1 = k.af1;
    m.f2 = k.af2;
    m.sqrtA = k.sqrtA;
    m.e = k.e;
    m.i0 = k.i0;
    m.OMG0 = k.node;
    m.omg = k.perigee;
    m.M0 = k.m0;
    m.deln = k.deltaN;
    m.OMGd = k.nodeDot;
    m.idot = k.idot;
    m.crc = k.crc;
    m.crs = k.crs;
    m.cuc = k.cuc;
    m.cus = k.cus;
    m.cic = k.cic;
    m.cis = k.cis;
    m.tgd = {k.tgd[0], k.tgd[1]};
    return m;
}

} // namespace

TEST(CloseFrame, TakesUpTo1023BytesAndPadsTheLast) {
    Bytes buff(1200, 0xFF);
    EXPECT_EQ(closeFrame(buff, 24 + 13), 8U);
    EXPECT_EQ(Bytes(buff.begin(), buff.begin() + 8), frame({0xFF, 0xF8}));
    EXPECT_EQ(closeFrame(buff, 24), 6U);
    EXPECT_EQ(closeFrame(buff, 24 + 8 * 1023), 1029U);
    EXPECT_EQ(closeFrame(buff, 24 + 8 * 1023 + 1), 0U);
    EXPECT_EQ(closeFrame(std::span(buff).first(50), 384), 0U);
    EXPECT_EQ(closeFrame(buff, 0), 0U);
    const auto tooLong = [](auto& b, auto& n) {
        for (int i = 0; i < n; ++i)
            b.fixed(8, 1);
    };
    EXPECT_EQ(frameOf(tooLong, 1023).size(), 1029U);
    EXPECT_TRUE(frameOf(tooLong, 1024).empty());
    EXPECT_TRUE(frameOf(tooLong, 3000).empty());
}

TEST(Writing, StationMessages) {
    for (const int bits : {0b101110, 0b010001}) { // either half of the indicators
        ref::Station1005 s{.type = 1006, .station = 2003, .itrf = 14};
        s.gps = bits & 32;
        s.glonass = bits & 16;
        s.galileo = bits & 8;
        s.computed = bits & 4;
        s.oneOscillator = bits & 2;
        s.quarterCycle = bits & 1 ? 2 : 1;
        s.xyzM = {1114104.5999, -4850729.7108, 3975521.4643};
        s.heightM = 1.2345;
        const PositionMessage w{.staid = 2003,
                                .itrf = 14,
                                .gps = s.gps,
                                .glonass = s.glonass,
                                .galileo = s.galileo,
                                .nonPhysical = s.computed,
                                .pos = {1114104.5999, -4850729.7108, 3975521.4643},
                                .oscillator = s.oneOscillator,
                                .quarterCycle = s.quarterCycle,
                                .hgt = 1.2345};
        expectBoth(layout1006, w, ref::write1005(s));
        s.type = 1005;
        expectBoth(layoutPosition<1005>, w, ref::write1005(s));
    }
    EquipmentMessage w{.staid = 77};
    const std::string longest(31, 'R');
    w.antsetup = 3;
    put(w.antdes, "TRM59800.00     NONE");
    put(w.antsno, "54321");
    put(w.rectype, longest);
    put(w.recver, "5.37");
    put(w.recsno, "");
    const auto antenna = BitString().u(12, 1008).u(12, 77).text("TRM59800.00     NONE").u(8, 3);
    expectBoth(layoutNumberedAntenna<1008>, w, BitString(antenna).text("54321").bytes());
    expectBoth(layoutAntenna<1007>, w,
               BitString().u(12, 1007).u(12, 77).text("TRM59800.00     NONE").u(8, 3).bytes());
    expectBoth(layout1033, w,
               ref::write1033({77, "TRM59800.00     NONE", 3, "54321", longest, "5.37", ""}));
}

TEST(Writing, MessagesOfVariableLength) {
    SystemParameters p{.staid = 9, .mjd = 58311, .secondsOfDay = 85031, .count = 2};
    p.leapSeconds = 18;
    p.messages[0] = {1006, 0, 10.0};
    p.messages[1] = {1077, 1, 6553.5};
    auto b = BitString().u(12, 1013).u(12, 9).u(16, 58311).u(17, 85031).u(5, 2).u(8, 18);
    b.u(12, 1006).u(1, 0).u(16, 100).u(12, 1077).u(1, 1).u(16, 65535);
    expectBoth(layout1013, p, b.bytes());

    TextMessage t{.staid = 9, .mjd = 58311, .secondsOfDay = 85031, .characters = 2, .bytes = 3};
    t.text = {'m', '\xC3', '\xBC'};
    b = BitString().u(12, 1029).u(12, 9).u(16, 58311).u(17, 85031).u(7, 2).text("m\xC3\xBC");
    expectBoth(layout1029, t, b.bytes());

    const BiasMessage biases{
        .staid = 9, .align = 1, .mask = 0b1011, .biasM = {0.02, 99.0, -1.0, kNone}};
    b = BitString().u(12, 1230).u(12, 9).u(1, 1).u(3, 0).u(4, 0b1011);
    expectBoth(layout1230, biases, b.s(16, 1).s(16, -50).s(16, -32768).bytes());
}

TEST(Writing, Ephemerides) {
    expectBoth(layout1019, messageOf(kepler(1019)), ref::writeKepler(kepler(1019)));
    expectBoth(layoutBds<1042>, messageOf(kepler(1042)), ref::writeKepler(kepler(1042)));
    expectBoth(layout1044, messageOf(kepler(1044)), ref::writeKepler(kepler(1044)));
    expectBoth(layout1045, messageOf(kepler(1045)), ref::writeKepler(kepler(1045)));
    expectBoth(layout1046, messageOf(kepler(1046)), ref::writeKepler(kepler(1046)));

    ref::Glonass g{.slot = 24, .channel = -7, .almanacHealth = 0b10, .p1 = 3, .p2 = 1, .bn = 1};
    g.mp = 2;
    g.en = 17;
    g.ft = 11;
    g.nt = 923;
    g.m = 1;
    g.additional = 1;
    g.na = 922;
    g.n4 = 6;
    g.tkHour = 23;
    g.tkMinute = 59;
    g.tkHalf = 1;
    g.tb = 95;
    g.pos = {-12345.6, 20001.25, -0.0};
    g.vel = {0.5, -3.25, -0.0};
    g.acc = {-0.0, 1.862645149230957e-9, -9.313225746154785e-10};
    g.gamn = -0.0;
    g.taun = -1.25e-4;
    g.dtaun = 2.79e-9;
    g.tauc = -1.5e-7;
    g.tauGps = 2.5e-8;
    GlonassMessage w;
    w.slot = 24;
    w.channel = 0;
    w.almanacHealth = 1;
    w.p1 = 3;
    w.p2 = 1;
    w.svh = 1;
    w.p = 2;
    w.age = 17;
    w.sva = 11;
    w.nt = 923;
    w.satelliteType = 1;
    w.additional = 1;
    w.na = 922;
    w.n4 = 6;
    w.tkHours = 23;
    w.tkMinutes = 59;
    w.tkHalf = 1;
    w.tb = 95;
    w.pos = {-12345600.0, 20001250.0, -0.0};
    w.vel = {500.0, -3250.0, -0.0};
    w.acc = {-0.0, 1.862645149230957e-6, -9.313225746154785e-7};
    w.gamn = -0.0;
    w.taun = -1.25e-4;
    w.dtaun = 2.79e-9;
    w.tauC = -1.5e-7;
    w.tauGps = 2.5e-8;
    expectBoth(layout1020, w, ref::writeGlonass(g));
}

TEST(Writing, LegacyObservationsOfEveryType) {
    for (const int type : {1001, 1002, 1003, 1004, 1009, 1010, 1011, 1012}) {
        const bool glonass = type > 1008;
        const bool extended = type % 2 == 0;
        const bool l2 = type % 10 == 3 || type % 10 == 4 || type > 1010;
        LegacyMessage m;
        m.head = {.type = type, .staid = 3, .epochMs = 86399000, .more = 1, .satellites = 2};
        m.head.smoothing = 1;
        m.head.smoothingInterval = 5;
        BitString b;
        b.u(12, type).u(12, 3).u(glonass ? 27 : 30, 86399000).u(1, 1).u(5, 2).u(1, 1).u(3, 5);
        for (const int i : {0, 1}) {
            const bool none = i == 1;
            m.satellites.at(static_cast<std::size_t>(i)) = {.id = 7 + i,
                                                            .code1 = 1 - i,
                                                            .channel = 13 - i,
                                                            .rangeM = 24691.34 + i,
                                                            .phase1M = none ? kNone : 1.111,
                                                            .lock1 = 50 + i,
                                                            .ambiguity = 70 + i,
                                                            .cnr1Db = 45.25 + i,
                                                            .code2 = 3 - i,
                                                            .range2M = none ? kNone : -6.66,
                                                            .phase2M = none ? kNone : -2.222,
                                                            .lock2 = 60 + i,
                                                            .cnr2Db = 37.5 + i};
            b.u(6, 7 + i).u(1, 1 - i);
            if (glonass)
                b.u(5, 13 - i);
            b.u(glonass ? 25 : 24, 1234567 + 50 * i).s(20, none ? -524288 : 2222).u(7, 50 + i);
            if (extended)
                b.u(glonass ? 7 : 8, 70 + i).u(8, 181 + 4 * i);
            if (l2) {
                b.u(2, 3 - i).s(14, none ? -8192 : -333).s(20, none ? -524288 : -4444);
                b.u(7, 60 + i);
                if (extended)
                    b.u(8, 150 + 4 * i);
            }
        }
        SCOPED_TRACE(type);
        expectBoth(layoutLegacy, m, b.bytes());
    }
}

TEST(Writing, MsmOfEveryFormAndSystem) {
    // Widths of DF400/405, DF401/406, DF402/407, DF403/408, and the steps of the first two and the
    // last, as powers of two.
    struct Form {
        int msm, range, phase, lock, cnr, rangeExp, phaseExp, cnrExp;
    };
    for (const Form& f :
         {Form{4, 15, 22, 4, 6, -24, -29, 0}, Form{5, 15, 22, 4, 6, -24, -29, 0},
          Form{6, 20, 24, 10, 10, -29, -31, -4}, Form{7, 20, 24, 10, 10, -29, -31, -4}})
        for (int tens = 107; tens <= 113; ++tens) {
            const bool rates = f.msm % 2 == 1;
            // Satellites 5 and 64, signals 2 and 32; the second satellite lacks the first signal.
            BitString b;
            b.u(12, 10 * tens + f.msm).u(12, 17).u(30, 0x3ABCDEF1).u(1, 1).u(3, 5).u(7, 99);
            b.u(2, 2).u(2, 1).u(1, 1).u(3, 6).u(64, (std::uint64_t{1} << 59) + 1);
            b.u(32, (1U << 30) + 1).u(4, 0b1101).u(8, 70).u(8, 255);
            if (rates)
                b.u(4, 9).u(4, 14);
            b.u(10, 512).u(10, 3);
            if (rates)
                b.s(14, -300).s(14, -8192);
            b.s(f.range, -4321).s(f.range, 1234).s(f.range, -(1 << (f.range - 1)));
            b.s(f.phase, 654321).s(f.phase, -(1 << (f.phase - 1))).s(f.phase, -77777);
            b.u(f.lock, 15).u(f.lock, 0).u(f.lock, 7).u(3, 0b011);
            b.u(f.cnr, 45).u(f.cnr, 0).u(f.cnr, 63);
            if (rates)
                b.s(15, -1234).s(15, 4321).s(15, -16384);

            MsmMessage m;
            m.head = {.type = 10 * tens + f.msm, .staid = 17, .epoch = 0x3ABCDEF1, .more = 1};
            m.head.iods = 5;
            m.head.reserved = 99;
            m.head.steering = 2;
            m.head.externalClock = 1;
            m.head.smoothing = 1;
            m.head.smoothingInterval = 6;
            m.head.satellites = (std::uint64_t{1} << 59) + 1;
            m.head.signals = (1U << 30) + 1;
            m.countHead();
            m.cellMask = 0b1101;
            m.countCells();
            m.satellites[0] = {70, 512, rates ? 9 : 0, -300.0};
            m.satellites[1] = {255, 3, rates ? 14 : 0, kNone};
            const auto range = [&](int raw) { return std::ldexp(raw, f.rangeExp); };
            const auto phase = [&](int raw) { return std::ldexp(raw, f.phaseExp); };
            const auto cnr = [&](int raw) { return std::ldexp(raw, f.cnrExp); };
            m.cells[0] = {range(-4321), phase(654321), 15, 0, cnr(45), -0.1234};
            m.cells[1] = {range(1234), kNone, 0, 1, cnr(0), 0.4321};
            m.cells[2] = {kNone, phase(-77777), 7, 1, cnr(63), kNone};
            SCOPED_TRACE(m.head.type);
            expectBoth(layoutMsm, m, b.bytes());
            EXPECT_TRUE(m.hasCell(0, 0) && m.hasCell(0, 1) && !m.hasCell(1, 0) && m.hasCell(1, 1));
        }
}

TEST(Writing, MsmTablesAgreeWithTheIndependentOnes) {
    // The values of a generated epoch, satellite by satellite and signal by signal.
    const ref::GpsTime now = kNow;
    for (int form = 4; form <= 7; ++form)
        for (const Bytes& f : ref::Sky(kSite).epochFrames(now, form)) {
            MsmMessage m;
            ASSERT_TRUE(readFrame(layoutMsm, f, m));
            const ref::Msm expected = ref::readMsm(ref::goodFrames(f).at(0).body);
            ASSERT_EQ(m.cellCount, expected.cells.size());
            std::size_t cell = 0;
            for (std::size_t i = 0; i < m.satelliteCount; ++i)
                for (std::size_t j = 0; j < m.signalCount; ++j) {
                    if (!m.hasCell(i, j))
                        continue;
                    const ref::Cell& c = expected.cells[cell];
                    EXPECT_EQ(c.id, expected.sats[i]);
                    EXPECT_EQ(c.signal, expected.signals[j]);
                    const double rough =
                        m.satellites[i].rangeMs + m.satellites[i].rangeFraction / 1024.0;
                    EXPECT_NEAR((rough + m.cells[cell++].rangeMs) * 299792.458,
                                c.pseudorangeM.value(), 1e-6);
                }
            EXPECT_EQ(frameOf(layoutMsm, m), f);
        }
}

TEST(Writing, GivesWhatTheIndependentWritersGive) {
    ref::Sky sky(kSite);
    sky.systems = "GRECJS";
    std::vector<Bytes> frames = sky.ephemerisFrames(kNow);
    for (const int type : {1005, 1006, 1007, 1008, 1013, 1033, 1230})
        frames.push_back(ctl::simulate::stationFrame(type, 5, kSite, kNow));
    for (const char system : {'G', 'R'})
        frames.push_back(frame(ref::writeLegacy(system, 5, ref::epochField(system, kNow), true,
                                                sky.observe(kNow, false))));
    std::set<int> types;
    for (const Bytes& bytes : frames) {
        const ref::Frame f = ref::goodFrames(bytes).at(0);
        EXPECT_EQ(rewritten(f), bytes) << f.type;
        types.insert(f.type);
    }
    EXPECT_EQ(types, (std::set<int>{1004, 1005, 1006, 1007, 1008, 1012, 1013, 1019, 1020, 1033,
                                    1042, 1044, 1045, 1046, 1230}));
}

TEST(Reading, RefusesAMessageOfAnotherKindOrTooManyCells) {
    MsmMessage msm;
    LegacyMessage legacy;
    for (const int type : {1004, 1070, 1073, 1078, 1144, 4095})
        EXPECT_FALSE(readFrame(
            layoutMsm, frame(BitString().u(12, type).u(64, 0).u(64, 0).u(64, 0).bytes()), msm));
    const auto head = [](std::uint64_t satellites) {
        return BitString().u(12, 1074).u(61, 0).u(64, satellites).u(32, 0x1FF);
    };
    const Bytes zeros(500, 0);
    for (const auto& [satellites, fits] : {std::pair{0x7F, true}, {0xFF, false}}) {
        Bytes body = head(static_cast<std::uint64_t>(satellites)).bytes();
        body.insert(body.end(), zeros.begin(), zeros.end());
        EXPECT_EQ(readFrame(layoutMsm, frame(body), msm), fits);
    }
    EXPECT_FALSE(readFrame(layoutLegacy, frame(BitString().u(12, 1005).u(64, 0).bytes()), legacy));
    KeplerMessage eph;
    EXPECT_FALSE(readFrame(layout1019, Bytes{0xD3, 0, 0}, eph));
}

TEST(RecordedStreams, AreWrittenAsTheyWereRead) {
    std::map<int, int> counts;
    for (const char* name :
         {"str24-msm4.rtcm3", "antarctica-msm7.rtcm3", "japan-msm5.rtcm3", "pittsburgh-msm4.rtcm3",
          "corsica-legacy.rtcm3", "california-legacy-glo-day-rollover.rtcm3", "bds-eph.rtcm3",
          "gal-eph.rtcm3", "glo-eph.rtcm3"}) {
        CAPTURE_OR_SKIP(stream, name);
        for (const ref::Frame& f : ref::goodFrames(stream)) {
            const Bytes copy = rewritten(f);
            ++counts[copy.empty() ? -f.type : f.type];
            if (!copy.empty()) {
                EXPECT_EQ(copy, f.bytes) << name << " " << f.type << " at " << f.offset;
            }
        }
    }
    for (const int type :
         {1004, 1005, 1006, 1008, 1012, 1013, 1019, 1020, 1029, 1033, 1042, 1044, 1045, 1046,
          1074, 1075, 1077, 1084, 1085, 1087, 1094, 1097, 1114, 1115, 1117, 1124, 1127, 1230})
        EXPECT_GT(counts[type], 0) << type;
}
