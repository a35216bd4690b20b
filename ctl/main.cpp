#include "ctl/Simulate.h"

#include <CLI/CLI.hpp>

int main(int argc, char** argv) {
    CLI::App app{"Companion of Kestrune: simulate a reference station, look into a stream"};
    app.set_version_flag("--version", "kestrunectl " KESTRUNE_VERSION);
    app.require_subcommand(1);
    int status = 0;
    addSimulate(app, status);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;
    }
    return status;
}
