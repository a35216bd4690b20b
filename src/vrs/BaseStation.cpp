#include "vrs/BaseStation.h"

#include "common/ComTime.h"
#include "common/GTime.h"
#include "common/Print.h"
#include "rinex/Rnxobs.h"
#include "vrs/Generator.h"
#include "vrs/VrsEncoder.h"

namespace {

/// Workspace of the virtual epoch; the reply frame is built in it.
VrsObsPack virtualPack;

} // namespace

void VrsBaseStation_m_save(const VrsObsPack& reference) {
    if (DLY.vrsSave && DLY.rawSave) {
        print(Lasting{Cause::savingSwitches},
              "***WARN(BaseStation): Can't save vrs and raw obs at the same time!\n");
        return;
    }
    if (DLY.vrsSave) // deliberate: never the virtual epoch
        print(Lasting{Cause::savingSwitches},
              "***ERROR(BaseStation): Not support output vrs, now use -rawsav\n");
    if (DLY.vrsSave || DLY.rawSave)
        VrsBaseStation_m_outputObservation(reference);
}

void VrsBaseStation_Initial(VrsBaseStation& base) {
    base = {};
}

void VrsBaseStation_m_process(VrsBaseStation& base, VrsObsPack& reference,
                              const RequestRecord& request) {
    VrsGenerator_s_genVirtualObs(virtualPack, base, reference, request);
    VrsBaseStation_m_save(reference);
    base.reply = VrsEncoder_m_encodeReply(virtualPack, request.requestWord);
}

int VrsBaseStation_m_outputObservation(const VrsObsPack& pack) {
    RinexWriter writer;
    Rnxobs_initial(writer);
    writer.station = pack.name;
    writer.obs = &pack.obs;
    return Rnxobs_v_outFileObs(writer, pack.mjd, pack.sod);
}

int VrsBaseStation_v_readOrbit(std::size_t satellite, int mjd, OrbitState& position,
                               int& ephemerisIndex, double sod) {
    return satelliteState(satellite, {mjd, sod}, position, ephemerisIndex) ? 1 : 0;
}
