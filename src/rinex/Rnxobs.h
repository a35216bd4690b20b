#pragma once

#include "common/EpochObs.h"

/// Rnxobs: the epoch buffer of a station, which is to be the state of the RINEX 3 writer.

/// Takes the buffer to its empty start.
void Rnxobs_initial(StationEpoch& state);
