#pragma once

#include <string>

/// Init: `kestrunectl init`, a complete deployment for a station, from its address alone.

namespace ctl::init {

struct Arguments {
    std::string name;     // of the unit
    std::string endpoint; // HOST:PORT
    std::string position; // "X,Y,Z", m; empty: from the stream
    std::string systems;  // letters; empty: those of the stream, or all
    std::string folder = ".";
};

/// Writes the files and checks them; the exit status: 0, or 1 where the stream lacks what is needed
/// or the deployment could not work, and nothing is left. std::runtime_error for wrong arguments
/// and where a file is there already.
int runInit(const Arguments& arguments);

} // namespace ctl::init
