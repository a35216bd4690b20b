#pragma once

#include "vrs/VirtualStation.h"

#include <bitset>

/// MovedEpoch: the observation messages of an epoch as they came, moved to the virtual station.
/// Ranges and phase ranges are times of flight, so no carrier is asked for.

/// The configured satellites of which the epoch has a signal.
std::bitset<kMaxSatellites> satellitesOf(const ReceivedEpoch& epoch, const Session& session);
/// Messages that moveEpoch gives.
int countMoved(const ReceivedEpoch& epoch, const RangeChanges& changes);
/// A function of a moved message and what it works on; it allocates nothing.
struct MovedTaker {
    void (*take)(void* self, MsmMessage& message);
    void* self;
};
void moveEpoch(const ReceivedEpoch& epoch, const RangeChanges& changes, MovedTaker taker);
/// Calls take(MsmMessage&) with each message of the epoch that has a satellite with a change: only
/// such satellites are left in it, and moved. Messages from before MSM come as MSM4. Station id and
/// multiple-message bit are as received.
template <class Take>
void moveEpoch(const ReceivedEpoch& epoch, const RangeChanges& changes, Take take) {
    moveEpoch(epoch, changes,
              MovedTaker{[](void* self, MsmMessage& m) { (*static_cast<Take*>(self))(m); }, &take});
}
