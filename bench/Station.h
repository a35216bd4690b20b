#pragma once

#include "reference/standard/sky.h"

#include <numbers>
#include <string>

/// Station: the simulated station of the benchmarks, that of `kestrunectl simulate` where nothing
/// else is asked for.

inline const ref::GpsTime kStart{2408, 43818}; // 2026-03-01 12:10:00 UTC

inline ref::Sky skyOf(const std::string& systems, const std::string& tracking) {
    constexpr double degree = std::numbers::pi / 180;
    ref::Sky sky(ref::toXyz({-35.4 * degree, 148.98 * degree, 680}));
    sky.systems = systems;
    sky.signals = ref::tracking(tracking);
    sky.noise = true;
    return sky;
}
