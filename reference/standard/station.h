/// RTCM 10403.x: what a station says about itself. Metres.
#pragma once

#include "bits.h"
#include "geometry.h"

#include <array>
#include <vector>

namespace ref {

struct Station1005 {
    int type = 1005, station = 0, itrf = 0;
    bool gps = true, glonass = true, galileo = false, computed = false;
    bool oneOscillator = true;
    int quarterCycle = 0;
    Vec3 xyzM{};
    double heightM = 0; ///< 1006 only
};
Station1005 read1005(const Bytes& body); ///< 1005 or 1006
Bytes write1005(const Station1005& s);   ///< 1005 or 1006 by type

struct Text1033 {
    int station = 0;
    std::string antenna;
    int setup = 0;
    std::string antennaSerial, receiver, firmware, receiverSerial;
};
Text1033 read1033(const Bytes& body);
/// 1007 or 1008.
Text1033 readAntenna(const Bytes& body);
Bytes write1033(const Text1033& t);
Bytes write1007(const Text1033& t); ///< its antenna
Bytes write1008(const Text1033& t); ///< its antenna with the serial number

struct Announcement {
    int type = 0;
    bool synchronous = false;
    double intervalS = 0;
};
Bytes write1013(int station, GpsTime t, const std::vector<Announcement>& announcements);

/// All four biases of GLONASS: L1 C/A, L1 P, L2 C/A, L2 P.
Bytes write1230(int station, bool aligned, const std::array<double, 4>& biasesM);

} // namespace ref
