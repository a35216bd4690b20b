#include "vrs/BaseStation.h"

#include "common/ComTime.h"
#include "common/GTime.h"
#include "vrs/Generator.h"
#include "vrs/VrsEncoder.h"

namespace {

/// Workspace of the virtual epoch; the reply frame is built in it.
VrsObsPack virtualPack;

} // namespace

void VrsBaseStation_Initial(VrsBaseStation& base) {
    base = {};
}

void VrsBaseStation_m_process(VrsBaseStation& base, VrsObsPack& reference,
                              const RequestRecord& request) {
    VrsGenerator_s_genVirtualObs(virtualPack, base, reference, request);
    base.reply = VrsEncoder_m_encodeReply(virtualPack, request.requestWord);
}

int VrsBaseStation_v_readOrbit(std::size_t satellite, int mjd, OrbitState& position,
                               int& ephemerisIndex, double sod) {
    const WeekTime t = mjd2wksow(mjd, sod);
    position = {};
    double clock = 0.0;
    switch (DLY.satelliteNames[satellite].front()) {
    case 'R':
        return BrdUtils_m_gls2xyz("yyy", satellite, t.week, position, clock, ephemerisIndex, t.sow);
    case 'C':
        return BrdUtils_m_brd2xyz("yyy", satellite, t.week, position, clock, ephemerisIndex,
                                  t.sow - kBdtOffset);
    default:
        return BrdUtils_m_brd2xyz("yyy", satellite, t.week, position, clock, ephemerisIndex, t.sow);
    }
}
