#include "bench/Pieces.h"

#include "base/bits.h"
#include "bench/Station.h"
#include "gnss/Clock.h"
#include "gnss/ComTime.h"
#include "gnss/Leaps.h"
#include "orbit/Glonass.h"
#include "orbit/Kepler.h"
#include "orbit/RnxephUtils.h"
#include "rtcm/rtcm3.h"
#include "rtcm/rtcm3e.h"

#include <cstdint>
#include <fstream>
#include <iterator>
#include <memory>
#include <span>
#include <stdexcept>

namespace {

constexpr int kEpochs = 5;

using Bytes = std::vector<std::uint8_t>;

void append(Bytes& out, const ref::Bytes& frame) {
    out.insert(out.end(), frame.begin(), frame.end());
}

Bytes epochs(ref::Sky sky, int msm, int count) {
    Bytes out;
    for (int i = 0; i < count; ++i)
        for (const ref::Bytes& frame : sky.epochFrames(kStart + i, msm))
            append(out, frame);
    return out;
}

/// A decoder takes a whole stream; the number of frames with a positive status.
int decode(RtcmState& state, std::span<const std::uint8_t> stream) {
    int frames = 0;
    int length = 0;
    while (!stream.empty()) {
        const Taken taken = input_rtcm3_block(state, stream, length);
        frames += taken.status > 0 ? 1 : 0;
        stream = stream.subspan(taken.bytes);
    }
    return frames;
}

void require(bool holds, const char* what) {
    if (!holds)
        throw std::runtime_error(what);
}

Work decoding(Bytes stream) {
    utcNow = [] { return gpst2utc(gpst2time(kStart.week, kStart.sow)); };
    const auto state = std::make_shared<RtcmState>();
    init_rtcm(*state);
    const std::size_t bytes = stream.size();
    return {bytes, [state, stream = std::move(stream)] {
                require(decode(*state, stream) > 0, "nothing was decoded");
            }};
}

/// Frames that pass through the framing and the check word alone.
Work framing() {
    constexpr std::size_t body = 250;
    Bytes stream;
    for (std::uint8_t i = 0; i < 20; ++i) {
        ref::Bytes text(body, i);
        text[0] = 0xFF; // type 4095
        text[1] = static_cast<std::uint8_t>(0xF0 | i >> 4);
        append(stream, ref::frame(text));
    }
    const auto state = std::make_shared<RtcmState>();
    init_rtcm(*state);
    const std::size_t bytes = stream.size();
    return {bytes, [state, stream = std::move(stream)] {
                require(decode(*state, stream) == 0, "type 4095 was decoded");
            }};
}

/// An encoder that holds 12 GPS satellites of three signals.
std::shared_ptr<RtcmState> encoder() {
    constexpr int satellites = 12;
    auto state = std::make_shared<RtcmState>();
    init_rtcm(*state);
    decode(*state, epochs(skyOf("G", "full"), 7, 1));
    require(state->obs.n >= satellites, "the sky has fewer than 12 GPS satellites");
    state->obs.n = satellites;
    return state;
}

constexpr int kGpsMsm4 = 1074;

std::span<const std::uint8_t> encode(RtcmState& state) {
    require(gen_rtcm3(state, kGpsMsm4, 0, 0) == 1, "nothing was encoded");
    return {state.buff.data(), static_cast<std::size_t>(state.nbyte)};
}

Work encoding() {
    const auto state = encoder();
    return {encode(*state).size(), [state] { encode(*state); }};
}

Bytes oneMessage() {
    const auto frame = encode(*encoder());
    return {frame.begin(), frame.end()};
}

using Check = std::uint32_t (*)(std::span<const std::uint8_t>);

Work checkWord(Check check) {
    constexpr std::size_t size = 250;
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 7);
    return {size, [check, bytes, sum = ref::crc24q(bytes)] {
                require(check(bytes) == sum, "a wrong check word");
            }};
}

/// A position and a velocity ten minutes from the reference time.
Work keplerOrbit() {
    GPSEPH record;
    record.cprn = "G05";
    record.tocMjd = 61100;
    record.week = kStart.week;
    record.toe = kStart.sow;
    record.sqrtA = 5153.6;
    record.e = 0.009;
    record.i0 = 0.96;
    record.M0 = 1.2;
    record.crs = record.crc = 200;
    record.cus = record.cuc = record.cis = record.cic = 1e-6;
    return {0, [record, session = std::make_shared<Session>()] {
                OrbitState state{};
                double clock = 0;
                require(BrdUtils_m_geph2xyz(*session, record, "yyy", kStart.week, state, clock,
                                            kStart.sow + 600) == 1,
                        "no position");
            }};
}

Work glonassOrbit() {
    constexpr int mjd = 61100;
    GLSEPH record;
    record.cprn = "R05";
    record.mjd = mjd;
    record.sod = 43200;
    record.posKm = {10000, 10000, 21000};
    record.velKmps = {2.0, -2.3, 0.1};
    return {0, [record] {
                OrbitState state{};
                double clock = 0;
                require(BrdUtils_m_reph2xyz(record, "yyy", mjd, state, clock, record.sod + 600) ==
                            1,
                        "no position");
            }};
}

} // namespace

std::vector<Piece> pieces() {
    return {
        {"framing", framing},
        {"decoding-msm7", [] { return decoding(epochs(skyOf("GREC", "full"), 7, kEpochs)); }},
        {"decoding-msm4", [] { return decoding(epochs(skyOf("GREC", "combined"), 4, kEpochs)); }},
        {"decoding-12x3", [] { return decoding(oneMessage()); }},
        {"encoding-12x3", encoding},
        {"check-word", [] { return checkWord(crc24q); }},
        {"check-word-by-tables", [] { return checkWord(crc24qByTables); }},
        {"kepler-orbit", keplerOrbit},
        {"glonass-orbit", glonassOrbit}};
}

Work decodingOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    require(file.good(), "neither a piece nor a file that can be read");
    return decoding(Bytes(std::istreambuf_iterator<char>(file), {}));
}
