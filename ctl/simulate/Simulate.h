#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

/// Simulate: the subcommand `simulate`, the input endpoint of a service.

namespace ctl::simulate {

/// What the command line says, as it stands there.
struct Arguments {
    std::string host = "127.0.0.1";
    int port = 2101;
    std::string site = "-35.4,148.98,680";
    std::string rate = "1";
    std::string msm = "4";
    std::string systems = "GRECJ";
    std::string tracking = "full";
    std::string start = "now";
    std::string speed = "1";
    std::string duration = "0";
    std::uint64_t seed = 1;
    bool noise = false;
    std::string ephemerides = "before";
    std::string split;
    std::string deployment;
    int stations = 1;
    std::string record;
    std::string replies;
    std::string play;
    std::vector<std::string> rovers; // commands, one an endpoint
    std::string answer = "specified";
    std::string output = "reply";
    std::string offset;
    std::string report;
    std::vector<std::string> faults;
    std::vector<std::string> quirks;
    bool json = false;
};

/// What an option was given cannot be used; what() says what can.
class BadArgument : public std::invalid_argument {
public:
    BadArgument(std::string option, const std::string& why)
        : std::invalid_argument(why), option_(std::move(option)) {}
    const std::string& option() const { return option_; }

private:
    std::string option_;
};

/// Simulates and judges; the exit status as Judgement.h. Throws a BadArgument, and where a file or
/// port cannot be used.
int runSimulate(const Arguments& w);

} // namespace ctl::simulate
