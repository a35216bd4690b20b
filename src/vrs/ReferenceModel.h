#pragma once

#include "orbit/RnxephUtils.h"
#include "vrs/VrsObsPack.h"

/// ReferenceModel: what the reference station itself sees.

/// Ranges, elevations and azimuths of the pack's observed satellites as its station sees them; 0
/// where a satellite has none.
void VrsBaseStation_m_gnssModel(const OrbitSource& in, VrsObsPack& pack);
/// The system number that means GLONASS; every other one means the Keplerian systems together.
inline constexpr int kCountGlonass = 1;
/// Satellites of the store that have an ephemeris.
int VrsBaseStation_CountSat(const EphemerisStore& store, int system);
