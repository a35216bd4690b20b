#pragma once

#include <string>
#include <string_view>

/// MetricsText: lines of the text format of Prometheus, version 0.0.4. Names come without their
/// prefix "kestrune_".

namespace ctl::status {

/// NAME="value", the value escaped.
std::string label(std::string_view name, std::string_view value);
/// The lines in front of the samples of a metric.
std::string head(std::string_view name, std::string_view type, std::string_view help);
/// `labels` with commas between them; none: no braces.
std::string sample(std::string_view name, const std::string& labels, double value);

} // namespace ctl::status
