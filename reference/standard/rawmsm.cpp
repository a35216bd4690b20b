#include "rawmsm.h"

#include <algorithm>

namespace ref {

namespace {

constexpr std::string_view kMsmSystems = "GRESJCI"; // in order of their numbers 107x, 108x, ...

// clang-format off
constexpr MsmForm kForms[] = {
    {15, -24, 22, -29,  4,  6,  0, false}, {15, -24, 22, -29,  4,  6,  0, true},
    {20, -29, 24, -31, 10, 10, -4, false}, {20, -29, 24, -31, 10, 10, -4, true}};

constexpr auto kHeader = [](auto& io, auto& m) {
    io.u(12, m.type); io.u(12, m.station); io.u(30, m.epochField);            // DF002, 003, 004 ...
    io.flag(m.more); io.u(3, m.iods); io.u(7, m.reserved);                    // DF393, 409, 001
    io.u(2, m.steering); io.u(2, m.externalClock);                            // DF411, 412
    io.u(1, m.smoothed); io.u(3, m.smoothing);                                // DF417, 418
};

constexpr auto kRawBody = [](auto& io, const MsmForm& f, auto& m) {
    for (auto& s : m.satellites) io.u(8, s.ms);                               // DF397
    if (f.rates)
        for (auto& s : m.satellites) io.u(4, s.info);                         // DF419
    for (auto& s : m.satellites) io.u(10, s.part);                            // DF398
    if (f.rates)
        for (auto& s : m.satellites) io.i(14, s.rate);                        // DF399
    for (auto& c : m.cells) io.i(f.range, c.range);
    for (auto& c : m.cells) io.i(f.phase, c.phase);
    for (auto& c : m.cells) io.u(f.lock, c.lock);
    for (auto& c : m.cells) io.u(1, c.half);                                  // DF420
    for (auto& c : m.cells) io.u(f.cnr, c.cnr);
    if (f.rates)
        for (auto& c : m.cells) io.i(kRateBits, c.rate);                      // DF404
};
// clang-format on

std::vector<int> takeMask(BitSource& io, int width) {
    std::vector<int> ids;
    for (int id = 1; id <= width; ++id)
        if (io.u(1) == 1)
            ids.push_back(id);
    return ids;
}

// What the length leaves for cells behind the mask.
void addUnmasked(RawMsm& m, const MsmForm& f, std::size_t bitsLeft) {
    const std::size_t perSat = f.rates ? 36 : 18;
    const int cellBits = f.range + f.phase + f.lock + 1 + f.cnr + (f.rates ? kRateBits : 0);
    const std::size_t left = bitsLeft - std::min(bitsLeft, perSat * m.satellites.size());
    while (m.cells.size() < left / static_cast<std::size_t>(cellBits))
        m.cells.push_back({.id = m.satellites.back().id});
}

} // namespace

char RawMsm::system() const {
    return msmSystem(type);
}

const RawMsm::Satellite& RawMsm::satellite(int id) const {
    for (const Satellite& s : satellites)
        if (s.id == id)
            return s;
    throw std::out_of_range("no satellite of that number in the message");
}

const MsmForm& msmForm(int msm) {
    if (msm < 4 || msm > 7)
        throw std::invalid_argument("not one of MSM4 to MSM7");
    return kForms[msm - 4];
}

char msmSystem(int type) {
    const int row = type / 10 - 107;
    if (row < 0 || row >= static_cast<int>(kMsmSystems.size()))
        throw std::invalid_argument("no MSM: type " + std::to_string(type));
    return kMsmSystems[static_cast<std::size_t>(row)];
}

int msmBase(char system) {
    const std::size_t at = kMsmSystems.find(system);
    if (at == std::string_view::npos)
        throw std::invalid_argument(std::string("no MSM of system ") + system);
    return 1070 + 10 * static_cast<int>(at);
}

RawMsm readRawMsm(const Bytes& body, Pairs pairs) {
    BitSource io(body);
    RawMsm m;
    kHeader(io, m);
    const MsmForm& f = msmForm(m.type % 10);
    msmSystem(m.type);
    const std::vector<int> ids = takeMask(io, 64);
    m.signals = takeMask(io, 32);
    if (pairs == Pairs::atMost64 && ids.size() * m.signals.size() > kMostPairs)
        throw std::out_of_range("more than 64 pairs of satellite and signal");
    std::size_t bits = 0;
    for (const int id : ids) {
        m.satellites.push_back({.id = id});
        for (const int signal : m.signals)
            if (bits++ < kMostPairs && io.u(1) == 1)
                m.cells.push_back({.id = id, .signal = signal});
    }
    if (bits > kMostPairs)
        addUnmasked(m, f, io.left());
    kRawBody(io, f, m);
    m.exact = io.exact();
    return m;
}

Bytes writeRawMsm(const RawMsm& m) {
    if (m.satellites.size() * m.signals.size() > kMostPairs)
        throw std::out_of_range("more than 64 cells");
    BitString io;
    kHeader(io, m);
    const auto has = [](const auto& list, auto same) {
        return std::any_of(list.begin(), list.end(), same);
    };
    for (int id = 1; id <= 64; ++id)
        io.flag(has(m.satellites, [id](const auto& s) { return s.id == id; }));
    for (int id = 1; id <= 32; ++id)
        io.flag(has(m.signals, [id](int s) { return s == id; }));
    for (const RawMsm::Satellite& s : m.satellites)
        for (const int signal : m.signals)
            io.flag(
                has(m.cells, [&](const auto& c) { return c.id == s.id && c.signal == signal; }));
    kRawBody(io, msmForm(m.type % 10), m);
    return io.bytes();
}

} // namespace ref
