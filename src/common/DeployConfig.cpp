#include "common/DeployConfig.h"

#include "common/ComText.h"

DeployConfig DLY;

void strinit(Stream& stream) {
    stream = {};
}

namespace {

/// The number of a satellite whose name a stream can carry; 0 for another name, such as "G5".
std::size_t numberOf(std::string_view name) {
    const int sat = satid2no(name);
    return sat > 0 && satno2id(sat) == name ? static_cast<std::size_t>(sat) : 0;
}

} // namespace

void DeployConfig::indexSatellite(std::size_t place) {
    if (const std::size_t sat = numberOf(satelliteNames[place]); sat && satelliteIndex[sat] < 0)
        satelliteIndex[sat] = static_cast<std::int16_t>(place);
}

void DeployConfig::indexSatellites() {
    satelliteIndex = noSatellites();
    for (std::size_t place = 0; place < satelliteNames.size(); ++place)
        indexSatellite(place);
}

int DeployConfig::satelliteNamed(std::string_view name) const {
    const std::size_t sat = numberOf(name);
    return sat ? satelliteIndex[sat] : pointer_string(satelliteNames, name);
}
