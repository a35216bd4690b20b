#include "vrs/VrsMain.h"

#include "base/Print.h"
#include "rinex/Rnxobs.h"
#include "vrs/Generator.h"
#include "vrs/VrsEncoder.h"

#include <algorithm>
#include <cmath>

namespace {

/// Puts the virtual station at its offset from the reference.
void placeVirtual(RequestRecord& request, const Vector3& reference) {
    request.blh = xyzblh(reference, 1.0, 0.0, 0.0, 0.0, 0.0, 0.0);
    request.blh[0] += kVirtualLatitudeShift;
    request.xyz = blhxyz(request.blh, 0.0, 0.0);
    request.distanceM = distance(reference, request.xyz);
}

} // namespace

int VrsMain(VirtualStation& virtualStation, const VrsSources& in, std::size_t station,
            std::span<std::uint8_t> reply) {
    VrsObsPack& referencePack = virtualStation.reference;
    VrsObsPack_Initial(referencePack);
    VrsObsPack_Readobs(referencePack, in.epoch, station);
    in.epoch.stationEpochs[station].obs.clear(); // the next epoch holds what its own messages carry
    if (referencePack.name.empty())
        referencePack.name = in.session.stationNames[station];

    const StationRecord& reference = in.session.stations[station];
    if (!usable(reference.xyz)) {
        print(Lasting{Cause::noCoordinates},
              "***WARN: %s has no usable coordinates, epoch is not answered!\n",
              reference.name.c_str());
        VrsBaseStation_m_save(in, referencePack);
        return 0;
    }
    VrsBaseStation base;
    VrsBaseStation_Initial(base);
    base.name = reference.name;
    base.xyz = reference.xyz;
    RequestRecord request = in.session.requests[std::min(station, in.session.requests.size() - 1)];
    placeVirtual(request, reference.xyz);
    referencePack.xyz = reference.xyz;
    VrsBaseStation_m_process(virtualStation, in, base, request);

    print(Level::debug, "***INFO: Create a buff, size=%d\n", static_cast<int>(base.reply.size()));
    std::copy(base.reply.begin(), base.reply.end(), reply.begin());
    return static_cast<int>(base.reply.size());
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

int VrsBaseStation_m_outputObservation(const VrsSources& in, const VrsObsPack& pack) {
    RinexWriter writer;
    Rnxobs_initial(writer);
    writer.station = pack.name;
    writer.obs = &pack.obs;
    writer.session = &in.session;
    writer.folder = &in.folder;
    return Rnxobs_v_outFileObs(writer, pack.mjd, pack.sod);
}
