#pragma once

#include "common/EpochObs.h"

/// Rnxobs: the RINEX 3 observation writer. Its state is the epoch buffer of a station.

/// Takes a writer state, or a station's epoch buffer, to its empty start.
void Rnxobs_initial(StationEpoch& state);
