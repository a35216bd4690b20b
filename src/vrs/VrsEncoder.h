#pragma once

#include "vrs/VirtualStation.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

/// VrsEncoder: the reply of an epoch. RTCM 3 messages 1005, 1033 and MSM4 per system, in a frame
/// of the program's own: start byte 0xDA, 16-bit length, 0x68, request word, 0x0006, messages,
/// CRC-24Q in 32 bits.

/// What a reply is encoded with.
struct ReplyEncoder {
    VrsEncoders& states;
    const Session& session;
    const CurrentEpoch& epoch;
};

/// 1 when the reply carries signals of this type ("L1C" or "C1C") for the system, else -1.
int index_mask(std::size_t system, std::string_view type);
/// Appends the messages of the pack's epoch at `bits` in its reply area and moves `bits` on.
/// 0, with a line and nothing appended, where they do not fit.
int VrsEncoder_m_encodeRtcm_ex(const ReplyEncoder& in, VrsObsPack& pack, int& bits);
/// Builds the reply frame in the pack's reply area; empty where it cannot be built.
std::span<const std::uint8_t> VrsEncoder_m_encodeReply(const ReplyEncoder& in, VrsObsPack& pack,
                                                       std::int32_t requestWord);
