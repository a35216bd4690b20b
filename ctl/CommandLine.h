#pragma once

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

/// CommandLine: what the main functions of all programs of the project share.

namespace ctl {

inline constexpr int kBadUsage = 2;

/// Parses, which runs the callbacks; the exit status: what they have left in `status`, or 2 where
/// the arguments are wrong.
inline int parsed(CLI::App& app, int argc, char** argv, const int& status) {
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : kBadUsage;
    }
    return status;
}

/// The exit status of run(argc, argv); 2 and a line where it throws.
inline int guarded(const char* program, int (*run)(int, char**), int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {
        static_cast<void>(std::fprintf(stderr, "%s: %s\n", program, e.what()));
        return kBadUsage;
    }
}

} // namespace ctl
