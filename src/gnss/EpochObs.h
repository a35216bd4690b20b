#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

/// EpochObs: the observations of one station at one epoch, by configured satellite and carrier
/// slot. Slot f of a satellite belongs to the f-th configured frequency of its system.

inline constexpr std::size_t kMaxSatellites = 160; // configured satellites
inline constexpr std::size_t kMaxSlots = 8;        // carrier slots of a satellite

/// One satellite's slots; 0.0 = absent.
struct SatelliteObs {
    std::array<double, kMaxSlots> phase{};   // cycles
    std::array<double, kMaxSlots> range{};   // m
    std::array<double, kMaxSlots> cn0{};     // dB-Hz
    std::array<double, kMaxSlots> doppler{}; // Hz, the decoder's value with the sign reversed
    /// Observation codes of phase and range; 0 = none.
    std::array<std::uint8_t, kMaxSlots> phaseType{}, rangeType{};
};

/// A satellite counts as observed when its carrier phases do not sum to 0; ranges alone do not.
inline bool existobs(const SatelliteObs& obs) {
    double sum = 0.0;
    for (const double phase : obs.phase)
        sum += phase;
    return sum != 0.0;
}

/// Rows by configured-satellite index. Clearing and copying cost the rows that were written.
class EpochObs {
public:
    const SatelliteObs& operator[](std::size_t satellite) const { return rows_[satellite]; }
    /// Whether the satellite counts as observed.
    bool has(std::size_t satellite) const {
        return written_[satellite] && existobs(rows_[satellite]);
    }
    /// The row of a satellite for writing; from now on it counts as written.
    SatelliteObs& row(std::size_t satellite) {
        if (!written_[satellite]) {
            written_[satellite] = true;
            order_[count_++] = static_cast<std::uint8_t>(satellite);
        }
        return rows_[satellite];
    }
    /// Satellites whose rows were written, in the order of writing.
    std::span<const std::uint8_t> written() const { return {order_.data(), count_}; }

    void clear() {
        for (const std::size_t satellite : written()) {
            rows_[satellite] = {};
            written_[satellite] = false;
        }
        count_ = 0;
    }
    void copyFrom(const EpochObs& other) {
        clear();
        for (const std::size_t satellite : other.written())
            row(satellite) = other.rows_[satellite];
    }

private:
    std::array<SatelliteObs, kMaxSatellites> rows_{};
    std::array<bool, kMaxSatellites> written_{};
    std::array<std::uint8_t, kMaxSatellites> order_{};
    std::size_t count_ = 0;
};

/// GLONASS channel + 8 by slot number - 1; 0 = unknown.
using GlonassChannels = std::array<int, 32>;

/// The epoch buffer of a station: what intake stores and the request takes.
struct StationEpoch {
    std::string name; // may be empty: then the configured name holds
    int mjd = 0;
    double sod = 0.0; // GPS time
    EpochObs obs;
    GlonassChannels glonassChannels{};
};

/// The time and the observations that intake writes; a request empties the epoch that it takes.
struct CurrentEpoch {
    int currentMjd = 0;
    double currentSod = 0.0;                 // GPS time
    std::array<int, 3> counters{};           // zeroed at start-up
    std::vector<StationEpoch> stationEpochs; // one per station

    /// Channels that the stream has stated; empty without a station.
    std::span<const int> streamedChannels() const {
        return stationEpochs.empty() ? std::span<const int>{} : stationEpochs[0].glonassChannels;
    }
};
