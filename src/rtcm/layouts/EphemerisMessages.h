#pragma once

#include "rtcm/rtcm.h"

/// EphemerisMessages: layouts of the broadcast ephemerides (RTCM 10403.x). A message is read into
/// wire values (angles in semicircles, weeks as broadcast); what they mean is decided afterwards.

/// Radians in a semicircle, as the interface documents fix it (IS-GPS-200 20.3.3.4.3).
inline constexpr double kSemicircle = 3.1415926535898;

/// Wire values of the Keplerian messages.
struct WireEph {
    int id = 0; // satellite id of the system
    int week = 0;
    int iode = 0, iodc = 0, sva = 0, svh = 0, code = 0, flag = 0;
    int longFit = 0;           // fit interval above 4 h
    int health2 = 0;           // second signal's health, Galileo
    int valid = 0, valid2 = 0; // data validity, Galileo
    double toc = 0, toe = 0;   // s of week
    double f0 = 0, f1 = 0, f2 = 0;
    double crs = 0, crc = 0;                            // m
    double cuc = 0, cus = 0, cic = 0, cis = 0;          // rad
    double deln = 0, M0 = 0, OMG0 = 0, i0 = 0, omg = 0; // semicircles (per s)
    double OMGd = 0, idot = 0;                          // semicircles/s
    double e = 0, sqrtA = 0;
    double tgd = 0, tgd2 = 0; // s
};

/// The orbit fields that GPS, QZSS and Galileo share, from Crs to the rate of the node; steps of
/// the reference time differ.
inline constexpr auto layoutOrbit = [](auto& b, auto& m, int toeBits, double toeStep) {
    b.s(16, m.crs, pow2(-5));
    b.s(16, m.deln, pow2(-43));
    b.s(32, m.M0, pow2(-31));
    b.s(16, m.cuc, pow2(-29));
    b.u(32, m.e, pow2(-33));
    b.s(16, m.cus, pow2(-29));
    b.u(32, m.sqrtA, pow2(-19));
    b.u(toeBits, m.toe, toeStep);
    b.s(16, m.cic, pow2(-29));
    b.s(32, m.OMG0, pow2(-31));
    b.s(16, m.cis, pow2(-29));
    b.s(32, m.i0, pow2(-31));
    b.s(16, m.crc, pow2(-5));
    b.s(32, m.omg, pow2(-31));
    b.s(24, m.OMGd, pow2(-43));
};

// GPS, fields DF009 and DF076 to DF137.
inline constexpr auto layout1019 = [](auto& b, auto& m) {
    b.fixed(12, 1019);
    b.u(6, m.id);
    b.u(10, m.week);
    b.u(4, m.sva);
    b.u(2, m.code);
    b.s(14, m.idot, pow2(-43));
    b.u(8, m.iode);
    b.u(16, m.toc, 16.0);
    b.s(8, m.f2, pow2(-55));
    b.s(16, m.f1, pow2(-43));
    b.s(22, m.f0, pow2(-31));
    b.u(10, m.iodc);
    layoutOrbit(b, m, 16, 16.0);
    b.s(8, m.tgd, pow2(-31));
    b.u(6, m.svh);
    b.u(1, m.flag);
    b.u(1, m.longFit);
};
static_assert(bitsOf<WireEph>(layout1019) == 488);

// QZSS, fields DF429 to DF457.
inline constexpr auto layout1044 = [](auto& b, auto& m) {
    b.fixed(12, 1044);
    b.u(4, m.id);
    b.u(16, m.toc, 16.0);
    b.s(8, m.f2, pow2(-55));
    b.s(16, m.f1, pow2(-43));
    b.s(22, m.f0, pow2(-31));
    b.u(8, m.iode);
    layoutOrbit(b, m, 16, 16.0);
    b.s(14, m.idot, pow2(-43));
    b.u(2, m.code);
    b.u(10, m.week);
    b.u(4, m.sva);
    b.u(6, m.svh);
    b.s(8, m.tgd, pow2(-31));
    b.u(10, m.iodc);
    b.u(1, m.longFit);
};
static_assert(bitsOf<WireEph>(layout1044) == 485);

// Galileo, fields DF252 and DF289 to DF312, the head of both messages.
inline constexpr auto layoutGalileo = [](auto& b, auto& m) {
    b.u(6, m.id);
    b.u(12, m.week);
    b.u(10, m.iode);
    b.u(8, m.sva);
    b.s(14, m.idot, pow2(-43));
    b.u(14, m.toc, 60.0);
    b.s(6, m.f2, pow2(-59));
    b.s(21, m.f1, pow2(-46));
    b.s(31, m.f0, pow2(-34));
    layoutOrbit(b, m, 14, 60.0);
    b.s(10, m.tgd, pow2(-32)); // BGD E5a/E1
};
inline constexpr auto layout1045 = [](auto& b, auto& m) {
    b.fixed(12, 1045);
    layoutGalileo(b, m);
    b.u(2, m.svh);   // DF314, E5a
    b.u(1, m.valid); // DF315
    b.fixed(7, 0);
};
static_assert(bitsOf<WireEph>(layout1045) == 496);
inline constexpr auto layout1046 = [](auto& b, auto& m) {
    b.fixed(12, 1046);
    layoutGalileo(b, m);
    b.s(10, m.tgd2, pow2(-32)); // DF313, BGD E5b/E1
    b.u(2, m.svh);              // DF316, E5b
    b.u(1, m.valid);            // DF317
    b.u(2, m.health2);          // DF287, E1-B
    b.u(1, m.valid2);           // DF288
    b.fixed(2, 0);
};
static_assert(bitsOf<WireEph>(layout1046) == 504);

// BDS, fields DF488 to DF515; reference times are BDT. Type 63 is its forerunner.
inline constexpr auto layoutBds = [](auto& b, auto& m) {
    b.u(6, m.id);
    b.u(13, m.week);
    b.u(4, m.sva);
    b.s(14, m.idot, pow2(-43));
    b.u(5, m.iode); // AODE
    b.u(17, m.toc, 8.0);
    b.s(11, m.f2, pow2(-66));
    b.s(22, m.f1, pow2(-50));
    b.s(24, m.f0, pow2(-33));
    b.u(5, m.iodc); // AODC
    b.s(18, m.crs, pow2(-6));
    b.s(16, m.deln, pow2(-43));
    b.s(32, m.M0, pow2(-31));
    b.s(18, m.cuc, pow2(-31));
    b.u(32, m.e, pow2(-33));
    b.s(18, m.cus, pow2(-31));
    b.u(32, m.sqrtA, pow2(-19));
    b.u(17, m.toe, 8.0);
    b.s(18, m.cic, pow2(-31));
    b.s(32, m.OMG0, pow2(-31));
    b.s(18, m.cis, pow2(-31));
    b.s(32, m.i0, pow2(-31));
    b.s(18, m.crc, pow2(-6));
    b.s(32, m.omg, pow2(-31));
    b.s(24, m.OMGd, pow2(-43));
    b.s(10, m.tgd, 1e-10);
    b.s(10, m.tgd2, 1e-10);
    b.u(1, m.svh);
};
inline constexpr auto layout1042 = [](auto& b, auto& m) {
    b.fixed(12, 1042);
    layoutBds(b, m);
};
inline constexpr auto layout63 = [](auto& b, auto& m) {
    b.fixed(12, 63);
    layoutBds(b, m);
};
static_assert(bitsOf<WireEph>(layout1042) == 511);

/// Wire values of the GLONASS message.
struct WireGlonass {
    int slot = 0;
    int channel = 0;                            // + 7
    int tkHours = 0, tkMinutes = 0, tkHalf = 0; // Moscow time; half minutes
    int tb = 0;                                 // quarter hours of the Moscow day
    int health = 0, age = 0, accuracy = 0;
    std::array<double, 3> posKm{}, velKmps{}, accKmps2{};
    double gamn = 0, taun = 0, dtaun = 0; // -, s, s
    int almanacHealth = 0, almanacHealthKnown = 0, p1 = 0, p2 = 0, p3 = 0, p = 0, ln = 0;
    int p4 = 0, nt = 0, satelliteType = 0;
    int additional = 0, na = 0, n4 = 0, ln5 = 0;
    double tauC = 0, tauGps = 0; // s
};

// GLONASS, fields DF038, DF040 and DF104 to DF136.
inline constexpr auto layout1020 = [](auto& b, auto& m) {
    b.fixed(12, 1020);
    b.u(6, m.slot);
    b.u(5, m.channel);
    b.u(1, m.almanacHealth);
    b.u(1, m.almanacHealthKnown);
    b.u(2, m.p1);
    b.u(5, m.tkHours);
    b.u(6, m.tkMinutes);
    b.u(1, m.tkHalf);
    b.u(1, m.health); // most significant bit of Bn
    b.u(1, m.p2);
    b.u(7, m.tb);
    for (std::size_t i = 0; i < 3; ++i) {
        b.sm(24, m.velKmps[i], pow2(-20));
        b.sm(27, m.posKm[i], pow2(-11));
        b.sm(5, m.accKmps2[i], pow2(-30));
    }
    b.u(1, m.p3);
    b.sm(11, m.gamn, pow2(-40));
    b.u(2, m.p);
    b.u(1, m.ln);
    b.sm(22, m.taun, pow2(-30));
    b.sm(5, m.dtaun, pow2(-30));
    b.u(5, m.age);
    b.u(1, m.p4);
    b.u(4, m.accuracy); // FT
    b.u(11, m.nt);
    b.u(2, m.satelliteType);
    b.u(1, m.additional);
    b.u(11, m.na);
    b.sm(32, m.tauC, pow2(-31));
    b.u(5, m.n4);
    b.sm(22, m.tauGps, pow2(-30));
    b.u(1, m.ln5);
    b.fixed(7, 0);
};
static_assert(bitsOf<WireGlonass>(layout1020) == 360);
