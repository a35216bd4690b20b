#pragma once

#include <string>
#include <vector>

/// Status: `kestrunectl status` and `kestrunectl health`, what services say of themselves.

namespace ctl::status {

struct Arguments {
    std::vector<std::string> files;
    bool watch = false;
    bool json = false;
    bool prometheus = false;
};

/// Prints the states; the exit status: 0, or 1 where a file cannot be read.
int runStatus(const Arguments& arguments);

/// 0 while the last epoch is no older than so many seconds, else 1 and a line that says why.
int runHealth(const std::string& file, double maxAgeS);

} // namespace ctl::status
