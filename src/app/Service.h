#pragma once

#include "app/EphemerisFile.h"
#include "app/PeerLink.h"
#include "app/Status.h"
#include "config/Configuration.h"
#include "intake/StreamObs.h"
#include "vrs/VrsMain.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

/// Service: all that lives from epoch to epoch, each thing once. It is large: not for the stack.

/// Configuration, session and current epoch.
struct DeployConfig : Deployment, CurrentEpoch {};

/// Both are the one descriptor on which the reference stream arrives and the replies leave.
struct ServiceSockets {
    int input = -1;
    int output = -1;
};

struct Service {
    Service() = default;
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    /// Readies epoch, folder, intake and ephemeris store of the configuration for its first byte.
    void prepareSession();
    /// Takes up the ephemerides that the file of the state holds, if any; before the first byte.
    void readState();
    /// Begins to tell of itself, where the configuration asks for it.
    void beginStatus();
    /// What its virtual stations work on.
    VrsSources sources();
    /// Answers the stored epoch of a station as VrsMain does.
    int answer(std::size_t station, std::span<std::uint8_t> reply);
    /// A message of the stream: an epoch is answered by the virtual station, every other frame is
    /// forwarded.
    void onMessage(std::uint32_t status, const std::uint8_t* frame, std::int32_t length);
    /// One pass of the loop: keep the connection up, receive a block, decode it.
    void serveOnce();
    /// Gives back what the record holds, for a program that stops the loop.
    void finish();

    DeployConfig record;
    StreamIntake intake{record, record};
    VirtualStation station;
    OutputFolder folder;
    EphemerisFile ephemerisFile;
    PeerLink peer{record.input};
    ServiceSockets sockets;

private:
    void notifyConnection(const char* what) const;
    bool waitForData() const;
    std::chrono::milliseconds untilWatchdog() const;
    void forward(std::span<const std::uint8_t> frame);
    void pass(std::span<const std::uint8_t> frame);
    ServiceStatus::Fate fateOf(std::span<const std::uint8_t> reply, bool held, bool sent) const;

    std::unique_ptr<ServiceStatus> status_;  // null where none is asked for
    std::chrono::nanoseconds lastEpochAt_{}; // or the connection's; monotonic
    std::array<std::uint8_t, 10240> received_;
    std::array<std::uint8_t, kLongestReply> replyBuffer_;
};
