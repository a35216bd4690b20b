/// The answer to one epoch against what a service owes for it. Every judge of a service uses this:
/// that of a simulated station, and that of a stream that goes to rovers.
#pragma once

#include "difference.h"
#include "predict.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace ref {

/// Of the specified answer, whose messages are MSM4. Half a step: 2^-24 ms of range (DF400), 2^-29
/// ms of phase (DF401).
constexpr double kRangeHalfStepM = 0.5 * 0x1p-24 * kLightSpeed / 1000;
constexpr double kPhaseHalfStepM = 0.5 * 0x1p-29 * kLightSpeed / 1000;
/// Bounds on |reply - truth|: half a step, and 0.1 mm for the rounding on the way. The rotation
/// rate that the service uses for QZSS differs from the true one by 1.467e-12 rad/s: up to 38 m of
/// orbit at the end of a week, 0.4 mm of the change of range over 300 m, more by as much as the
/// virtual station is farther.
constexpr double kQzssMoreM = 4e-4;
constexpr double kQzssPerM = kQzssMoreM / 300;
constexpr double qzssMoreM(char system, double distanceM) {
    return system == 'J' ? std::max(kQzssMoreM, kQzssPerM * distanceM) : 0;
}
/// The virtual station at a distance (m).
constexpr double rangeBoundM(char system, double distanceM = 300) {
    return kRangeHalfStepM + 1e-4 + qzssMoreM(system, distanceM);
}
constexpr double phaseBoundM(char system, double distanceM = 300) {
    return kPhaseHalfStepM + 1e-4 + qzssMoreM(system, distanceM);
}

/// By how much the epoch of a message is later than a time, as far as its own day or week tells.
double lateS(const Msm& m, GpsTime t);
/// To the millisecond.
std::string secondsText(double s);

struct ComparedAnswer {
    std::vector<Difference> differences;
    std::vector<ComparedCell> cells;
    std::map<std::string, int> kept; ///< observations that came, such as "G1C"
    std::optional<Vec3> positionM;   ///< that 1005 or 1006 says
    /// Messages with another epoch: how many, and by how much (s) the last one, by type.
    std::map<int, std::pair<int, double>> otherEpoch;
};

/// Whether what the virtual station says of itself stands in front of the observations.
enum class StationPart { due, mayCome, none };

/// All messages of the answer. `owes` is what predicted the epoch.
ComparedAnswer compareAnswer(const std::vector<Frame>& came, const Expected& expected,
                             const Predictor& owes, StationPart station);

/// Whether an observation message belongs to the answer to an epoch.
bool answersEpoch(const Msm& head, const Expected& expected, const Expectation& terms);
/// The same of the specified answer, by its time.
bool sameEpoch(const Msm& head, GpsTime t, const Expectation& terms);

void compareSpecified(std::span<const Frame> came, const Expected& expected,
                      const Expectation& terms, ComparedAnswer& out);
void compareComplete(std::span<const Frame> came, const Expected& expected,
                     const Expectation& terms, ComparedAnswer& out);

} // namespace ref
