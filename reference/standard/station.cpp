#include "station.h"

#include "orbit.h"

namespace ref {

namespace {

// clang-format off
constexpr auto kStation = [](auto& io, auto& s) {
    io.u(12, s.type); io.u(12, s.station); io.u(6, s.itrf);                     // DF002, 003, 021
    for (auto* flag : {&s.gps, &s.glonass, &s.galileo, &s.computed})            // DF022-024, 141
        io.flag(*flag);
    io.s(38, s.xyzM[0], 1e-4); io.flag(s.oneOscillator); io.fixed(1, 0);        // DF025, 142
    io.s(38, s.xyzM[1], 1e-4); io.u(2, s.quarterCycle); io.s(38, s.xyzM[2], 1e-4); // 026, 364, 027
    if (s.type == 1006)
        io.u(16, s.heightM, 1e-4);                                              // DF028
};

// 1007, 1008, 1033: each goes on where the one before it ends.
constexpr auto kAntenna = [](auto& io, auto& t) {
    io.u(12, t.station); io.text(t.antenna); io.u(8, t.setup);                  // DF003, 029-031
};
constexpr auto k1007 = [](auto& io, auto& t) { io.fixed(12, 1007); kAntenna(io, t); };
constexpr auto k1008 = [](auto& io, auto& t) {
    io.fixed(12, 1008); kAntenna(io, t); io.text(t.antennaSerial);              // DF032, 033
};
constexpr auto k1033 = [](auto& io, auto& t) {
    io.fixed(12, 1033); kAntenna(io, t);
    for (auto* text : {&t.antennaSerial, &t.receiver, &t.firmware, &t.receiverSerial})
        io.text(*text);                                                         // DF032-033, 227-232
};
// clang-format on

} // namespace

Station1005 read1005(const Bytes& body) {
    return readBody<Station1005>(body, kStation);
}
Bytes write1005(const Station1005& s) {
    return writeBody(s, kStation);
}
Text1033 read1033(const Bytes& body) {
    return readBody<Text1033>(body, k1033);
}
Text1033 readAntenna(const Bytes& body) {
    const bool serial = BitSource(body).u(12) == 1008;
    return serial ? readBody<Text1033>(body, k1008) : readBody<Text1033>(body, k1007);
}
Bytes write1033(const Text1033& t) {
    return writeBody(t, k1033);
}
Bytes write1007(const Text1033& t) {
    return writeBody(t, k1007);
}
Bytes write1008(const Text1033& t) {
    return writeBody(t, k1008);
}

Bytes write1013(int station, GpsTime t, const std::vector<Announcement>& announcements) {
    constexpr int dayS = 86400;
    const auto utc = static_cast<std::int64_t>(utcOf(t));
    BitString io;
    io.u(12, 1013).u(12, station);
    // DF051, which begins again in 2038, DF052
    io.u(16, (kMjdOfGpsStart + utc / dayS) % 65536).u(17, utc % dayS);
    io.u(5, announcements.size()).u(8, static_cast<int>(leapS(t))); // DF053, 054
    for (const Announcement& a : announcements) {
        io.u(12, a.type).flag(a.synchronous); // DF055, 056
        io.u(16, a.intervalS, 0.1);           // DF057
    }
    return io.bytes();
}

Bytes write1230(int station, bool aligned, const std::array<double, 4>& biasesM) {
    BitString io;
    io.u(12, 1230).u(12, station).flag(aligned).u(3, 0).u(4, 0xF); // DF421, 001, 422
    for (const double m : biasesM)
        io.s(16, m, 0.02); // DF423-426
    return io.bytes();
}

} // namespace ref
