#include "ctl/CommandLine.h"
#include "gateway/app/Gateway.h"
#include "gateway/net/Say.h"
#include "gateway/settings/CheckSettings.h"
#include "gateway/settings/Passwd.h"
#include "gateway/settings/ReadSettings.h"
#include "gateway/watch/EventLog.h"
#include "net/Log.h"
#include "net/Notify.h"

#include <CLI/CLI.hpp>
#include <boost/asio/signal_set.hpp>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sys/stat.h>
#include <unistd.h>

// The command line of the gateway.

namespace {

using namespace gateway;

constexpr auto kEndLimit = std::chrono::milliseconds(1900); // for all conversations and children

struct Arguments {
    std::string file;
    std::vector<std::string> stations, listeners;
};

ReadSettings settingsOf(const Arguments& arguments) {
    return arguments.file.empty() ? settingsOfCommandLine(arguments.stations, arguments.listeners)
                                  : readSettings(arguments.file);
}

/// Says what is wrong; whether it can work.
bool tellRemarks(const ReadSettings& read, const Arguments& arguments) {
    std::ostringstream said;
    if (!read.remarks.empty())
        printSettings(read, arguments.file.empty() ? "command line" : arguments.file, said);
    if (!said.str().empty())
        say(read.usable() ? Level::warning : Level::error, "", said.str());
    return read.usable();
}

/// Until SIGTERM or SIGINT; at SIGHUP the file is read again.
awaitable<void> obey(asio::signal_set& signals, Gateway& gateway, const Arguments& arguments) {
    while (co_await signals.async_wait(use_awaitable) == SIGHUP) {
        say(Level::notice, "gateway", "SIGHUP: the settings are read again");
        const ReadSettings read = settingsOf(arguments);
        if (!tellRemarks(read, arguments)) {
            say(Level::error, "gateway", "the settings in force stay");
            continue;
        }
        try {
            gateway.apply(read.settings, read.users);
        } catch (const std::exception& e) {
            say(Level::error, "gateway", std::string(e.what()) + "; the settings in force stay");
        }
    }
    say(Level::notice, "gateway", "ends");
}

int run(const Arguments& arguments) {
    umask(077); // what is written holds secrets
    openStandardDescriptors();
    Log log(STDOUT_FILENO, std::getenv("JOURNAL_STREAM"));
    EventLog events(log);
    printTarget = &events;
    const ReadSettings read = settingsOf(arguments);
    if (!tellRemarks(read, arguments))
        return 1;
    asio::io_context context(1);
    asio::signal_set signals(context, SIGTERM, SIGINT, SIGHUP); // from now on they wait their turn
    Gateway gateway(context, events);
    int status = 0;
    try {
        gateway.apply(read.settings, read.users);
        bool ends = false;
        asio::co_spawn(context, obey(signals, gateway, arguments),
                       [&](const std::exception_ptr&) { ends = true; });
        notifyInitial();
        notifyReady();
        while (!ends)
            context.run_one();
    } catch (const std::exception& e) {
        say(Level::error, "gateway", e.what());
        status = 1;
    }
    gateway.stop();
    context.run_for(kEndLimit);
    // Whatever has not ended in time ends with the process; children get SIGTERM.
    printFlush();
    if (!gateway.idle())
        std::_Exit(status);
    printTarget = nullptr;
    return status;
}

int commandLine(int argc, char** argv) {
    CLI::App app("Fetches the streams of reference stations, has them answered by Kestrune, and "
                 "serves what rovers ask for.",
                 "kestrune-gateway");
    app.set_version_flag("--version", std::string("kestrune-gateway " KESTRUNE_VERSION));
    Arguments arguments;
    CLI::Option* const file =
        app.add_option("FILE", arguments.file, "settings (TOML), see kestrune-gateway.toml(5)");
    app.add_option("--station", arguments.stations, "without a file: NAME=ADDRESS of a source")
        ->excludes(file);
    app.add_option("--listen", arguments.listeners,
                   "without a file: ADDRESS:PORT of the caster, by default [::]:2101")
        ->excludes(file);
    int status = 0;
    std::string checked, users, user;
    CLI::App* const check = app.add_subcommand("check", "examine settings");
    check->add_option("FILE", checked)->required();
    check->callback([&] { status = runCheck(checked, std::cout); });
    CLI::App* const passwd = app.add_subcommand("passwd", "set the password of a user");
    passwd->add_option("FILE", users)->required();
    passwd->add_option("NAME", user)->required();
    passwd->callback([&] { status = runPasswd(users, user, STDIN_FILENO, std::cout); });
    app.require_subcommand(0, 1);
    app.callback([&] {
        if (!app.get_subcommands().empty())
            return;
        if (arguments.file.empty() && arguments.stations.empty())
            throw CLI::RequiredError("FILE or --station");
        status = run(arguments);
    });
    return ctl::parsed(app, argc, argv, status);
}

} // namespace

int main(int argc, char** argv) {
    return ctl::guarded("kestrune-gateway", commandLine, argc, argv);
}
