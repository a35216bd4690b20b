#pragma once

#include "ctl/rinex/Records.h"

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

/// Joined: the epochs of several files of records in the order of their times. A first pass finds
/// where each stands and what there is; a second one reads them again, one by one.

namespace ctl::rinex {

/// What the epochs of a system hold.
struct SystemContents {
    std::vector<bool> columns; // that have a value
    std::set<std::string> satellites;
    std::uint64_t withoutValue = 0; // lines of satellites that are left out for that
};

class Joined {
public:
    /// Faults of the records, and epochs that are there twice with other values.
    Joined(const std::vector<std::string>& files, const Records::Faults& faults);

    struct Epoch {
        std::int64_t ticks = 0;
        Place place;
        std::size_t file = 0;
        std::uint64_t digest = 0; // of its lines
    };
    const std::vector<Epoch>& epochs() const { return epochs_; }
    const std::map<char, SystemContents>& systems() const { return systems_; }
    /// Epochs that are there again with the same values.
    std::uint64_t repeated() const { return repeated_; }
    /// Files whose epochs do not follow each other in time.
    const std::set<std::string>& disordered() const { return disordered_; }
    /// The most frequent step between epochs; 0 with fewer than two.
    std::int64_t intervalTicks() const;

    /// Calls `take` with each epoch and its satellites that have a value.
    void forEach(const std::function<void(const Record&)>& take) const;

private:
    void survey(std::size_t file, const Records::Faults& faults);
    void sort(const Records::Faults& faults);

    std::vector<std::string> files_;
    std::vector<Epoch> epochs_;
    std::map<char, SystemContents> systems_;
    std::set<std::string> disordered_;
    std::uint64_t repeated_ = 0;
};

} // namespace ctl::rinex
