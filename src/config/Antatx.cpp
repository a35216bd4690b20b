#include "config/Antatx.h"

#include "base/ComText.h"
#include "config/AntexFile.h"

#include <algorithm>

namespace {

constexpr std::size_t kNameLength = 20; // of type and serial, as ANTEX has it

/// The centre of a slot; nothing where the slot is not calibrated.
const PhaseCentre* calibrated(const AntennaRecord& record, std::size_t system, std::size_t slot) {
    const std::vector<PhaseCentre>& centres = record.centres[system];
    return slot < centres.size() && !centres[slot].code.empty() ? &centres[slot] : nullptr;
}

/// Offsets of a slot as they stand, m; zero where nothing was read.
Vector3 offsets(const AntennaRecord& record, std::size_t system, std::size_t slot) {
    const std::vector<PhaseCentre>& centres = record.centres[system];
    return slot < centres.size() ? centres[slot].pco : Vector3{};
}

/// Offsets of a receiver's antenna: its own, or else those of GPS, which every antenna has.
Vector3 siteOffsets(const AntennaRecord& record, std::size_t system, std::size_t slot) {
    constexpr std::size_t gps = systemIndex('G');
    if (calibrated(record, system, slot))
        return offsets(record, system, slot);
    return offsets(record, gps, calibrated(record, gps, slot) ? slot : 0);
}

} // namespace

void Antatx_m_resetMem(AntennaRecord& record) {
    record = {};
}

bool Antatx_m_getAnt(AntennaRecord& record, std::string_view kind, const FrequencyTable& names,
                     const std::string& type, const std::string& serial, SatellitePco& satellitePco,
                     SitePco& sitePco, double from, double to, const std::string& path,
                     Findings& findings) {
    Antatx_m_resetMem(record);
    record.type = type.substr(0, kNameLength);
    record.serial = serial.substr(0, kNameLength);
    satellitePco = {};
    sitePco = {};
    if (!contains(record.type, "ANTNONE") &&
        !Antatx_m_rdatx(record, names, from, to, path, findings))
        return false;

    if (contains(kind, "SITE")) {
        for (std::size_t s = 0; s < kAntennaSystems; ++s)
            for (std::size_t f = 0; f < std::min(names[s].size(), kAntennaSlots); ++f) {
                const Vector3 neu = siteOffsets(record, s, f);
                sitePco[s][f] = {neu[1], neu[0], neu[2]}; // deliberate: east, north, up
            }
        return true;
    }
    const std::size_t system = kSystems.find(kind.substr(0, 1));
    if (kind.empty() || system >= kAntennaSystems) {
        findings.add(FindingId::antennaOfNoSystem, path, 0, {std::string(kind)});
        return false;
    }
    for (std::size_t f = 0; f < kAntennaSlots; ++f)
        satellitePco[f] = offsets(record, system, f);
    return true;
}
