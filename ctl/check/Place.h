#pragma once

#include "gnss/ComCoord.h"

#include <string>

namespace ctl::check {

/// Place: Earth-centred coordinates as a place on the Earth, in words.

struct Place {
    double latitudeDeg = 0.0;
    double longitudeDeg = 0.0; // -180 to 180
    double heightM = 0.0;      // above the ellipsoid
};

Place placeOf(const Vector3& xyz);
/// Whether people and antennas get there.
bool onSurface(const Place& place);
/// Whether stations usually stand that high.
bool usuallyThere(const Place& place);
/// "35.3 S 149.0 E"
std::string shortText(const Place& place);
/// "35.31617 S, 149.01015 E, height 802.6 m"
std::string longText(const Place& place);

/// What to do to the coordinates so that they lie on the Earth's surface, and where that is; empty
/// where nothing usual helps.
std::string mendedToSurface(const Vector3& xyz);
/// What to do to the coordinates (exchange two, turn signs) so that they come within 100 m of the
/// ones that are meant; empty where that does not help.
std::string mendedTowards(const Vector3& xyz, const Vector3& meant);

} // namespace ctl::check
