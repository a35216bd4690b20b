#include "vrs/VrsMain.h"

#include "common/DeployConfig.h"
#include "common/Print.h"
#include "vrs/BaseStation.h"
#include "vrs/VrsObsPack.h"

#include <algorithm>
#include <cmath>

namespace {

/// Workspace of a request; a pack is too large to be built anew for every epoch.
VrsObsPack referencePack;

/// Puts the virtual station at its offset from the reference.
void placeVirtual(RequestRecord& request, const Vector3& reference) {
    request.blh = xyzblh(reference, 1.0, 0.0, 0.0, 0.0, 0.0, 0.0);
    request.blh[0] += kVirtualLatitudeShift;
    request.xyz = blhxyz(request.blh, 0.0, 0.0);
    request.distanceM = distance(reference, request.xyz);
}

} // namespace

void VrsObsPack_Initial(VrsObsPack& pack) {
    pack.name.clear();
    pack.mjd = 0;
    pack.sod = 0.0;
    pack.obs.clear();
    pack.xyz = {};
    pack.referenceRange.fill(0.0);
    pack.elevation.fill(0.0);
    pack.azimuth.fill(0.0);
    pack.ephemerisIndex.fill(-1);
    pack.reply.totalLength = pack.reply.frameLength = pack.reply.bits = 0;
    pack.reply.stationId = 0;
}

void VrsObsPack_Readobs(VrsObsPack& pack, const StationEpoch& station) {
    pack.name = station.name;
    pack.mjd = DLY.currentMjd;
    pack.sod = DLY.currentSod;
    pack.obs.copyFrom(station.obs);
}

int VrsMain(std::size_t station, std::span<std::uint8_t> reply) {
    VrsObsPack_Initial(referencePack);
    VrsObsPack_Readobs(referencePack, DLY.stationEpochs[station]);
    DLY.stationEpochs[station].obs.clear(); // the next epoch holds what its own messages carry
    if (referencePack.name.empty())
        referencePack.name = DLY.stationNames[station];

    const StationRecord& reference = DLY.stations[station];
    if (!usable(reference.xyz)) {
        print(Lasting{Cause::noCoordinates},
              "***WARN: %s has no usable coordinates, epoch is not answered!\n",
              reference.name.c_str());
        VrsBaseStation_m_save(referencePack);
        return 0;
    }
    VrsBaseStation base;
    VrsBaseStation_Initial(base);
    base.name = reference.name;
    base.xyz = reference.xyz;
    RequestRecord request = DLY.requests[std::min(station, DLY.requests.size() - 1)];
    placeVirtual(request, reference.xyz);
    referencePack.xyz = reference.xyz;
    VrsBaseStation_m_process(base, referencePack, request);

    print(Level::debug, "***INFO: Create a buff, size=%d\n", static_cast<int>(base.reply.size()));
    std::copy(base.reply.begin(), base.reply.end(), reply.begin());
    return static_cast<int>(base.reply.size());
}
