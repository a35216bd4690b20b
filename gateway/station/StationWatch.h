#pragma once

#include "app/Tally.h"
#include "gateway/station/Epochs.h"
#include "gateway/station/Series.h"

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// StationWatch: what became of the epochs of a station lately, for whoever looks at it.

namespace gateway {

/// The satellites of an epoch by system (as kMsmSystems; bit 63 = MSM id 1), and its observations.
struct EpochCells {
    Satellites satellites{};
    unsigned cells = 0;
    /// Of a system, or of all.
    int count(std::size_t system) const;
    int count() const;
};
EpochCells cellsOf(const Bytes& epoch);

class StationWatch {
public:
    /// Upper bounds (s) of delays from the last byte of an epoch to its answer.
    static constexpr std::array<double, 9> kDelayBoundsS{0.001, 0.002, 0.005, 0.01, 0.02,
                                                         0.05,  0.1,   0.5,   1.0};
    struct Delays {
        std::array<std::uint64_t, kDelayBoundsS.size() + 1> upTo{}; // the last: longer
        double sumS = 0.0;
        std::uint64_t count = 0;
    };

    /// A whole epoch of the station's stream.
    void cameIn(const Block& epoch, Instant at);
    /// A whole epoch that rovers get.
    void wentOut(const Block& epoch, Instant at);

    struct Last {
        Bytes bytes;
        EpochCells cells;
    };
    /// The last epoch of the stream, and the last that went out; empty where it is none of now: the
    /// stream is silent, or its epochs do not go out any more.
    const Last& in(Instant now) const;
    const Last& out(Instant now) const;
    /// How long ago the last epoch of the stream came; before the first, zero.
    Duration sinceIn(Instant now) const { return lastIn_ ? now - *lastIn_ : Duration(0); }
    /// When it went out, as Unix time; nothing before the first.
    std::optional<double> lastEpochUnixS() const { return lastOutUnixS_; }
    std::uint64_t epochsIn() const { return epochsIn_; }
    std::uint64_t epochsOut() const { return epochsOut_; }
    std::uint64_t cellsInTotal() const { return cellsIn_; }
    std::uint64_t cellsOutTotal() const { return cellsOut_; }

    /// Between epochs that go out, s: the median of the last ones.
    std::optional<double> intervalS() const;
    /// Median delay (s) of the last minute.
    std::optional<double> delayS(Instant now) const;
    const Delays& delays() const { return delays_; }
    /// How far the stream's time is ahead of the machine's clock, s; nothing where the stream tells
    /// none that can be compared.
    std::optional<double> clockAheadS() const { return clockAheadS_; }

    /// What is wrong with the satellites that go out, to be asked every few seconds. Nothing before
    /// ten minutes of epochs; what stays wrong for a day has become usual.
    struct Fewer {
        int have = 0, usual = 0; // usual: the median of the last hour
    };
    std::optional<Fewer> fewerThanUsual(Instant now);
    /// Systems ("GE") that nearly every minute of the last hour has had and no epoch has now. One
    /// of which the last satellite has set is none of them.
    std::string goneSystems(Instant now);

    // Of the last hour by 10 s, and of the last ten minutes by 1 s; satellites: the most at once.
    Series seen{std::chrono::seconds(10), 361}, answered{std::chrono::seconds(10), 361};
    Series epochs{std::chrono::seconds(10), 361};
    Series delay{std::chrono::seconds(1), 601}; // the largest of each step, s

private:
    Duration patience() const;
    int satellitesLately(Instant now);
    bool wasUsual(std::size_t system, Instant now);

    Last in_, out_;
    std::optional<double> lastOutUnixS_, clockAheadS_;
    std::optional<Instant> lastIn_, lastOut_;
    std::uint64_t epochsIn_ = 0, epochsOut_ = 0, cellsIn_ = 0, cellsOut_ = 0;
    std::deque<std::pair<std::uint32_t, Instant>> waiting_; // epochs that came, by time
    std::deque<std::pair<Instant, float>> recentDelays_;    // of a minute
    std::deque<double> intervals_;
    std::optional<FrameHead> lastHead_;
    Delays delays_;
    struct Few {
        Instant since;
        int usual = 0; // before
    };
    std::optional<Few> fewer_;
    std::array<std::optional<Instant>, kMsmSystems.size()> gone_;     // since when
    std::array<std::optional<Instant>, kMsmSystems.size()> lastWith_; // satellites of a system
    std::array<Series, kMsmSystems.size()> bySystem_{
        Series(std::chrono::minutes(1), 61), Series(std::chrono::minutes(1), 61),
        Series(std::chrono::minutes(1), 61), Series(std::chrono::minutes(1), 61),
        Series(std::chrono::minutes(1), 61), Series(std::chrono::minutes(1), 61),
        Series(std::chrono::minutes(1), 61)};
};

} // namespace gateway
