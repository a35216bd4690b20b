#pragma once

#include "vrs/VirtualStation.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

/// VrsEncoder: the reply of an epoch. RTCM 3 messages 1005, 1033 and MSM4 per system, or the
/// messages received, moved; in a frame of the program's own: start byte 0xDA, 16-bit length, 0x68,
/// request word, 0x0006, messages, CRC-24Q in 32 bits; or as they are.

/// What a complete answer is made of.
struct MovedMessages {
    const ReceivedEpoch& epoch;
    const RangeChanges& changes;
};

/// What a reply is encoded with.
struct ReplyEncoder {
    VrsEncoders& states;
    const Session& session;
    const CurrentEpoch& epoch;
    const SenderInfo* sender = nullptr;   // whose antenna height goes on, and names if `moved`
    const MovedMessages* moved = nullptr; // else the pack's own observations
    bool introduces = true;               // 1005 or 1006 and 1033 in front
};

/// 1 when the reply carries signals of this type ("L1C" or "C1C") for the system, else -1.
int index_mask(std::size_t system, std::string_view type);
/// Appends the messages of the epoch at `bits` in its reply area and moves `bits` on.
/// 0, with a line and nothing appended, where they do not fit.
int VrsEncoder_m_encodeRtcm_ex(const ReplyEncoder& in, VrsObsPack& pack, int& bits);
/// Builds the reply in the pack's reply area; empty where it cannot be built, and where a complete
/// or a plain one would hold no observation.
std::span<const std::uint8_t> VrsEncoder_m_encodeReply(const ReplyEncoder& in, VrsObsPack& pack,
                                                       std::int32_t requestWord);
