#include "gnss/ComFreq.h"

#include "base/ComText.h"
#include "base/Print.h"

#include <cmath>
#include <utility>

namespace {

constexpr const char* kFreqUsed = "common/freqused"; // the key that names carriers

double wavelength(double hz) {
    return hz > 0.0 ? kSpeedOfLight / hz : 0.0;
}

/// Exchanges what stands in the wrong order, pair by pair: highest frequency first.
void sortByFrequency(std::vector<CarrierSlot>& slots) {
    for (std::size_t i = 0; i < slots.size(); ++i)
        for (std::size_t j = i + 1; j < slots.size(); ++j)
            if (slots[i].hz < slots[j].hz)
                std::swap(slots[i], slots[j]);
}

/// Nothing where there are no two frequencies.
std::optional<CombinationConstants> combine(std::span<const CarrierSlot> slots) {
    if (slots.size() < 2 || slots[0].hz == slots[1].hz || slots[1].hz <= 0.0)
        return std::nullopt;
    const double f1 = slots[0].hz;
    const double f2 = slots[1].hz;
    const double g = f1 / f2;
    const double g2 = g * g;
    return CombinationConstants{g,
                                g2,
                                kSpeedOfLight / std::fabs(f1 - f2),
                                kSpeedOfLight / std::fabs(f1 + f2),
                                g2 / (g2 - 1.0),
                                1.0 / (g2 - 1.0)};
}

} // namespace

std::optional<double> carrier(char system, std::string_view slot, int k) {
    if (const ConfiguredSystem* const s = configuredSystem(system))
        for (const char band : s->bands)
            if (const std::array name{'L', band}; contains(slot, {name.data(), name.size()}))
                return bandFrequency(system, band, k);
    return std::nullopt;
}

Finding unknownCarrier(char system, std::string_view slot, const std::string& file) {
    const ConfiguredSystem* const s = configuredSystem(system);
    if (!s)
        return {FindingId::carrierOfNoSystem, file, 0, kFreqUsed, {std::string(slot)}};
    return {FindingId::carrierUnknown,
            file,
            0,
            kFreqUsed,
            {std::string(slot), std::string(s->fullName)}};
}

double getfreq(char system, std::string_view slot, int k) {
    const std::optional<double> hz = carrier(system, slot, k);
    if (!hz)
        fatal("%s", printedLine(unknownCarrier(system, slot, {})).c_str());
    return *hz;
}

int glonassChannel(const SatelliteRecord& satellite, StreamedChannels streamed) {
    if (satellite.glonassChannel != kUnknownChannel || streamed.empty())
        return satellite.glonassChannel;
    const int sat = satid2no(satellite.cprn);
    int slot = 0;
    if (satsys(sat, &slot) != kGlonass)
        return kUnknownChannel;
    return streamed[static_cast<std::size_t>(slot - 1)] - 8;
}

double freqbytp(const SatelliteRecord& satellite, std::string_view slot,
                StreamedChannels streamed) {
    const char system = satellite.cprn.front();
    if (!configuredSystem(system)) {
        print("type = %s,unknow observation type\n", std::string(slot).c_str());
        return 0.0;
    }
    if (system != 'R')
        return getfreq(system, slot, 0);
    const int k = glonassChannel(satellite, streamed);
    const double hz = getfreq(system, slot, k);
    return validChannel(k) ? hz : 0.0;
}

double carrierOf(const SatelliteRecord& satellite, std::size_t slot, StreamedChannels streamed) {
    const CarrierSlot& s = satellite.slots[slot];
    return s.hz > 0.0 ? s.hz : freqbytp(satellite, s.name, streamed);
}

bool get_freq(SatelliteRecord& satellite, std::string_view mode, std::span<const std::string> names,
              const std::string& file, Findings& findings) {
    const auto refuse = [&](FindingId id, const std::string& value) {
        findings.addKey(id, file, kFreqUsed, {value});
        return false;
    };
    if (names.empty())
        return refuse(FindingId::carriersMissing, satellite.cprn);
    if (!contains(mode, "IF") && !contains(mode, "SF") && !contains(mode, "RAW"))
        return refuse(FindingId::modeUnknown, std::string(mode));
    const char system = satellite.cprn.empty() ? '\0' : satellite.cprn.front();
    const int k = satellite.glonassChannel;
    satellite.slots.clear();
    satellite.combination.reset();
    for (const std::string& name : names) {
        const std::optional<double> known = carrier(system, name, k);
        if (!known) {
            findings.add(unknownCarrier(system, name, file));
            return false;
        }
        const double hz = system == 'R' && !validChannel(k) ? 0.0 : *known;
        satellite.slots.push_back({name, hz, wavelength(hz)});
    }
    sortByFrequency(satellite.slots);
    satellite.combination = combine(satellite.slots);
    return true;
}

int index_freq(std::span<const std::string> names, std::string_view slot) {
    return Map_index(names, slot);
}

void updateSatfreq(SatelliteRecord& satellite, std::span<const std::string> names) {
    satellite.slots.clear();
    for (const std::string& name : names) {
        const double hz = freqbytp(satellite, name, {});
        satellite.slots.push_back({name, hz, wavelength(hz)});
    }
    const auto hzOf = [&](const std::string& name) {
        const int at = Map_index(names, name);
        const double wavelengthM = satellite.slots[static_cast<std::size_t>(at)].wavelengthM;
        return wavelengthM > 0.0 ? kSpeedOfLight / wavelengthM : 0.0;
    };
    for (std::size_t i = 0; i < names.size(); ++i) {
        for (std::size_t j = i + 1; j < names.size(); ++j) {
            // Entry i is written for every j, so it ends as the pair of i and the last slot
            // (deliberate).
            CarrierPair pair{names[i] + "_" + names[j], 0.0};
            const double difference = hzOf(names[i]) - hzOf(names[j]);
            if (difference != 0.0)
                pair.wavelengthM = kSpeedOfLight / difference;
            satellite.pairs[i] = pair;
        }
    }
}
