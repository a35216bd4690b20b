#include "vrs/VrsObsPack.h"

#include <utility>

void VrsObsPack_Initial(VrsObsPack& pack) {
    pack.name.clear();
    pack.mjd = 0;
    pack.sod = 0.0;
    pack.obs.clear();
    pack.xyz = {};
    if (std::exchange(pack.ranged, false)) {
        pack.referenceRange.fill(0.0);
        pack.ephemerisIndex.fill(-1);
    }
    if (std::exchange(pack.modelled, false)) {
        pack.elevation.fill(0.0);
        pack.azimuth.fill(0.0);
    }
    pack.reply.totalLength = pack.reply.frameLength = pack.reply.bits = 0;
    pack.reply.stationId = 0;
}

void VrsObsPack_Readobs(VrsObsPack& pack, CurrentEpoch& current, std::size_t station) {
    StationEpoch& stored = current.stationEpochs[station];
    pack.name = stored.name;
    pack.mjd = current.currentMjd;
    pack.sod = current.currentSod;
    std::swap(pack.obs, stored.obs);
    stored.obs.clear(); // the next epoch holds what its own messages carry
}
