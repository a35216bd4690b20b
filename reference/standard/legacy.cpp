#include "legacy.h"

#include "kinds.h"

#include <array>
#include <cmath>

namespace ref {

namespace {

constexpr std::array<const char*, 4> kL1{"1C", "1P", "", ""};        // DF010, DF039
constexpr std::array<const char*, 4> kGpsL2{"2X", "2P", "2D", "2W"}; // DF016
constexpr std::array<const char*, 4> kGlonassL2{"2C", "2P", "", ""}; // DF046

/// The value of an indicator; nothing where the message has no such signal.
std::optional<int> indicator(const std::array<const char*, 4>& signals, const std::string& signal) {
    for (int i = 0; i < 4; ++i)
        if (!signal.empty() && signals.at(static_cast<std::size_t>(i)) == signal)
            return i;
    return std::nullopt;
}

// DF013, DF019, DF043, DF049: the last second, offset and step of each range.
constexpr int kLockRanges[][3] = {{24, 0, 1},    {72, 24, 2},     {168, 120, 4},
                                  {360, 408, 8}, {744, 1176, 16}, {937, 3096, 32}};

int lockField(double lockS) {
    for (const auto& [below, offset, step] : kLockRanges)
        if (lockS < below)
            return (static_cast<int>(lockS) + offset) / step;
    return 127;
}

/// A satellite of 1004 and 1012, as sent.
struct Row {
    const Cell* first;
    const Cell* second = nullptr;
};

std::optional<double> difference(const std::optional<double>& v, double base) {
    return v ? std::optional(*v - base) : std::nullopt;
}

void writeRow(BitString& io, const Row& row, bool glonass) {
    const Cell& c = *row.first;
    const double ambiguityM = kLightSpeed * (glonass ? 0.002 : 0.001);
    const auto whole = static_cast<int>(std::floor(*c.pseudorangeM / ambiguityM));
    const auto steps = std::llround((*c.pseudorangeM - whole * ambiguityM) / 0.02);
    const double rangeM = static_cast<double>(steps) * 0.02 + whole * ambiguityM;
    io.u(6, c.id).u(1, indicator(kL1, c.signal).value()); // DF009-010, DF038-039
    if (glonass)
        io.u(5, c.info);                                      // DF040
    io.u(glonass ? 25 : 24, steps);                           // DF011, DF041
    io.orNone(20, difference(c.phaseRangeM, rangeM), 0.0005); // DF012, DF042
    io.u(7, lockField(c.lockS)).u(glonass ? 7 : 8, whole);    // DF013-014, DF043-044
    io.u(8, c.cnr, 0.25);                                     // DF015, DF045
    const Cell none;
    const Cell& d = row.second ? *row.second : none;
    const auto& signals = glonass ? kGlonassL2 : kGpsL2;
    io.u(2, indicator(signals, d.signal).value_or(0));        // DF016, DF046
    io.orNone(14, difference(d.pseudorangeM, rangeM), 0.02);  // DF017, DF047
    io.orNone(20, difference(d.phaseRangeM, rangeM), 0.0005); // DF018, DF048
    io.u(7, row.second ? lockField(d.lockS) : 0);             // DF019, DF049
    io.u(8, d.cnr, 0.25);                                     // DF020, DF050
}

// Phase range minus L1 pseudorange, m.
std::optional<double> phaseDifference(BitSource& io) {
    std::optional<double> difference;
    io.orNone(20, difference, 0.0005);
    return difference;
}

} // namespace

int legacyLockS(int indicator) {
    for (const auto& [below, offset, step] : kLockRanges)
        if (indicator * step - offset < below)
            return indicator * step - offset;
    return 937;
}

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
    io.u(1, m.smoothed);  // DF007, DF036
    io.u(3, m.smoothing); // DF008, DF037
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
        const auto code = static_cast<std::size_t>(io.u(2)); // DF016, DF046
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

Bytes writeLegacy(char system, int station, std::uint32_t epochField, bool more,
                  const std::vector<Cell>& cells) {
    constexpr std::size_t most = 31; // the count has five bits
    const bool glonass = system == 'R';
    const auto& secondSignals = glonass ? kGlonassL2 : kGpsL2;
    std::vector<Row> rows;
    int l1Id = 0;
    for (const Cell& c : cells) {
        if (c.system != system)
            continue;
        if (indicator(kL1, c.signal) && c.id != l1Id && c.pseudorangeM && rows.size() < most) {
            rows.push_back({&c});
            l1Id = c.id;
        }
        if (indicator(secondSignals, c.signal) && c.id == l1Id && !rows.back().second &&
            (c.pseudorangeM || c.phaseRangeM))
            rows.back().second = &c;
    }
    if (rows.empty())
        return {};
    BitString io;
    io.u(12, glonass ? 1012 : 1004).u(12, station);
    io.u(glonass ? 27 : 30, epochField & (glonass ? 0x7FFFFFFU : ~0U)); // DF004, DF034
    io.flag(more).u(5, rows.size()).u(4, 0);                            // DF005-008, DF035-037
    for (const Row& row : rows)
        writeRow(io, row, glonass);
    return io.bytes();
}

} // namespace ref
