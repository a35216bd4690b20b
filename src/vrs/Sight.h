#pragma once

#include "gnss/ComCoord.h"
#include "orbit/RnxephUtils.h"
#include "vrs/VrsObsPack.h"

#include <array>
#include <cstddef>
#include <span>

/// Sight: what a point on the ground sees of a satellite. Range in the frame of reception, with the
/// Earth-rotation term; light time by iteration, or the same from a forecast.

/// A point that a satellite is seen from; the iteration fills in the rest.
struct SightPoint {
    Vector3 xyz{};      // m
    Vector3 rotation{}; // the point in the Earth-rotation term, m
    double rangeM = 0.0;
    double lightTimeS = 0.0;
    double deltaS = 0.0; // light time before the last look minus the one after it
};

/// The light times of a satellite's last two epochs and their rates, from which the next is
/// forecast.
class LightTimes {
public:
    /// At a time of reception: the light time, and its rate at the transmission.
    void add(MjdTime t, double lightTimeS, double rate);
    /// By the cubic through both, s; 0 where there are none, too old ones, or no sense in it.
    double at(MjdTime t) const;

private:
    struct Seen {
        MjdTime t;
        double lightTimeS;
        double rate; // at the reception
    };
    std::array<Seen, 2> seen_{}; // the newest first
    int count_ = 0;
};

enum class LightTime { found, noOrbit, notConverged };
/// Iterates until the light times to all points (at least one) no longer change. All see the
/// satellite at the transmit time of the first one. The history of that point's light times saves
/// the iteration where it surely would end at the instant that they forecast, as orbits tell
/// instants apart: the result is the same to the last bit. Without an orbit, its reader has printed
/// why.
LightTime solveLightTime(const OrbitSource& in, std::size_t satellite, VrsObsPack& pack,
                         std::span<SightPoint> points, OrbitState& state, LightTimes& history);

/// Rate of the light time to a point that sees the satellite, s/s.
double lightTimeRate(const OrbitState& satellite, const SightPoint& point);

/// East, north and up of a satellite from a point, m; `fromLocal` turns local axes into
/// Earth-centred ones.
Vector3 localSight(const OrbitState& satellite, const Vector3& point, const Matrix3& fromLocal);
/// Elevation of a local direction, rad.
double elevationOf(const Vector3& local);
