#include "ctl/status/Status.h"

#include "base/Findings.h"
#include "ctl/status/Metrics.h"
#include "ctl/status/Screen.h"
#include "ctl/status/StatusFile.h"
#include "gnss/Clock.h"

#include <cjson/cJSON.h>

#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <sys/ioctl.h>
#include <unistd.h>

namespace ctl::status {

namespace {

constexpr int kRedrawMs = 1000;
constexpr const char* kTop = "\x1B[H\x1B[J"; // of a terminal, cleared

/// What a terminal has room for, so that nothing runs over its edges; elsewhere all of it.
std::string fitted(const std::string& out) {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0)
        return out;
    std::istringstream lines(out);
    std::string shown;
    int row = 1; // the last one is the cursor's
    for (std::string line; row < size.ws_row && std::getline(lines, line); ++row)
        shown += line.substr(0, size.ws_col) + "\n";
    return shown;
}

/// One object a line.
std::string jsonLine(const StatusFile& file) {
    const std::unique_ptr<char, decltype(&cJSON_free)> printed(cJSON_PrintUnformatted(file.root()),
                                                               cJSON_free);
    return std::string(printed.get()) + "\n";
}

int printOnce(const Arguments& arguments) {
    std::vector<StatusFile> files;
    std::string faults;
    for (const std::string& path : arguments.files)
        try {
            files.emplace_back(path);
        } catch (const std::runtime_error& e) {
            faults += e.what() + std::string("\n");
        }
    std::string out = arguments.prometheus ? metricsOf(files) : "";
    const double now = nowUnixS();
    for (const StatusFile& file : files)
        if (arguments.json)
            out += jsonLine(file);
        else if (!arguments.prometheus)
            out += arguments.files.size() == 1 ? screenOf(file, now) : lineOf(file, now);
    if (arguments.watch) {
        std::cout << kTop << fitted(out + faults) << std::flush;
    } else {
        std::cout << out << std::flush;
        std::cerr << faults << std::flush;
    }
    if (!std::cout)
        throw std::runtime_error("standard output could not be written to its end");
    return faults.empty() ? 0 : 1;
}

} // namespace

int runStatus(const Arguments& arguments) {
    while (arguments.watch) { // until an interrupt
        printOnce(arguments);
        sleepms(kRedrawMs);
    }
    return printOnce(arguments);
}

int runHealth(const std::string& file, double maxAgeS) {
    std::string why;
    try {
        const StatusFile status(file);
        const auto age = lastEpochAgeS(status, nowUnixS());
        if (age && *age <= maxAgeS)
            return 0;
        why = status.text("station") + ": " +
              (age ? text("the last epoch came %.1f s ago", *age) : "no epoch has come yet") +
              ", the connection is " + status.text("connection/state");
    } catch (const std::runtime_error& e) {
        why = e.what();
    }
    std::cout << why << '\n';
    return 1;
}

} // namespace ctl::status
