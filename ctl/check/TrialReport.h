#pragma once

#include "ctl/check/Trial.h"

#include <iosfwd>
#include <string>
#include <vector>

struct cJSON;

/// TrialReport: what a trial showed, for an operator and for JSON.

namespace ctl::check {

/// How the reading of a stream ended, for the first line.
struct TrialSource {
    std::string name;
    std::string ended; // such as "nothing came for 60 s"; empty at the limit
};

/// What is odd about the stream, the worst first.
std::vector<std::string> remarksOn(const TrialResult& result);
/// Why fewer cells of a signal are in the replies than came; empty where all are.
std::string whyLost(const SignalKey& key, const TrialResult& result);
/// "the service would answer 60 of 61 epochs", or why it would answer none.
std::string verdictOn(const TrialResult& result);

void printTrial(const TrialSource& source, const TrialResult& result, std::ostream& out);
cJSON* jsonOfTrial(const TrialSource& source, const TrialResult& result);

} // namespace ctl::check
