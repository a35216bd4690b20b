#include "rinex/Rnxobs.h"

void Rnxobs_initial(StationEpoch& state) {
    state.name.clear();
    state.mjd = 0;
    state.sod = 0.0;
    state.obs.clear();
    state.glonassChannels = {};
}
