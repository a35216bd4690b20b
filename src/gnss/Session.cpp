#include "gnss/Session.h"

#include "base/ComText.h"

#include <algorithm>

namespace {

std::int16_t slotOfCode(const std::vector<std::string>& frequencies, std::string_view code) {
    for (std::size_t k = 0; k < frequencies.size() && !code.empty(); ++k)
        if (frequencies[k].size() > 1 && frequencies[k][1] == code[0])
            return static_cast<std::int16_t>(k);
    return -1;
}

/// The number of a satellite whose name a stream can carry; 0 for another name, such as "G5".
std::size_t numberOf(std::string_view name) {
    const int sat = satid2no(name);
    return sat > 0 && satno2id(sat) == name ? static_cast<std::size_t>(sat) : 0;
}

} // namespace

void Session::indexSatellite(std::size_t place) {
    satelliteNumber[place] = static_cast<std::uint8_t>(satid2no(satelliteNames[place]));
    if (const std::size_t sat = numberOf(satelliteNames[place]); sat && satelliteIndex[sat] < 0)
        satelliteIndex[sat] = static_cast<std::int16_t>(place);
}

void Session::indexSatellites() {
    satelliteIndex = noSatellites();
    carrierHz = {};
    for (std::size_t place = 0; place < satelliteNames.size(); ++place) {
        indexSatellite(place);
        if (place < satellites.size())
            std::ranges::transform(
                std::span(satellites[place].slots)
                    .first(std::min(satellites[place].slots.size(), kMaxFrequencies)),
                carrierHz[place].begin(), &CarrierSlot::hz);
    }
    for (std::size_t system = 0; system < kSystemCount; ++system)
        for (int code = 0; code <= kMaxCode; ++code)
            slotOf[system][static_cast<std::size_t>(code)] =
                slotOfCode(frequencies[system], code2obs(code));
}

int Session::satelliteNamed(std::string_view name) const {
    const std::size_t sat = numberOf(name);
    return sat ? satelliteIndex[sat] : pointer_string(satelliteNames, name);
}

std::span<const std::string> Session::carriersOf(const SatelliteRecord& satellite) const {
    const std::size_t system = systemIndex(satellite.cprn.front());
    return system < kSystemCount ? std::span<const std::string>(frequencies[system])
                                 : std::span<const std::string>();
}

GlonassChannels Session::glonassChannels() const {
    GlonassChannels channels{};
    for (int slot = 1; slot <= kGlonassSlots; ++slot) {
        const int index = satelliteIndex[static_cast<std::size_t>(satno(kGlonass, slot))];
        const int channel = index < 0 ? kUnknownChannel
                                      : satellites[static_cast<std::size_t>(index)].glonassChannel;
        if (validChannel(channel))
            channels[static_cast<std::size_t>(slot - 1)] = channel + 8;
    }
    return channels;
}
