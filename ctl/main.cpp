#include "ctl/Alive.h"
#include "ctl/Check.h"
#include "ctl/Dump.h"
#include "ctl/Simulate.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

namespace {

constexpr int kBadUsage = 2;

int run(int argc, char** argv) {
    CLI::App app{"Tools for RTCM 3 streams and the Kestrune service."};
    app.set_version_flag("--version", "kestrunectl " KESTRUNE_VERSION);
    app.require_subcommand(1);
    int status = 0;
    ctl::simulate::addSimulate(app, status);
    ctl::dump::addDump(app, status);
    ctl::check::addCheck(app, status);
    ctl::alive::addAlive(app, status);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : kBadUsage;
    }
    return status;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {
        static_cast<void>(std::fprintf(stderr, "kestrunectl: %s\n", e.what()));
        return kBadUsage;
    }
}
