#include "common/DeployConfig.h"

#include "common/ComText.h"

DeployConfig DLY;

void strinit(Stream& stream) {
    stream = {};
}

void DeployConfig::indexSatellites() {
    for (int sat = 1; sat <= kMaxSatNumber; ++sat)
        satelliteIndex[static_cast<std::size_t>(sat)] =
            static_cast<std::int16_t>(pointer_string(satelliteNames, satno2id(sat)));
}
