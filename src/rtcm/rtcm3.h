#pragma once

#include "rtcm/Frame.h"
#include "rtcm/rtcm.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <span>
#include <string_view>

/// rtcm3: the way of a stream to its epochs. Framing, the message of a frame, its station and time,
/// and the epoch that it belongs to; the handlers of the messages share what stands here.

/// Decodes one byte.
int input_rtcm3(RtcmState& state, std::uint8_t byte);
/// The same; when a frame is complete, stores its whole length (check word included) even if the
/// check word is wrong.
int input_rtcm3_ex(RtcmState& state, std::uint8_t byte, int& framelen);

/// Decodes up to 4096 bytes of a file: the first status other than 0, kEndOfFile where the file
/// ends before that, else 0. What follows the byte of the status stays in the file.
int input_rtcm3f(RtcmState& state, std::FILE* file);

struct Framed {
    std::size_t bytes; // from the front of the block, at least 1 of a non-empty one
    bool whole;        // buff holds a frame whose check word is right
};
/// Takes the bytes of a block up to the end of the next frame, or all of them.
Framed takeFrame(RtcmState& state, std::span<const std::uint8_t> block, int& framelen);
struct Taken {
    std::size_t bytes; // as above
    int status;        // of the last byte taken
};
/// The same and decodes the frame, with the result that input_rtcm3_ex would have byte by byte.
Taken input_rtcm3_block(RtcmState& state, std::span<const std::uint8_t> block, int& framelen);

/// Decodes the frame held in buff; a Status.
int decode_rtcm3(RtcmState& state);

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

/// Learns a GLONASS channel from the stream.
void learnChannel(RtcmState& s, int slot, int channel);

/// 1 when the lock indicator is 0 or smaller than the last one of the signal.
inline std::uint8_t lossoflock(RtcmState& s, int sat, std::size_t slot, int lock) {
    std::uint16_t& last = s.lastLock.of(sat, slot);
    const bool lost = lock == 0 || lock < last;
    last = static_cast<std::uint16_t>(lock);
    return lost ? 1 : 0;
}
/// 0.001 dB-Hz; 0 outside (0, 100).
inline std::uint16_t snratio(double cnr) {
    return cnr > 0.0 && cnr < 100.0
               ? static_cast<std::uint16_t>(std::min(cnr / 0.001 + 0.5, 65535.0))
               : std::uint16_t{0};
}

/// Sets `time` from the system clock while it is unknown.
void needTime(RtcmState& s);
/// A time of day moved by whole days to within half a day of the reference.
double nearestDay(double tod, double reference);

/// The epoch time of an observation message, nearest to a reference. Nothing where no clock can
/// show it.
std::optional<GTime> epochTime(GTime near, System system, std::uint32_t field);

/// Whether two times are the same one: parts of a second differ by rounding, where one comes from a
/// time of week and the other from a time of day.
inline bool sameTime(GTime a, GTime b) {
    return a == b || std::fabs(timediff(a, b)) <= 1e-9;
}

/// Whether a message is of what a station says of itself; its id stands behind its number.
constexpr bool tellsOfStation(int type) {
    return (type >= 1005 && type <= 1008) || type == 1013 || type == 1033 || type == 1230;
}

/// What the head of an observation message says of its epoch.
struct EpochMessage {
    int type;
    System system;
    int staid;
    std::uint32_t field;                      // epoch time as sent
    bool more;                                // further messages of the epoch follow
    std::optional<GTime> time = std::nullopt; // resolved against `time` of the state
    bool otherStation = false;                // refused by test_staid
    bool tooShort = false;                    // it ends before its multiple-message bit
};

/// The head of the message in buff, without its time; nothing where it holds no observations.
std::optional<EpochMessage> observationHead(const RtcmState& s);
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
