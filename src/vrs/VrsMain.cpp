#include "vrs/VrsMain.h"

#include "base/Print.h"
#include "gnss/ComTime.h"
#include "rinex/Rnxobs.h"
#include "vrs/Generator.h"
#include "vrs/VrsEncoder.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace {

constexpr double kIntroducedEveryS = 10.0;

/// Puts the virtual station at its offset from the reference.
void placeVirtual(RequestRecord& request, const Vector3& reference,
                  const std::optional<Vector3>& offsetM) {
    request.blh = xyzblh(reference, 1.0, 0.0, 0.0, 0.0, 0.0, 0.0);
    if (offsetM) {
        const Vector3 away = matmpy<3, 3, 1>(rot_enu2xyz(request.blh[0], request.blh[1]), *offsetM);
        for (std::size_t i = 0; i < away.size(); ++i)
            request.xyz[i] = reference[i] + away[i];
        request.blh = xyzblh(request.xyz, 1.0, 0.0, 0.0, 0.0, 0.0, 0.0);
    } else {
        request.blh[0] += kVirtualLatitudeShift;
        request.xyz = blhxyz(request.blh, 0.0, 0.0);
    }
    request.distanceM = distance(reference, request.xyz);
}

bool introductionIsDue(const VirtualStation& station, MjdTime now) {
    if (!station.introduced)
        return true;
    const auto& [mjd, sod] = *station.introduced;
    const double ageS = timdif(now.mjd, mjd, now.sod, sod);
    return ageS >= kIntroducedEveryS || ageS < 0.0;
}

} // namespace

int VrsMain(VirtualStation& virtualStation, const VrsSources& in, std::size_t station,
            std::span<std::uint8_t> reply) {
    VrsObsPack& referencePack = virtualStation.reference;
    VrsObsPack_Initial(referencePack);
    VrsObsPack_Readobs(referencePack, in.epoch, station);
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
    placeVirtual(request, reference.xyz, in.session.answering.offsetM);
    referencePack.xyz = reference.xyz;
    VrsBaseStation_m_process(virtualStation, in, base, request);

    print(Level::debug, "***INFO: Create a buff, size=%d\n", static_cast<int>(base.reply.size()));
    if (base.reply.size() > reply.size())
        return 0;
    std::copy(base.reply.begin(), base.reply.end(), reply.begin());
    return static_cast<int>(base.reply.size());
}

void VrsBaseStation_Initial(VrsBaseStation& base) {
    base = {};
}

void VrsBaseStation_m_process(VirtualStation& station, const VrsSources& in, VrsBaseStation& base,
                              const RequestRecord& request) {
    const Answering& answering = in.session.answering;
    const MjdTime now{in.epoch.currentMjd, in.epoch.currentSod};
    const MovedMessages moved{in.received, station.changes};
    if (answering.complete)
        VrsGenerator_m_changes(station, in, request);
    else
        VrsGenerator_s_genVirtualObs(station, in, base, request);
    VrsBaseStation_m_save(in, station.reference);
    const bool introduces = !answering.plain || introductionIsDue(station, now);
    base.reply = VrsEncoder_m_encodeReply({station.encoders, in.session, in.epoch, &in.sender,
                                           answering.complete ? &moved : nullptr, introduces},
                                          station.answer, request.requestWord);
    if (introduces && !base.reply.empty())
        station.introduced = now;
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
