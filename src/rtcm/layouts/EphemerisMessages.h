#pragma once

#include "rtcm/rtcm.h"

/// EphemerisMessages: layouts of the broadcast ephemerides (RTCM 10403.x). A message is read into
/// the decoder's record; weeks and health stand there as broadcast until their meaning is decided.

/// Radians in a semicircle, as the interface documents fix it (IS-GPS-200 20.3.3.4.3).
inline constexpr double kSemicircle = 3.1415926535898;

/// A Keplerian message: the record, and what else the message says.
struct KeplerMessage : EphRecord {
    int type = 0;
    System system = kNoSystem;
    int id = 0;                // satellite id of the system
    double sqrtA = 0;          // sqrt(m)
    double tocs = 0;           // toc, s of week
    int longFit = 0;           // fit interval above 4 h
    int health2 = 0;           // second signal's health, Galileo
    int valid = 0, valid2 = 0; // data validity, Galileo
};

/// PRN of a satellite whose id would be 0.
constexpr int prnOfZero(System system) {
    return system == kQzss ? 192 : 0;
}

/// Radians in a step of so many semicircles, 2^exponent.
constexpr double semicircles(int exponent) {
    return kSemicircle * pow2(exponent);
}
constexpr DataField angle(int number, const char* name) {
    return df(number, name, "semicircles", kSemicircle);
}
constexpr DataField angleRate(int number, const char* name) {
    return df(number, name, "semicircles/s", kSemicircle);
}

/// In what the orbit of the systems differs: the number of its first field; widths of the
/// corrections and exponents of their steps, m and rad; width of toe and its step, s.
struct OrbitForm {
    int df;
    int width, metres, radians;
    int toeWidth, toeStepS;
};

// clang-format off
/// Fifteen numbers in a row that all systems have.
template <OrbitForm f> inline constexpr auto layoutOrbit = [](auto& b, auto& m) {
    b.s(f.width,  m.crs,   pow2(f.metres),   df(f.df, "Crs", "m"));
    b.s(16,       m.deln,  semicircles(-43), angleRate(f.df + 1, "delta n"));
    b.s(32,       m.M0,    semicircles(-31), angle(f.df + 2, "M0"));
    b.s(f.width,  m.cuc,   pow2(f.radians),  df(f.df + 3, "Cuc", "rad"));
    b.u(32,       m.e,     pow2(-33),        df(f.df + 4, "eccentricity"));
    b.s(f.width,  m.cus,   pow2(f.radians),  df(f.df + 5, "Cus", "rad"));
    b.u(32,       m.sqrtA, pow2(-19),        df(f.df + 6, "sqrt(A)", "sqrt(m)"));
    b.u(f.toeWidth, m.toes, f.toeStepS,      df(f.df + 7, "toe", "s"));
    b.s(f.width,  m.cic,   pow2(f.radians),  df(f.df + 8, "Cic", "rad"));
    b.s(32,       m.OMG0,  semicircles(-31), angle(f.df + 9, "OMEGA0"));
    b.s(f.width,  m.cis,   pow2(f.radians),  df(f.df + 10, "Cis", "rad"));
    b.s(32,       m.i0,    semicircles(-31), angle(f.df + 11, "i0"));
    b.s(f.width,  m.crc,   pow2(f.metres),   df(f.df + 12, "Crc", "m"));
    b.s(32,       m.omg,   semicircles(-31), angle(f.df + 13, "omega"));
    b.s(24,       m.OMGd,  semicircles(-43), angleRate(f.df + 14, "OMEGADOT"));
};

inline constexpr auto layout1019 = [](auto& b, auto& m) {
    b.fixed(12, 1019,                   df(2, "message number"));
    b.u(6,  m.id,                       df(9, "satellite id"));
    b.u(10, m.week,                     df(76, "week modulo 1024"));
    b.u(4,  m.sva,                      df(77, "URA index"));
    b.u(2,  m.code,                     df(78, "code on L2"));
    b.s(14, m.idot, semicircles(-43),   angleRate(79, "IDOT"));
    b.u(8,  m.iode,                     df(71, "IODE"));
    b.u(16, m.tocs, 16.0,               df(81, "toc", "s"));
    b.s(8,  m.f2, pow2(-55),            df(82, "af2", "s/s^2"));
    b.s(16, m.f1, pow2(-43),            df(83, "af1", "s/s"));
    b.s(22, m.f0, pow2(-31),            df(84, "af0", "s"));
    b.u(10, m.iodc,                     df(85, "IODC"));
    layoutOrbit<OrbitForm{86, 16, -5, -29, 16, 16}>(b, m);
    b.s(8,  m.tgd[0], pow2(-31),        df(101, "TGD", "s"));
    b.u(6,  m.svh,                      df(102, "SV health"));
    b.u(1,  m.flag,                     df(103, "L2 P data flag"));
    b.u(1,  m.longFit,                  df(137, "fit interval flag"));
};

inline constexpr auto layout1044 = [](auto& b, auto& m) {
    b.fixed(12, 1044,                   df(2, "message number"));
    b.u(4,  m.id,                       df(429, "satellite id"));
    b.u(16, m.tocs, 16.0,               df(430, "toc", "s"));
    b.s(8,  m.f2, pow2(-55),            df(431, "af2", "s/s^2"));
    b.s(16, m.f1, pow2(-43),            df(432, "af1", "s/s"));
    b.s(22, m.f0, pow2(-31),            df(433, "af0", "s"));
    b.u(8,  m.iode,                     df(434, "IODE"));
    layoutOrbit<OrbitForm{435, 16, -5, -29, 16, 16}>(b, m);
    b.s(14, m.idot, semicircles(-43),   angleRate(450, "IDOT"));
    b.u(2,  m.code,                     df(451, "codes on L2"));
    b.u(10, m.week,                     df(452, "week modulo 1024"));
    b.u(4,  m.sva,                      df(453, "URA index"));
    b.u(6,  m.svh,                      df(454, "SV health"));
    b.s(8,  m.tgd[0], pow2(-31),        df(455, "TGD", "s"));
    b.u(10, m.iodc,                     df(456, "IODC"));
    b.u(1,  m.longFit,                  df(457, "fit interval flag"));
};

// Galileo: the beginning of both messages.
template <int type> inline constexpr auto layoutGalileo = [](auto& b, auto& m) {
    b.fixed(12, type,                   df(2, "message number"));
    b.u(6,  m.id,                       df(252, "satellite id"));
    b.u(12, m.week,                     df(289, "week"));
    b.u(10, m.iode,                     df(290, "IODnav"));
    b.u(8,  m.sva,                      df(291, "SISA index"));
    b.s(14, m.idot, semicircles(-43),   angleRate(292, "IDOT"));
    b.u(14, m.tocs, 60.0,               df(293, "toc", "s"));
    b.s(6,  m.f2, pow2(-59),            df(294, "af2", "s/s^2"));
    b.s(21, m.f1, pow2(-46),            df(295, "af1", "s/s"));
    b.s(31, m.f0, pow2(-34),            df(296, "af0", "s"));
    layoutOrbit<OrbitForm{297, 16, -5, -29, 14, 60}>(b, m);
    b.s(10, m.tgd[0], pow2(-32),        df(312, "BGD E5a/E1", "s"));
};
inline constexpr auto layout1045 = [](auto& b, auto& m) {
    layoutGalileo<1045>(b, m);
    b.u(2,  m.svh,                      df(314, "E5a health"));
    b.u(1,  m.valid,                    df(315, "E5a data validity"));
    b.fixed(7, 0,                       df(1, "reserved"));
};
inline constexpr auto layout1046 = [](auto& b, auto& m) {
    layoutGalileo<1046>(b, m);
    b.s(10, m.tgd[1], pow2(-32),        df(313, "BGD E5b/E1", "s"));
    b.u(2,  m.svh,                      df(316, "E5b health"));
    b.u(1,  m.valid,                    df(317, "E5b data validity"));
    b.u(2,  m.health2,                  df(287, "E1-B health"));
    b.u(1,  m.valid2,                   df(288, "E1-B data validity"));
    b.fixed(2, 0,                       df(1, "reserved"));
};

// BDS; reference times are BDT. Type 63 is the forerunner of 1042.
template <int type> inline constexpr auto layoutBds = [](auto& b, auto& m) {
    b.fixed(12, type,                   df(2, "message number"));
    b.u(6,  m.id,                       df(488, "satellite id"));
    b.u(13, m.week,                     df(489, "week"));
    b.u(4,  m.sva,                      df(490, "URA index"));
    b.s(14, m.idot, semicircles(-43),   angleRate(491, "IDOT"));
    b.u(5,  m.iode,                     df(492, "AODE"));
    b.u(17, m.tocs, 8.0,                df(493, "toc", "s"));
    b.s(11, m.f2, pow2(-66),            df(494, "a2", "s/s^2"));
    b.s(22, m.f1, pow2(-50),            df(495, "a1", "s/s"));
    b.s(24, m.f0, pow2(-33),            df(496, "a0", "s"));
    b.u(5,  m.iodc,                     df(497, "AODC"));
    layoutOrbit<OrbitForm{498, 18, -6, -31, 17, 8}>(b, m);
    b.s(10, m.tgd[0], 1e-10,            df(513, "TGD1", "s"));
    b.s(10, m.tgd[1], 1e-10,            df(514, "TGD2", "s"));
    b.u(1,  m.svh,                      df(515, "SV health"));
};

/// The GLONASS message: the record, and what else the message says.
struct GlonassMessage : GloEphRecord {
    int type = 0;
    System system = kNoSystem;
    int slot = 0;
    int channel = 0;                            // + 7
    int tkHours = 0, tkMinutes = 0, tkHalf = 0; // Moscow time; half minutes
    int tb = 0;                                 // quarter hours of the Moscow day
    int almanacHealth = 0, almanacHealthKnown = 0, p1 = 0, p2 = 0, p3 = 0, p = 0, ln = 0;
    int p4 = 0, nt = 0, satelliteType = 0;
    int additional = 0, na = 0, n4 = 0, ln5 = 0;
    double tauC = 0, tauGps = 0; // s
};
/// Metres in a step of so many kilometres, 2^exponent.
constexpr double kilometres(int exponent) {
    return 1000.0 * pow2(exponent);
}

inline constexpr auto layout1020 = [](auto& b, auto& m) {
    b.fixed(12, 1020,                   df(2, "message number"));
    b.u(6,  m.slot,                     df(38, "satellite id"));
    b.u(5,  m.channel,                  DataField{40, "frequency channel", "", 1.0, -7});
    b.u(1,  m.almanacHealth,            df(104, "almanac health"));
    b.u(1,  m.almanacHealthKnown,       df(105, "almanac health availability"));
    b.u(2,  m.p1,                       df(106, "P1"));
    b.u(5,  m.tkHours,                  df(107, "tk hours", "h"));
    b.u(6,  m.tkMinutes,                df(107, "tk minutes", "min"));
    b.u(1,  m.tkHalf,                   df(107, "tk half minutes"));
    b.u(1,  m.svh,                      df(108, "Bn, most significant bit"));
    b.u(1,  m.p2,                       df(109, "P2"));
    b.u(7,  m.tb,                       df(110, "tb", "15 min"));
    b.sm(24, m.vel[0], kilometres(-20), df(111, "X velocity", "km/s", 1000.0));
    b.sm(27, m.pos[0], kilometres(-11), df(112, "X", "km", 1000.0));
    b.sm(5,  m.acc[0], kilometres(-30), df(113, "X acceleration", "km/s^2", 1000.0));
    b.sm(24, m.vel[1], kilometres(-20), df(114, "Y velocity", "km/s", 1000.0));
    b.sm(27, m.pos[1], kilometres(-11), df(115, "Y", "km", 1000.0));
    b.sm(5,  m.acc[1], kilometres(-30), df(116, "Y acceleration", "km/s^2", 1000.0));
    b.sm(24, m.vel[2], kilometres(-20), df(117, "Z velocity", "km/s", 1000.0));
    b.sm(27, m.pos[2], kilometres(-11), df(118, "Z", "km", 1000.0));
    b.sm(5,  m.acc[2], kilometres(-30), df(119, "Z acceleration", "km/s^2", 1000.0));
    b.u(1,  m.p3,                       df(120, "P3"));
    b.sm(11, m.gamn, pow2(-40),         df(121, "gamma_n"));
    b.u(2,  m.p,                        df(122, "P"));
    b.u(1,  m.ln,                       df(123, "l_n, third string"));
    b.sm(22, m.taun, pow2(-30),         df(124, "tau_n", "s"));
    b.sm(5, m.dtaun, pow2(-30),         df(125, "delta tau_n", "s"));
    b.u(5,  m.age,                      df(126, "E_n, age of data", "days"));
    b.u(1,  m.p4,                       df(127, "P4"));
    b.u(4,  m.sva,                      df(128, "F_T"));
    b.u(11, m.nt,                       df(129, "N_T", "days"));
    b.u(2,  m.satelliteType,            df(130, "M, kind of satellite"));
    b.u(1,  m.additional,               df(131, "additional data available"));
    b.u(11, m.na,                       df(132, "N_A", "days"));
    b.sm(32, m.tauC, pow2(-31),         df(133, "tau_c", "s"));
    b.u(5,  m.n4,                       df(134, "N_4"));
    b.sm(22, m.tauGps, pow2(-30),       df(135, "tau_GPS", "s"));
    b.u(1,  m.ln5,                      df(136, "l_n, fifth string"));
    b.fixed(7, 0,                       df(1, "reserved"));
};
// clang-format on
