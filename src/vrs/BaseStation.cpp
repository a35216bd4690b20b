#include "vrs/BaseStation.h"

#include "base/Print.h"
#include "rinex/Rnxobs.h"
#include "vrs/Generator.h"
#include "vrs/VrsEncoder.h"

void VrsBaseStation_m_save(const VrsSources& in, const VrsObsPack& reference) {
    if (in.switches.vrsSave && in.switches.rawSave) {
        print(Lasting{Cause::savingSwitches},
              "***WARN(BaseStation): Can't save vrs and raw obs at the same time!\n");
        return;
    }
    if (in.switches.vrsSave) // deliberate: never the virtual epoch
        print(Lasting{Cause::savingSwitches},
              "***ERROR(BaseStation): Not support output vrs, now use -rawsav\n");
    if (in.switches.vrsSave || in.switches.rawSave)
        VrsBaseStation_m_outputObservation(in, reference);
}

void VrsBaseStation_Initial(VrsBaseStation& base) {
    base = {};
}

void VrsBaseStation_m_process(VirtualStation& station, const VrsSources& in, VrsBaseStation& base,
                              const RequestRecord& request) {
    VrsGenerator_s_genVirtualObs(station, in, base, request);
    VrsBaseStation_m_save(in, station.reference);
    base.reply = VrsEncoder_m_encodeReply({station.encoders, in.session, in.epoch}, station.answer,
                                          request.requestWord);
}

int VrsBaseStation_m_outputObservation(const VrsSources& in, const VrsObsPack& pack) {
    RinexWriter writer;
    Rnxobs_initial(writer);
    writer.station = pack.name;
    writer.obs = &pack.obs;
    writer.session = &in.session;
    writer.folder = &in.folder;
    return Rnxobs_v_outFileObs(writer, pack.mjd, pack.sod);
}

int VrsBaseStation_v_readOrbit(const OrbitSource& in, std::size_t satellite, int mjd,
                               OrbitState& position, int& ephemerisIndex, double sod) {
    return satelliteState(in, satellite, {mjd, sod}, position, ephemerisIndex) ? 1 : 0;
}
