#pragma once

#include "gnss/Session.h"
#include "orbit/RnxephUtils.h"
#include "rinex/Rnxobs.h"
#include "rtcm/ReceivedEpoch.h"
#include "rtcm/rtcm.h"
#include "vrs/Sight.h"
#include "vrs/VrsObsPack.h"

#include <array>
#include <bitset>
#include <cstdint>
#include <optional>

/// VirtualStation: what one virtual station keeps from epoch to epoch, and where its requests
/// work. A second virtual station is a second object.

/// Encoder states; the second serves BDS satellites above PRN 16, the BDS-3 ones.
struct VrsEncoders {
    RtcmState main;
    RtcmState bds3;
    std::uint8_t flag = 0;
};

/// What is kept of a satellite from epoch to epoch: for the Doppler correction its last answered
/// epoch, and the light times to the virtual point.
struct RangeHistory {
    int mjd = 0;
    double sod = 0.0;
    double drleng = 0.0;   // range at the virtual point minus range at the reference, m
    LightTimes lightTimes; // of its last two epochs
};

/// Range at the virtual station minus range at its reference, and the rate of that (0 but for
/// complete answers).
struct RangeChange {
    double metres;
    double mps;
};
/// By satellite number; nothing for a satellite that is not answered.
using RangeChanges = std::array<std::optional<RangeChange>, kMaxSatNumber + 1>;

struct VirtualStation {
    /// Readies the encoder for a session.
    void begin(const Session& session) {
        encoders.main.nav.configuredChannels = session.glonassChannels();
    }

    std::array<RangeHistory, kMaxSatellites> history; // by configured satellite
    std::bitset<kMaxSatellites> moved;                // whose `drleng` may be other than 0
    /// Epoch in which a plain stream named station and place last; nothing on a new connection.
    std::optional<MjdTime> introduced;
    // Workspaces of a request; they are too large to be built anew for every epoch.
    VrsObsPack reference;
    VrsObsPack answer; // the reply frame is built in it
    VrsEncoders encoders;
    RangeChanges changes; // of a complete answer
};

/// One request of a virtual station at its reference.
struct VrsBaseStation {
    std::string name;
    Vector3 xyz{};                       // of the reference, m
    std::span<const std::uint8_t> reply; // encoded frame; empty = no reply
};

/// What the virtual stations of a service share.
struct VrsSources {
    const Switches& switches;
    const Session& session;
    const EphemerisStore& ephemerides;
    CurrentEpoch& epoch;
    OutputFolder& folder;
    const ReceivedEpoch& received; // of a complete answer
    const SenderInfo& sender;

    OrbitSource orbits() const {
        return {session,
                ephemerides,
                {epoch.currentMjd, epoch.currentSod},
                session.answering.complete ? OrbitRules::standards : OrbitRules::departures};
    }
};
