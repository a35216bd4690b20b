#include "ctl/Alive.h"
#include "ctl/CommandLine.h"
#include "ctl/check/Check.h"
#include "ctl/dump/Dump.h"
#include "ctl/init/Init.h"
#include "ctl/rinex/Rinex.h"
#include "ctl/simulate/Faults.h"
#include "ctl/simulate/Quirks.h"
#include "ctl/simulate/Simulate.h"
#include "ctl/status/Status.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>

// The command line of all subcommands: their options, and what they are told of them.

namespace {

int simulate(const ctl::simulate::Arguments& arguments) {
    try {
        return runSimulate(arguments);
    } catch (const ctl::simulate::BadArgument& e) {
        throw CLI::ValidationError(e.option(), e.what());
    } catch (const std::runtime_error& e) {
        std::cerr << "kestrunectl simulate: " << e.what() << "\n";
        return ctl::kBadUsage;
    }
}

void addSimulate(CLI::App& app, int& status) {
    const auto w = std::make_shared<ctl::simulate::Arguments>();
    CLI::App* const c = app.add_subcommand(
        "simulate", "Stand in for a reference station: send a simulated or recorded stream to the "
                    "services that connect, and judge every reply.");
    // clang-format off
    c->add_option("--host", w->host, "address to listen on (dotted IPv4)")->capture_default_str();
    c->add_option("--port", w->port, "port to listen on")->check(CLI::Range(1, 65535))->capture_default_str();
    c->add_option("--site", w->site, "LAT,LON,HEIGHT (degrees, m) or X,Y,Z (m)")->capture_default_str();
    c->add_option("--rate", w->rate, "epochs a second, 0.1 to 50")->capture_default_str();
    c->add_option("--msm", w->msm, "observation messages: 4, 5, 6, 7 or legacy (1004, 1012)")->capture_default_str();
    c->add_option("--systems", w->systems, "letters of G R E C J S, in the order sent")->capture_default_str();
    c->add_option("--tracking", w->tracking, "signals: full, pilot, combined or single")
        ->check(CLI::IsMember({"full", "pilot", "combined", "single"}))->capture_default_str();
    c->add_option("--start", w->start, "now, or UTC as 2026-03-01T12:00:00; then the written deployment has a clock")->capture_default_str();
    c->add_option("--speed", w->speed, "simulated seconds a second, or max: the next epoch once the last is answered")->capture_default_str();
    c->add_option("--duration", w->duration, "simulated seconds; 0 = until stopped")->capture_default_str();
    c->add_option("--seed", w->seed, "of everything random; the same seed sends the same bytes")
        ->check([](const std::string& n) { return n.starts_with('-') ? "\"" + n + "\": a whole number from 0 on" : std::string(); })->capture_default_str();
    c->add_flag("--noise", w->noise, "add noise to ranges and phases");
    c->add_option("--ephemerides", w->ephemerides, "before the observations, interleaved with them, or late")
        ->check(CLI::IsMember({"before", "interleaved", "late"}))->capture_default_str();
    c->add_option("--split", w->split, "send in blocks of N bytes, or random ones");
    c->add_option("--write-deployment", w->deployment, "write a configuration for this station into a directory");
    c->add_option("--answer", w->answer, "how the service answers: specified, complete, or both (two services, on successive ports)")
        ->check(CLI::IsMember({"specified", "complete", "both"}))->capture_default_str();
    c->add_option("--output", w->output, "what comes back: reply frames, or a plain rtcm3 stream")
        ->check(CLI::IsMember({"reply", "rtcm3"}))->capture_default_str();
    c->add_option("--offset", w->offset, "EAST,NORTH,UP (m) of the virtual station; without it, 300 m north");
    c->add_option("--stations", w->stations, "endpoints, on successive ports")->check(CLI::Range(1, 5000))->capture_default_str();
    c->add_option("--record", w->record, "write what is sent on the first endpoint to a file");
    c->add_option("--replies", w->replies, "write what comes back there to a file");
    c->add_option("--play", w->play, "send a recorded stream; replies are checked for form, order and completeness")->check(CLI::ExistingFile);
    c->add_option("--rover", w->rovers, "judge what this command gets through a caster and writes to its standard output; started again when it ends; once for each endpoint")->type_name("COMMAND");
    c->add_option("--report", w->report, "draw what the first endpoint showed as a web page in one file");
    c->add_option("--fault", w->faults, "what goes wrong, now and then or (NAME@N) at epoch N: " + ctl::simulate::faultNames())->delimiter(',');
    c->add_option("--quirk", w->quirks, "how the receiver writes times, as some in use do, or two stations in one stream: " + ctl::simulate::quirkNames())->delimiter(',');
    c->add_flag("--json", w->json, "print the summary as JSON, and nothing else");
    // clang-format on
    c->footer(
        "Ends with 0 where everything was right, or the form of replies whose values are not\n"
        "known; 1 where something was wrong, a rover missed epochs, or there was nothing to\n"
        "judge; 2 where arguments are wrong, or a file or port cannot be used. The last line\n"
        "is the verdict.");
    c->callback([w, &status] { status = simulate(*w); });
}

void addDump(CLI::App& app, int& status) {
    struct Arguments {
        std::string source = "-";
        ctl::dump::DumpOptions options;
    };
    const auto arguments = std::make_shared<Arguments>();
    CLI::App* const dump =
        app.add_subcommand("dump", "Print the RTCM 3 messages and reply frames of a stream.");
    dump->add_option("source", arguments->source,
                     "a file, - for standard input (the default), or HOST:PORT to connect to");
    dump->add_flag("-v,--verbose", arguments->options.verbose, "every field of every message");
    dump->add_flag("--json", arguments->options.json, "one JSON object for each message");
    dump->footer(
        "Ends with 0; 1 where a check word was wrong or bytes were skipped, or where there\n"
        "was no good frame; 2 where the source cannot be read. Bytes before the first good\n"
        "frame and a last frame that the end cuts off are no faults. An interrupt ends a\n"
        "live stream with its counts.");
    dump->callback([arguments, &status] {
        status = ctl::dump::runDump(arguments->source, arguments->options);
    });
}

void addCheck(CLI::App& app, int& status) {
    const auto arguments = std::make_shared<ctl::check::Arguments>();
    CLI::App* const check =
        app.add_subcommand("check", "Find everything that is wrong with a configuration.");
    check->add_option("file", arguments->file, "the deployment file");
    check
        ->add_option("--unit", arguments->unit,
                     "examine /etc/kestrune/NAME.json as the unit kestrune@NAME does, with its "
                     "folder and its switches")
        ->type_name("NAME");
    check
        ->add_option("--stream", arguments->stream,
                     "read a piece of this stream, too, and say what the service would do with "
                     "it: a file, - for standard input, or HOST:PORT to connect to")
        ->type_name("FILE|HOST:PORT");
    check->add_option("--seconds", arguments->seconds, "how much of the stream at most")
        ->type_name("S")
        ->check(CLI::Range(1, 86400))
        ->capture_default_str();
    check->add_flag("--json", arguments->json, "everything as one JSON object");
    check->allow_extras();
    check->footer(
        "Behind the file stand switches of the service: -post -rawsav -vrssav -pthread\n"
        "-debug. Ends with 0, with or without warnings; 1 where the configuration cannot\n"
        "work; 2 for wrong arguments.");
    check->callback([arguments, check, &status] {
        arguments->switches = check->remaining();
        status = ctl::check::runCheck(*arguments);
    });
}

void addRinex(CLI::App& app, int& status) {
    const auto w = std::make_shared<ctl::rinex::Arguments>();
    CLI::App* const c = app.add_subcommand(
        "rinex", "Make a RINEX 3.05 observation file of what the service saved with -rawsav.");
    // clang-format off
    c->add_option("files", w->files, "files of one station, in any order")->required()->check(CLI::ExistingFile);
    c->add_option("-o,--out", w->out, "a file, - for standard output, or a folder, which gets a file with a long name; the working folder by default");
    c->add_flag("--force", w->force, "replace a file that is there already");
    c->add_option("--deployment", w->deployment, "take name, position, antenna and GLONASS channels from this configuration")->type_name("FILE");
    c->add_option("--unit", w->unit, "the same of the unit kestrune@NAME")->type_name("NAME");
    c->add_option("--status", w->status, "take receiver, antenna, channels and signals from this file of common/status")->type_name("FILE");
    c->add_option("--marker", w->marker, "name of the marker, such as ABCD00AUS; by default that in the names of the files");
    c->add_option("--marker-number", w->markerNumber, "such as a DOMES number");
    c->add_option("--marker-type", w->markerType, "of the standard's list")->capture_default_str();
    c->add_option("--observer", w->observer, "who observes");
    c->add_option("--agency", w->agency, "for whom");
    c->add_option("--run-by", w->runBy, "who makes the file");
    c->add_option("--receiver", w->receiver, "its type");
    c->add_option("--receiver-number", w->receiverNumber, "its serial number");
    c->add_option("--receiver-version", w->receiverVersion, "of its firmware");
    c->add_option("--antenna", w->antenna, "its type and radome, \"TRM59800.00 NONE\"");
    c->add_option("--antenna-number", w->antennaNumber, "its serial number");
    c->add_option("--antenna-delta", w->antennaDelta, "of its reference point from the marker, m; 0,0,0 by default")->type_name("HEIGHT,EAST,NORTH");
    c->add_option("--position", w->position, "of the marker, Earth-centred, m")->type_name("X,Y,Z");
    c->add_option("--signals", w->signals, "the signal of each carrier, which the records do not tell: \"G=1C,2W,5Q R=1P,2P\"")->type_name("S=LIST")->delimiter(' ')->allow_extra_args(false);
    c->add_option("--channels", w->channels, "GLONASS channels: R01=1,R02=-4")->type_name("Rnn=K")->delimiter(',')->allow_extra_args(false);
    c->add_option("--leap-seconds", w->leapSeconds, "GPS time minus UTC; by default that of the first epoch")->check(CLI::Range(0, 99));
    // clang-format on
    c->footer(
        "Ends with 0; 1 where something in the files was left out, each with its file, line\n"
        "and value, or where there was no epoch; 2 where an argument or a file cannot be used.");
    c->callback([w, &status] { status = ctl::rinex::runRinex(*w); });
}

void addInit(CLI::App& app, int& status) {
    const auto w = std::make_shared<ctl::init::Arguments>();
    CLI::App* const c =
        app.add_subcommand("init", "Write a complete configuration for a station, and check it.");
    c->add_option("name", w->name,
                  "of the unit kestrune@NAME; the station gets its first four "
                  "letters and digits as its name")
        ->required();
    c->add_option("endpoint", w->endpoint, "where the stream comes from")
        ->type_name("HOST:PORT")
        ->required();
    c->add_option("--position", w->position,
                  "of the antenna, Earth-centred, m; by default it is read from the stream, for "
                  "30 s at most")
        ->type_name("X,Y,Z");
    c->add_option("--systems", w->systems,
                  "letters of G R E C J; by default those of the stream, with --position all")
        ->type_name("LETTERS");
    c->add_option("--folder", w->folder,
                  "where NAME.json and the folder NAME are made; the working folder by default");
    c->footer(
        "Nothing is overwritten. Ends with 0; 1 where the stream lacks what is needed or the\n"
        "configuration cannot work, and then nothing is left; 2 for wrong arguments or a\n"
        "file that is there already.");
    c->callback([w, &status] { status = ctl::init::runInit(*w); });
}

void addStatus(CLI::App& app, int& status) {
    const auto w = std::make_shared<ctl::status::Arguments>();
    CLI::App* const c = app.add_subcommand(
        "status", "Print what services say of themselves: a screen, or a line each for several.");
    c->add_option("files", w->files, "files of common/status")->required();
    CLI::Option* const watch = c->add_flag("--watch", w->watch, "print it again every second");
    CLI::Option* const json = c->add_flag("--json", w->json, "one JSON object a line");
    c->add_flag("--prometheus", w->prometheus, "the text format of Prometheus")
        ->excludes(json)
        ->excludes(watch);
    json->excludes(watch);
    c->footer("Ends with 0; 1 where a file cannot be read.");
    c->callback([w, &status] { status = ctl::status::runStatus(*w); });
}

void addHealth(CLI::App& app, int& status) {
    struct Arguments {
        std::string file;
        double maxAgeS = 30.0;
    };
    const auto w = std::make_shared<Arguments>();
    CLI::App* const c =
        app.add_subcommand("health", "Say whether a service still gets its epochs.");
    c->add_option("file", w->file, "file of common/status")->required();
    c->add_option("--max-age", w->maxAgeS, "seconds since the last epoch")
        ->check(CLI::Range(0.1, 86400.0))
        ->capture_default_str();
    c->footer(
        "Ends with 0 while the last epoch is no older, else with 1 and a line that says why.");
    c->callback([w, &status] { status = ctl::status::runHealth(w->file, w->maxAgeS); });
}

void addAlive(CLI::App& app, int& status) {
    const auto seconds = std::make_shared<int>(10);
    CLI::App* const alive = app.add_subcommand(
        "alive", "Wait for a sign of life of the service in the same container.");
    alive->add_option("--within", *seconds, "seconds to wait, 1 to 3600; 10 by default")
        ->check(CLI::Range(1, 3600));
    alive->footer(
        "The service and this program need the same NOTIFY_SOCKET, such as @kestrune, and\n"
        "the service WATCHDOG_USEC, four times the microseconds between two signs of life.\n"
        "Ends with 0 alive; 1 silent; 2 no such socket.");
    alive->callback([seconds, &status] { status = ctl::alive::runAlive(*seconds); });
}

int run(int argc, char** argv) {
    CLI::App app{"Tools for RTCM 3 streams and the Kestrune service."};
    app.set_version_flag("--version", "kestrunectl " KESTRUNE_VERSION);
    app.require_subcommand(1);
    int status = 0;
    addSimulate(app, status);
    addDump(app, status);
    addCheck(app, status);
    addInit(app, status);
    addRinex(app, status);
    addStatus(app, status);
    addHealth(app, status);
    addAlive(app, status);
    return ctl::parsed(app, argc, argv, status);
}

} // namespace

int main(int argc, char** argv) {
    return ctl::guarded("kestrunectl", run, argc, argv);
}
