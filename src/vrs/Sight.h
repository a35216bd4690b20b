#pragma once

#include "common/ComCoord.h"
#include "orbit/RnxephUtils.h"
#include "vrs/VrsObsPack.h"

#include <cstddef>
#include <span>

/// Sight: what a point on the ground sees of a satellite. Range in the frame of reception, with the
/// Earth-rotation term; light time by iteration.

/// A point that a satellite is seen from; the iteration fills in the rest.
struct SightPoint {
    Vector3 xyz{};      // m
    Vector3 rotation{}; // the point in the Earth-rotation term, m
    double rangeM = 0.0;
    double lightTimeS = 0.0;
    double deltaS = 0.0; // light time before the last pass minus the one after it
};

enum class LightTime { found, noOrbit, notConverged };
/// Iterates until the light times to all points (at least one) no longer change. All see the
/// satellite at the transmit time of the first one, for which a forecast (s; 0 = none) saves the
/// iteration where it is almost right. Without an orbit, its reader has printed why.
LightTime solveLightTime(const OrbitSource& in, std::size_t satellite, VrsObsPack& pack,
                         std::span<SightPoint> points, OrbitState& state, double forecastS = 0.0);
/// Rate of the light time to a point, s/s; without the Earth-rotation term.
double lightTimeRate(const OrbitState& satellite, const Vector3& point);

/// East, north and up of a satellite from a point, m; `fromLocal` turns local axes into
/// Earth-centred ones.
Vector3 localSight(const OrbitState& satellite, const Vector3& point, const Matrix3& fromLocal);
/// Elevation of a local direction, rad.
double elevationOf(const Vector3& local);
