#pragma once

#include <array>

/// X, Y, Z and their rates.
using OrbitState = std::array<double, 6>;
