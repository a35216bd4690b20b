#include "legacy.h"

#include "kinds.h"

namespace ref {

namespace {

constexpr const char* kGpsL2[] = {"2X", "2P", "2D", "2W"}; // DF016
constexpr const char* kGlonassL2[] = {"2C", "2P", "", ""}; // DF046

// Phase range minus L1 pseudorange, m.
std::optional<double> phaseDifference(BitSource& io) {
    std::optional<double> difference;
    io.orNone(20, difference, 0.0005);
    return difference;
}

} // namespace

Msm readLegacy(const Bytes& body) {
    BitSource io(body);
    Msm m;
    io.u(12, m.type);
    if (!isLegacy(m.type))
        throw std::invalid_argument("no legacy observations: type " + std::to_string(m.type));
    const bool glonass = m.type >= 1009;
    const int kind = m.type - (glonass ? 1009 : 1001);
    const bool l2 = kind >= 2;
    const bool extended = kind % 2 == 1;
    m.system = glonass ? 'R' : 'G';
    m.msm = 0;
    io.u(12, m.station);
    m.epochField = static_cast<std::uint32_t>(io.u(glonass ? 27 : 30));
    io.flag(m.more); // DF005
    const auto satellites = io.u(5);
    io.u(4); // DF007, DF008
    for (std::uint64_t i = 0; i < satellites; ++i) {
        Cell first;
        first.system = m.system;
        io.u(6, first.id); // DF009, DF038
        if (!glonass && first.id > 39) {
            first.system = 'S';
            first.id -= 39; // PRN = id + 80; MSM id 1 is PRN 120
        }
        first.sat = satName(first.system, first.id);
        m.sats.push_back(first.id);
        first.signal = io.u(1) == 1 ? "1P" : "1C"; // DF010, DF039
        if (glonass)
            first.info = static_cast<int>(io.u(5)); // DF040
        const double partM = static_cast<double>(io.u(glonass ? 25 : 24)) * 0.02;
        const std::optional<double> differenceM = phaseDifference(io); // DF012, DF042
        io.u(7, first.lock);
        // DF014, DF044
        const auto whole = static_cast<double>(extended ? io.u(glonass ? 7 : 8) : 0);
        const double rangeM = partM + whole * kLightSpeed * (glonass ? 0.002 : 0.001);
        first.pseudorangeM = rangeM;
        if (differenceM)
            first.phaseRangeM = rangeM + *differenceM;
        if (extended)
            io.u(8, first.cnr, 0.25); // DF015, DF045
        m.cells.push_back(first);
        if (!l2)
            continue;
        Cell second = first;
        const auto code = io.u(2); // DF016, DF046
        second.signal = glonass ? kGlonassL2[code] : kGpsL2[code];
        std::optional<double> codeM;
        io.orNone(14, codeM, 0.02); // DF017, DF047
        second.pseudorangeM = codeM ? std::optional(rangeM + *codeM) : std::nullopt;
        const std::optional<double> phaseM = phaseDifference(io); // DF018, DF048
        second.phaseRangeM = phaseM ? std::optional(rangeM + *phaseM) : std::nullopt;
        io.u(7, second.lock);
        if (extended)
            io.u(8, second.cnr, 0.25); // DF020, DF050
        if (!second.signal.empty())
            m.cells.push_back(second);
    }
    return m;
}

} // namespace ref
