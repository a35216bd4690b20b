#pragma once

#include "gateway/net/Within.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

/// Series: one value for each step of time, the last so many of them.

namespace gateway {

class Series {
public:
    /// No value came in a step.
    static constexpr float kNone = std::numeric_limits<float>::quiet_NaN();

    Series(Duration step, std::size_t most) : step_(step), values_(most, kNone) {}

    Duration step() const { return step_; }
    /// The value of the step that holds the instant; nothing came in the steps left out.
    void set(Instant at, float value) {
        advance(at);
        values_[last_] = value;
    }
    /// The largest value of the step counts.
    void raise(Instant at, float value) {
        const float before = now(at);
        values_[last_] = std::isnan(before) ? value : std::max(before, value);
    }
    /// What the step has; kNone where nothing came.
    float now(Instant at) {
        advance(at);
        return values_[last_];
    }
    /// The steps before the one that holds the instant, in order.
    std::vector<float> whole(Instant at) {
        advance(at);
        std::vector<float> out;
        out.reserve(values_.size() - 1);
        for (std::size_t i = 1; i < values_.size(); ++i)
            out.push_back(values_[(last_ + i) % values_.size()]);
        return out;
    }

private:
    void advance(Instant at) {
        const auto step = at.time_since_epoch() / step_;
        const auto gone =
            std::min<Duration::rep>(step - at_, static_cast<Duration::rep>(values_.size()));
        for (Duration::rep i = 0; i < gone; ++i) {
            last_ = (last_ + 1) % values_.size();
            values_[last_] = kNone;
        }
        at_ = std::max(at_, step);
    }

    Duration step_;
    std::vector<float> values_;
    std::size_t last_ = 0;
    Duration::rep at_ = 0; // steps since the clock's beginning
};

} // namespace gateway
