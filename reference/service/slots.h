/// Which signals of a message a service keeps: a carrier takes the best of its signals; one
/// further signal of the message is kept besides and takes the place of its carrier's best.
#pragma once

#include <string>
#include <vector>

namespace ref {

/// The signals kept, in the order in which they are stored: of two on one carrier the later one
/// stays. `signals` in the order of the message's signal ids, empty texts for unassigned ids.
std::vector<std::string> storedSignals(char system, const std::vector<std::string>& signals);

} // namespace ref
