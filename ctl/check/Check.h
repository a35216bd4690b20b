#pragma once

#include "config/Configuration.h"
#include "ctl/check/Remarks.h"

#include <iosfwd>
#include <span>
#include <string>
#include <vector>

/// Check: `kestrunectl check`, everything that is wrong with a configuration, without starting the
/// service. The service's own readers read it; what they see is examined further.

struct cJSON;

namespace ctl::check {

/// A fault, and the notes that explain it.
struct Fault {
    Remark remark;
    std::vector<Remark> notes;
    int times = 1; // with the same words at the same place
};

struct CheckResult {
    std::string file;
    std::vector<Fault> faults;        // by file and line
    std::vector<std::string> outline; // what the service would do; empty where it would stop
    int count(Severity severity) const;
};

/// Reads and examines a deployment with these switches of the service, for a unit where it has one.
CheckResult checkDeployment(Deployment& out, const std::string& file,
                            std::span<const std::string> switches, const std::string& unit = {});
void printCheck(const CheckResult& result, std::ostream& out);
/// The same as a JSON object, which the caller deletes.
cJSON* jsonOfCheck(const CheckResult& result);

/// What is asked for: a file or a unit, and what else is looked at.
struct Arguments {
    std::string file;
    std::string unit;
    std::string stream;                // none where empty
    int seconds = 60;                  // of the stream
    std::vector<std::string> switches; // of the service
    bool json = false;
};

/// Checks and prints; the exit status: 0, 1 where it cannot work, 2 for a word that is no switch.
/// Throws where there is nothing to check.
int runCheck(Arguments arguments);

} // namespace ctl::check
