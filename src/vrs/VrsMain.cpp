#include "vrs/VrsMain.h"

#include "base/Print.h"
#include "vrs/BaseStation.h"
#include "vrs/VrsObsPack.h"

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
