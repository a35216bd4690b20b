#pragma once

#include "ctl/simulate/Summary.h"

#include <array>

/// Report: what a simulation showed, as one HTML page that needs nothing else. However long a run
/// is, a few thousand samples are kept of it.

namespace ctl::report {

/// A satellite at an epoch.
struct SkySample {
    long epoch = 0;
    ref::Fate fate = ref::Fate::answered;
    bool placed = false; // its direction is known
    ref::Direction direction;
    double changeM = 0; // of the range; 0 where it was not needed
};

struct ShownSatellite {
    std::map<ref::Fate, long> epochs; // with each fate
    std::vector<SkySample> track;     // thinned out
    SkySample last;                   // with a known place, where there was one
};

/// Counts of errors between bounds: 24 bins from -half a step to half a step, the same on outwards.
class ErrorBins {
public:
    static constexpr int kBinsOfHalfStep = 12;
    static constexpr int kBins = 80; // what is further out counts in the outermost
    void add(double errorM, double halfStepM, double boundM);
    double halfStepM() const { return halfStepM_; }
    double boundM() const { return boundM_; }
    long count(int bin) const { return counts_[static_cast<std::size_t>(bin)]; }
    long most() const;
    /// Bins from the middle outwards, on either side, up to the last that is not empty.
    int reach() const;

private:
    std::array<long, kBins> counts_{};
    double halfStepM_ = 0; // of the last one
    double boundM_ = 0;
};

/// The replies to some successive epochs, s.
struct DelaySample {
    double least = 0, most = 0;
};

struct ReportData {
    ref::Vec3 siteM{}, virtualM{};
    ref::GpsTime first, last;
    long epochs = 0;
    std::map<std::string, ShownSatellite> satellites;
    long skyStride = 1; // every so many epochs are kept
    std::map<char, ErrorBins> range, phase;
    std::vector<DelaySample> delays;
    long delayStride = 1; // epochs in a sample, the last may have fewer
};

class Report {
public:
    /// The virtual station stands 300 m north, or at an offset.
    explicit Report(const ref::Vec3& siteM, const std::optional<ref::Vec3>& offsetM = {}) {
        data_.siteM = siteM;
        data_.virtualM = ref::virtualPoint(siteM, offsetM);
    }
    /// An epoch of the first endpoint.
    void epoch(const ref::EpochResult& result);
    std::string page(const simulate::Totals& totals) const;
    const ReportData& data() const { return data_; }

private:
    void addDelay(double s);
    void thinOut();

    ReportData data_;
    std::size_t samples_ = 0; // in all tracks
};

} // namespace ctl::report
