#pragma once

#include "rtcm/rtcm.h"

#include <algorithm>
#include <optional>
#include <string_view>

/// decode: the handlers of the messages and what they share. All return a Status.

inline BitReader messageOf(const RtcmState& s) {
    const auto end = static_cast<std::size_t>(s.len);
    return BitReader(
        std::span(s.buff).subspan(kHeaderBytes, std::max(end, kHeaderBytes) - kHeaderBytes));
}
inline bool hasOption(const RtcmState& s, std::string_view option) {
    return s.opt.find(option) != std::string::npos;
}

/// Adopts the message's station id; false where it is not the one of the epoch being collected
/// (which is then given up) or not the one that the options ask for.
bool test_staid(RtcmState& s, int staid);

/// Sets `time` from the system clock while it is unknown.
void needTime(RtcmState& s);
/// A time of day moved by whole days to within half a day of the reference.
double nearestDay(double tod, double reference);

/// What the head of an observation message says of its epoch.
struct EpochMessage {
    int type;
    System system;
    int staid;
    std::uint32_t field;       // epoch time as sent
    bool more;                 // further messages of the epoch follow
    std::optional<GTime> time; // resolved against `time` of the state
    bool otherStation = false; // refused by test_staid
    bool tooShort = false;     // it ends before its multiple-message bit
};

/// Resolves the time of a message and checks its station; false where either is refused, or the
/// message is too short to be placed.
bool admit(RtcmState& s, EpochMessage& m);
/// Takes a whole message into the epoch of its time, which becomes `time`. The time of a system
/// that no reply carries counts only while nothing else is in the epoch.
void join(RtcmState& s, const EpochMessage& m);
/// A message that is refused brings nothing, but it ends the epoch that is being collected where it
/// is the last one of it: then kEpoch, else kMalformed.
Status refuse(RtcmState& s, const EpochMessage& m);
/// Record of a satellite in the epoch of the message that was taken into it; an epoch of another
/// time, or one that is complete, makes room. Null when the set is full, or when the epoch keeps a
/// time that is not the message's.
ObsRecord* epochRecord(RtcmState& s, const EpochMessage& m, int sat);
/// Ends a message of the epoch: kNothing while more follow, kEpoch after the last one.
Status endOfMessage(RtcmState& s, bool more);
/// 1 when the lock indicator is 0 or smaller than the last one of the signal.
inline std::uint8_t lossoflock(RtcmState& s, int sat, std::size_t slot, int lock) {
    s.touch(sat);
    SignalTrack& track = s.tracks[static_cast<std::size_t>(sat - 1)][slot];
    const bool lost = lock == 0 || lock < track.lock;
    track.lock = static_cast<std::uint16_t>(lock);
    return lost ? 1 : 0;
}
/// 0.001 dB-Hz; 0 outside (0, 100).
inline std::uint16_t snratio(double cnr) {
    return cnr > 0.0 && cnr < 100.0
               ? static_cast<std::uint16_t>(std::min(cnr / 0.001 + 0.5, 65535.0))
               : std::uint16_t{0};
}
/// Learns a GLONASS channel from the stream.
void learnChannel(RtcmState& s, int slot, int channel);
/// NavIC satellites have no numbers, so every one of their ephemerides is refused.
int decode_type1041(RtcmState& s);
