#pragma once

#include "rtcm/layouts/Legacy.h"
#include "rtcm/layouts/Msm.h"
#include "rtcm/rtcm3.h"

#include <cstddef>
#include <span>
#include <variant>
#include <vector>

/// ReceivedEpoch: the observation messages of an epoch as they came.

/// MSM4 to MSM7, or one of the messages from before MSM.
struct ReceivedMessage {
    EpochMessage head;
    std::variant<MsmMessage, LegacyMessage> body;
};

class ReceivedEpoch {
public:
    std::span<const ReceivedMessage> messages() const { return {rows_.data(), count_}; }
    /// Reads a message of that head beside the epoch; false where its body is not whole.
    bool read(const EpochMessage& head, BitReader message);
    /// The message that was read last and is not taken.
    const ReceivedMessage& lastRead() const { return rows_[count_]; }
    void takeLastRead();
    /// Empties the epoch, but for the message that was read last.
    void clear();

    GTime time; // of all of them

private:
    std::vector<ReceivedMessage> rows_; // behind the last read one: kept for their room
    std::size_t count_ = 0;
    bool pending_ = false; // a message was read and not taken
};

/// Takes the epoch's messages into the records of the state, at the epoch's time.
void decodeEpoch(RtcmState& state, const ReceivedEpoch& epoch);
