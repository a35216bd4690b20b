#pragma once

#include "rtcm/Frame.h"
#include "rtcm/rtcm.h"

/// rtcm3e: encodes messages, and what their encoders share.

/// Builds one frame in buff, length in nbyte. 1, or 0 and nbyte 0 where that is impossible.
int gen_rtcm3(RtcmState& state, int type, int subtype, int sync);
/// Writes the message of a type from bit 24 on; 0 for a type without an encoder.
int encode_rtcm3(RtcmState& state, int type, int subtype, int sync);

/// Writes a message into buff from bit 24 on and leaves the number of bits in nbit; 1.
template <class Layout, class Record>
int writeMessage(RtcmState& s, const Layout& layout, const Record& record) {
    BitWriter out{std::span(s.buff).subspan(kHeaderBytes)};
    layout(out, record);
    s.nbit = static_cast<int>(kMessageBit + out.finish());
    return 1;
}

/// Moscow time of a GPS time.
GTime moscowTime(GTime time);
/// Time field of an observation message: ms of the system's week; GLONASS: day of the Moscow week
/// above bit 27, ms of that day below.
std::uint32_t epochField(System system, GTime time);

/// Wavelength of a record's signal, m; 0 where the carrier is unknown.
double wavelengthM(const RtcmState& s, System system, const ObsRecord& record, std::size_t slot);
/// Lock time of a record's signal, s; starts again when lock was lost.
inline double lockTime(RtcmState& s, const ObsRecord& record, std::size_t slot, bool lost) {
    if (record.time.unknown() && !s.lockStart.has(record.sat))
        return 0.0; // a record of a reply has no time: nothing starts
    GTime& start = s.lockStart.of(record.sat, slot);
    if (!start.unknown() && !lost)
        return timediff(record.time, start);
    start = record.time;
    return 0.0;
}
