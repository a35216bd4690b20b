#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

/// EpochObs: the observations of one station at one epoch, by configured satellite and carrier
/// slot. Slot f of a satellite belongs to the f-th configured frequency of its system.

inline constexpr std::size_t kMaxSatellites = 160; // configured satellites
inline constexpr std::size_t kMaxSlots = 8;        // carrier slots of a satellite

/// What was observed of one carrier slot; all 0 = absent.
struct SlotObs {
    double phase;  // cycles
    double range;  // m
    double cn0;    // dB-Hz
    float doppler; // Hz, the decoder's value with the sign reversed
    /// Observation codes; 0 = none.
    std::uint8_t phaseType, rangeType;
};

/// Rows by configured-satellite index. They stand in the order of writing, and a row costs the
/// slots that were written: an epoch touches few lines of memory, and clearing none of the rows.
class EpochObs {
public:
    /// A slot for reading, absent where it was not written.
    const SlotObs& at(std::size_t satellite, std::size_t slot) const {
        static constexpr SlotObs absent{};
        return (slots_[satellite] >> slot & 1) != 0 ? rows_[place_[satellite]][slot] : absent;
    }
    /// A slot for writing; from now on it counts as written, as its satellite does.
    SlotObs& slot(std::size_t satellite, std::size_t slot) {
        if (slots_[satellite] == 0) {
            place_[satellite] = static_cast<std::uint8_t>(count_);
            order_[count_++] = static_cast<std::uint8_t>(satellite);
        }
        SlotObs& written = rows_[place_[satellite]][slot];
        if ((slots_[satellite] >> slot & 1) == 0)
            written = {};
        slots_[satellite] |= static_cast<std::uint8_t>(1U << slot);
        return written;
    }
    /// Calls take(slot, observations) for the written slots of a satellite.
    template <class Take> void each(std::size_t satellite, Take take) const {
        for (unsigned left = slots_[satellite]; left != 0; left &= left - 1) {
            const auto slot = static_cast<std::size_t>(std::countr_zero(left));
            take(slot, rows_[place_[satellite]][slot]);
        }
    }
    /// A satellite counts as observed when its carrier phases do not sum to 0; ranges alone do not.
    bool has(std::size_t satellite) const {
        double sum = 0.0;
        each(satellite, [&](std::size_t, const SlotObs& obs) { sum += obs.phase; });
        return sum != 0.0;
    }
    /// Satellites that were written, in the order of writing.
    std::span<const std::uint8_t> written() const { return {order_.data(), count_}; }

    void clear() {
        for (const std::size_t satellite : written())
            slots_[satellite] = 0;
        count_ = 0;
    }
    void copyFrom(const EpochObs& other) {
        clear();
        for (const std::size_t satellite : other.written())
            other.each(satellite,
                       [&](std::size_t k, const SlotObs& obs) { slot(satellite, k) = obs; });
    }

private:
    using Row = std::array<SlotObs, kMaxSlots>;
    static_assert(kMaxSlots == 8, "bits of a byte");

    // Not filled with zeros: most of the rows never come into use.
    std::unique_ptr<Row[]> rows_ = std::make_unique_for_overwrite<Row[]>(kMaxSatellites);
    std::array<std::uint8_t, kMaxSatellites> slots_{}; // bit k: slot k was written
    std::array<std::uint8_t, kMaxSatellites> place_{}; // row of a satellite that was written
    std::array<std::uint8_t, kMaxSatellites> order_{}; // satellite of a row
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
