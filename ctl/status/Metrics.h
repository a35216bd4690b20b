#pragma once

#include "ctl/status/StatusFile.h"

#include <span>
#include <string>

namespace ctl::status {

/// Metrics: the states of services in the text format of Prometheus, version 0.0.4: names with
/// "kestrune_", base units, one label "station" for each service. std::runtime_error where two
/// services have one name.
std::string metricsOf(std::span<const StatusFile> files);

} // namespace ctl::status
