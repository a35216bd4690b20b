/// Broadcast ephemerides in RTCM 10403.x: 1019, 1042, 1044, 1045, 1046 and 1020.
#pragma once

#include "bits.h"
#include "geometry.h"

#include <array>

namespace ref {

/// GPS, BeiDou, QZSS, Galileo. Radians with pi = 3.1415926535898 per semicircle, metres, seconds.
struct Kepler {
    int type = 0; ///< message number, decides the layout
    char system = 'G';
    int id = 0;
    int week = 0;           ///< as broadcast: modulo 1024 (G, J), GST week, BDT week
    int ura = 0;            ///< URA, URAI or SISA index
    int iode = 0, iodc = 0; ///< AODE, AODC; Galileo: both IODnav
    int health = 0;         ///< the health and validity bits in order
    int codeL2 = 0, l2p = 0, fit = 0;
    double toe = 0, toc = 0; ///< s of the system's week
    double af0 = 0, af1 = 0, af2 = 0;
    double sqrtA = 0, e = 0, i0 = 0, node = 0, perigee = 0, m0 = 0;
    double deltaN = 0, nodeDot = 0, idot = 0;
    double crc = 0, crs = 0, cuc = 0, cus = 0, cic = 0, cis = 0;
    std::array<double, 2> tgd{}; ///< TGD; TGD1, TGD2; BGD E5a/E1, E5b/E1
};

/// PZ-90, km, s; clock terms with the signs of the GLONASS ICD.
struct Glonass {
    int slot = 0, channel = 0;
    int almanacHealth = 0, p1 = 0, p2 = 0, p3 = 0, bn = 0, mp = 0, ln3 = 0, en = 0, p4 = 0, ft = 0;
    int nt = 0, m = 0, additional = 0, na = 0, n4 = 0, ln5 = 0;
    int tkHour = 0, tkMinute = 0, tkHalf = 0; ///< Moscow time, tkHalf in 30 s
    int tb = 0;                               ///< 15 min of the Moscow day
    Vec3 pos{}, vel{}, acc{};
    double gamn = 0, taun = 0, dtaun = 0, tauc = 0, tauGps = 0;
};

/// std::invalid_argument for another type, std::out_of_range for a body that is too short.
Kepler readKepler(const Bytes& body);
Glonass readGlonass(const Bytes& body);
/// Values are rounded to the steps of their fields; one that does not fit throws std::out_of_range.
Bytes writeKepler(const Kepler& k);
Bytes writeGlonass(const Glonass& g);

} // namespace ref
