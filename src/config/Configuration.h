#pragma once

#include "gnss/GTime.h"
#include "gnss/Session.h"

#include <cstdint>
#include <optional>
#include <string>

/// Configuration: what command line, deployment file and tables file say. Read once at the start
/// and constant afterwards.

/// Paths from the tables file, by key.
struct TablePaths {
    std::string antnam, antpcv, corrDCB, corrp1c1, database, gptgrd, gptgrd_w, jpleph, leapsc,
        object, ocload, vrnfln, polut1, satnav, stacoo, ut1t03, ut1t10, ut1t96, baselines, subnet,
        rtconfigs, corrStaDCB;
};

struct Connector {
    std::string host; // dotted IPv4
    int port = 0;
};

/// General stream of the auxiliary readers; prepared, not used.
struct Stream {
    int type = 0;
    int mode = 0;
    int state = 0;
};
inline void strinit(Stream& stream) {
    stream = {};
}

struct Configuration : Switches {
    std::string file; // path of the deployment file

    // Time window; MJD and GPS seconds of day.
    std::int64_t tablesFileTime = 0; // seconds since 1970
    int startMjd = 0;
    int endMjd = 0;
    double startSod = 0.0;
    double endSod = 0.0;
    double intervalS = 0.0;
    double sessionS = 0.0;
    int threads = 0;
    int traceLevel = 0;

    std::string processMode; // no key sets it
    int modeNumber = 0;      // no key sets it

    std::string logPath; // no key sets it
    std::string obsPath;
    std::string broadPath;
    std::string outputPath;
    TablePaths tables;
    Connector input;
    Connector output;
    std::string inputProtocol;
    std::optional<GTime> clock; // UTC at which the replay clock starts
    // Optional; empty and 0 = none.
    std::string statePath;  // folder that keeps ephemerides
    std::string statusPath; // file that tells the state
    double watchdogS = 0.0; // without an epoch the connection is made anew
    Stream stream;
};

/// What the readers of a deployment fill.
struct Deployment : Configuration, Session {};
