#pragma once

#include "rtcm/rtcm.h"

#include <optional>

/// rtcm3_epoch: times of messages, and the epoch that they are collected in.

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
