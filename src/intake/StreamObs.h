#pragma once

#include "rtcm/rtcm.h"

#include <cstddef>
#include <cstdint>
#include <span>

/// StreamObs: takes received bytes through the RTCM 3 decoder, stores epochs in the station's
/// epoch buffer and ephemerides in BRDEPH, and hands every message with a positive status to the
/// reply callback.

/// Called with the status (Status), the whole frame in the decoder's buffer, and its length.
/// The frame is gone after the call.
using ReplyCallback = void (*)(std::uint32_t status, const std::uint8_t* frame,
                               std::int32_t length);
extern ReplyCallback onrtcm;

/// Decodes a received block into the station of that index; always 0. A message that ends in a
/// later block is completed then.
int StreamReader(std::size_t station, const std::uint8_t* buffer, int length);
/// Takes intake back to its start: the next bytes are the first ones; no channel is known and no
/// contradiction told.
void StreamObs_m_initial();
/// Forgets the unfinished frame and epoch of a connection that is gone.
void StreamObs_m_restart();

void RtcmObsDecoder_Initial(RtcmState& state);
/// Stores a decoded observation set in the station's epoch buffer; 1.
int StreamObs_m_setObsData(const ObsSet& obs, std::size_t station);
/// Stores a decoded ephemeris in BRDEPH; the satellite's system letter, or ' ' when the satellite
/// is not configured.
char StreamObs_m_setEphData(NavData& nav, int sat);
