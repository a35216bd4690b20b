#include "ephemeris.h"

#include <stdexcept>

namespace ref {

namespace {

double pow2(int exponent) {
    return std::ldexp(1.0, exponent);
}
// Semicircles, with the pi of IS-GPS-200 20.3.3.4.3.
double semi(int exponent) {
    return std::ldexp(3.1415926535898, exponent);
}

// Steps in which the messages differ: Crs and Crc, the angle harmonics, toe.
struct Steps {
    int bits, radiusExp, angleExp, toeBits;
    double toeS;
};

// clang-format off
// The part common to all: DF086-100, DF435-449, DF297-311, DF498-512. Harmonics are in radians,
// angles in semicircles.
constexpr auto kOrbit = [](auto& io, auto& k, const Steps& f) {
    io.s(f.bits, k.crs, pow2(f.radiusExp)); io.s(16, k.deltaN, semi(-43));
    io.s(32, k.m0, semi(-31)); io.s(f.bits, k.cuc, pow2(f.angleExp)); io.u(32, k.e, pow2(-33));
    io.s(f.bits, k.cus, pow2(f.angleExp));  io.u(32, k.sqrtA, pow2(-19));
    io.u(f.toeBits, k.toe, f.toeS);
    io.s(f.bits, k.cic, pow2(f.angleExp));  io.s(32, k.node, semi(-31));
    io.s(f.bits, k.cis, pow2(f.angleExp));  io.s(32, k.i0, semi(-31));
    io.s(f.bits, k.crc, pow2(f.radiusExp)); io.s(32, k.perigee, semi(-31));
    io.s(24, k.nodeDot, semi(-43));
};

constexpr auto kGps = [](auto& io, auto& k) {
    io.u(6, k.id); io.u(10, k.week); io.u(4, k.ura); io.u(2, k.codeL2);           // DF009, 076-078
    io.s(14, k.idot, semi(-43)); io.u(8, k.iode); io.u(16, k.toc, 16.0);          // DF079, 071, 081
    io.s(8, k.af2, pow2(-55)); io.s(16, k.af1, pow2(-43)); io.s(22, k.af0, pow2(-31)); // DF082-084
    io.u(10, k.iodc);                                                             // DF085
    kOrbit(io, k, {16, -5, -29, 16, 16});
    io.s(8, k.tgd[0], pow2(-31)); io.u(6, k.health); io.u(1, k.l2p); io.u(1, k.fit); // DF101-3, 137
};

constexpr auto kBeidou = [](auto& io, auto& k) {
    io.u(6, k.id); io.u(13, k.week); io.u(4, k.ura); io.s(14, k.idot, semi(-43)); // DF488-491
    io.u(5, k.iode); io.u(17, k.toc, 8.0);                                        // DF492-493
    io.s(11, k.af2, pow2(-66)); io.s(22, k.af1, pow2(-50)); io.s(24, k.af0, pow2(-33)); // DF494-496
    io.u(5, k.iodc);                                                              // DF497
    kOrbit(io, k, {18, -6, -31, 17, 8});
    io.s(10, k.tgd[0], 1e-10); io.s(10, k.tgd[1], 1e-10); io.u(1, k.health);      // DF513-515
};

constexpr auto kQzss = [](auto& io, auto& k) {
    io.u(4, k.id); io.u(16, k.toc, 16.0);                                         // DF429-430
    io.s(8, k.af2, pow2(-55)); io.s(16, k.af1, pow2(-43)); io.s(22, k.af0, pow2(-31)); // DF431-433
    io.u(8, k.iode);                                                              // DF434
    kOrbit(io, k, {16, -5, -29, 16, 16});
    io.s(14, k.idot, semi(-43)); io.u(2, k.codeL2); io.u(10, k.week); io.u(4, k.ura); // DF450-453
    io.u(6, k.health); io.s(8, k.tgd[0], pow2(-31)); io.u(10, k.iodc); io.u(1, k.fit); // DF454-457
};

constexpr auto kGalileo = [](auto& io, auto& k) {
    io.u(6, k.id); io.u(12, k.week); io.u(10, k.iode); io.u(8, k.ura);            // DF252, 289-291
    io.s(14, k.idot, semi(-43)); io.u(14, k.toc, 60.0);                           // DF292-293
    io.s(6, k.af2, pow2(-59)); io.s(21, k.af1, pow2(-46)); io.s(31, k.af0, pow2(-34)); // DF294-296
    kOrbit(io, k, {16, -5, -29, 14, 60});
    const bool inav = k.type == 1046;
    io.s(10, k.tgd[0], pow2(-32));                                                // DF312
    if (inav)
        io.s(10, k.tgd[1], pow2(-32));                                            // DF313
    io.u(inav ? 6 : 3, k.health); // DF314-317, 287-288
    io.fixed(inav ? 2 : 7, 0);
};

constexpr auto kGlonass = [](auto& io, auto& g) {
    io.fixed(12, 1020); io.u(6, g.slot); io.u(5, g.channel, -7);                  // DF038, 040
    io.u(2, g.almanacHealth); io.u(2, g.p1);                                      // DF104-106
    io.u(5, g.tkHour); io.u(6, g.tkMinute); io.u(1, g.tkHalf);                    // DF107
    io.u(1, g.bn); io.u(1, g.p2); io.u(7, g.tb);                                  // DF108-110
    for (std::size_t i = 0; i < 3; ++i) {                                   // DF111-119
        io.sm(24, g.vel[i], pow2(-20)); io.sm(27, g.pos[i], pow2(-11));
        io.sm(5, g.acc[i], pow2(-30));
    }
    io.u(1, g.p3); io.sm(11, g.gamn, pow2(-40)); io.u(2, g.mp);                   // DF120-122
    io.u(1, g.ln3); io.sm(22, g.taun, pow2(-30));                                 // DF123-124
    io.sm(5, g.dtaun, pow2(-30)); io.u(5, g.en); io.u(1, g.p4);                   // DF125-127
    io.u(4, g.ft); io.u(11, g.nt); io.u(2, g.m); io.u(1, g.additional);           // DF128-131
    io.u(11, g.na); io.sm(32, g.tauc, pow2(-31)); io.u(5, g.n4);                  // DF132-134
    io.sm(22, g.tauGps, pow2(-30)); io.u(1, g.ln5); io.fixed(7, 0);               // DF135-136
};

constexpr auto kKepler = [](auto& io, auto& k) {
    io.u(12, k.type);
    switch (k.type) {
    case 1019: return kGps(io, k);
    case 63:
    case 1042: return kBeidou(io, k);
    case 1044: return kQzss(io, k);
    case 1045:
    case 1046: return kGalileo(io, k);
    default: throw std::invalid_argument("no Keplerian ephemeris: " + std::to_string(k.type));
    }
};
// clang-format on

} // namespace

Kepler readKepler(const Bytes& body) {
    auto k = readBody<Kepler>(body, kKepler);
    k.system = k.type == 1019                   ? 'G'
               : k.type == 1042 || k.type == 63 ? 'C'
               : k.type == 1044                 ? 'J'
                                                : 'E';
    if (k.system == 'E')
        k.iodc = k.iode;
    return k;
}

Glonass readGlonass(const Bytes& body) {
    return readBody<Glonass>(body, kGlonass);
}
Bytes writeKepler(const Kepler& k) {
    return writeBody(k, kKepler);
}
Bytes writeGlonass(const Glonass& g) {
    return writeBody(g, kGlonass);
}

} // namespace ref
