#include "app/Surface.h"

#include "base/Print.h"
#include "base/Signals.h"
#include "config/Deploy.h"
#include "net/Log.h"
#include "net/Notify.h"
#include "net/ysocket.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

constexpr int kFewestArguments = 4; // with the program's name

Service service;

} // namespace

ControlRecord CTRL;
PackState StaComDamo;
DeployConfig& DLY = service.record;
EphemerisStore& BRDEPH = service.intake.ephemerides;
VrsEncoders& VrsEco = service.station.encoders;
std::array<RangeHistory, kMaxSatellites>& last_drleng = service.station.history;
ReplyCallback& onrtcm = service.intake.onrtcm;
int& inputSocketID = service.sockets.input;
int& outputSocketID = service.sockets.output;

void Initialize(int argc, char** argv) {
    CTRL = {};
    CTRL.argc = argc;
    std::copy_n(argv, std::min<std::size_t>(static_cast<std::size_t>(argc), CTRL.argv.size()),
                CTRL.argv.begin());
    if (argc < kFewestArguments)
        usage();
    m_readJsonFile(service.record, argc, argv);
    service.prepareSession();
}

void onrtcm0(std::uint32_t status, const std::uint8_t* frame, std::int32_t length) {
    service.onMessage(status, frame, length);
}

void serve(int argc, char** argv) {
    openStandardDescriptors();
    endOnSignals();
    // Neither a terminal or peer that is gone nor a file at its greatest size ends the process.
    for (const int signal : {SIGHUP, SIGPIPE, SIGXFSZ})
        static_cast<void>(std::signal(signal, SIG_IGN));
    Log log(STDOUT_FILENO, std::getenv("JOURNAL_STREAM"));
    printTarget = &log;
    print(Level::notice, "Kestrune v2.5\n");
    onrtcm = onrtcm0;
    Initialize(argc, argv);
    service.readState();
    service.beginStatus();
    notifyInitial();
    inputSocketID = outputSocketID = socket_new_tcp();
    if (inputSocketID < 0)
        fatal("***ERROR: no socket, %s", std::strerror(errno));
    for (;;)
        service.serveOnce();
}

void finish() {
    service.finish();
}

void Write(int value) {
    std::FILE* const log = std::fopen("log", "a+");
    if (!log) {
        print("file open fail\n");
        return;
    }
    static_cast<void>(std::fprintf(log, "%d\n", value)); // a diagnosis that is lost does no harm
    static_cast<void>(std::fclose(log));
}
