#pragma once

#include "rtcm/rtcm.h"

/// encode: the encoders of the messages and what they share. Each writes its message into buff
/// from bit 24 on, leaves the number of bits in nbit and returns 1. It returns 0 when the state
/// lacks what the message needs.

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
    s.touch(record.sat);
    GTime& start = s.tracks[static_cast<std::size_t>(record.sat - 1)][slot].lltime;
    if (!start.unknown() && !lost)
        return timediff(record.time, start);
    start = record.time;
    return 0.0;
}

int encodeMsm(RtcmState& s, int type, int sync);
int encodeLegacy(RtcmState& s, int type, int sync);

int encode_type1005(RtcmState& s);
int encode_type1006(RtcmState& s);
int encode_type1007(RtcmState& s);
int encode_type1008(RtcmState& s);
int encode_type1033(RtcmState& s);
int encode_type1230(RtcmState& s);

int encode_type1019(RtcmState& s);
int encode_type1020(RtcmState& s);
int encode_type1042(RtcmState& s);
int encode_type63(RtcmState& s);
int encode_type1044(RtcmState& s);
int encode_type1045(RtcmState& s);
int encode_type1046(RtcmState& s);
