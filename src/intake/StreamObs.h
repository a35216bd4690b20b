#pragma once

#include "gnss/Session.h"
#include "gnss/Taiutc.h"
#include "intake/Contradictions.h"
#include "intake/EpochRun.h"
#include "intake/StreamWatcher.h"
#include "orbit/Rnxeph.h"
#include "rtcm/rtcm.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// StreamObs: takes received bytes through the RTCM 3 decoder, stores epochs in the station's
/// epoch buffer and ephemerides in its store, and hands every message with a positive status to
/// the reply callback.

/// Called with the status (Status), the whole frame in the decoder's buffer, and its length.
/// The frame is gone after the call.
using ReplyCallback =
    std::function<void(std::uint32_t status, const std::uint8_t* frame, std::int32_t length)>;

/// The place that a station stated last in a 1005 or 1006, m.
struct StatedPlace {
    int stationId;
    int type; // 1005 or 1006
    Vector3 xyz;
};

/// The reader of one stream and what it owns; it writes the current epoch.
struct StreamIntake {
    StreamIntake(const Session& s, CurrentEpoch& e) : session(s), epoch(e) {}

    const Session& session;
    CurrentEpoch& epoch;
    ReplyCallback onrtcm; // may be empty
    StreamWatcher* watcher = nullptr;
    EphemerisStore ephemerides;
    RtcmState decoder;
    bool decoderReady = false;
    Contradictions contradictions;
    LeapSeconds leapSeconds;
    SenderInfo sender;
    bool displaced = false; // the sender states a place beyond the guard's limit
    // Of complete answers:
    EpochRun run;
    StreamStation streamStation;
    std::vector<StatedPlace> otherPlaces; // of stations that do not count
    std::optional<int> spokeFirst;        // station that told of itself before one counted
    double aheadS = 0.0;                  // times of week of the stream, against the clock
    bool savesEpochs = false;             // the station's epoch is filled, too
};

/// Decodes a received block into the station of that index; always 0. A message that ends in a
/// later block is completed then.
int StreamReader(StreamIntake& intake, std::size_t station, const std::uint8_t* buffer, int length);
/// Takes intake back to its start: the next bytes are the first ones; no channel is known and no
/// contradiction told. The ephemerides stay.
void StreamObs_m_initial(StreamIntake& intake, const std::string& leapSecondFile);
/// Forgets the unfinished frame and epoch of a connection that is gone.
void StreamObs_m_restart(StreamIntake& intake);

void RtcmObsDecoder_Initial(RtcmState& state);
/// Stores a decoded observation set in the station's epoch buffer; 1.
int StreamObs_m_setObsData(StreamIntake& intake, const ObsSet& obs, std::size_t station);
/// Stores a decoded ephemeris; the satellite's system letter, or ' ' when the satellite is not
/// configured.
char StreamObs_m_setEphData(StreamIntake& intake, NavData& nav, int sat);
