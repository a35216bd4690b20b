#include "app/Controller.h"

#include "app/PeerLink.h"
#include "common/Clock.h"
#include "common/DeployConfig.h"
#include "common/Print.h"
#include "common/Signals.h"
#include "config/Deploy.h"
#include "intake/StreamObs.h"
#include "net/Log.h"
#include "net/Notify.h"
#include "net/ysocket.h"
#include "orbit/Rnxeph.h"
#include "vrs/VrsMain.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

ControlRecord CTRL;
int inputSocketID = -1;
int outputSocketID = -1;

namespace {

constexpr int kFewestArguments = 4; // with the program's name
constexpr std::chrono::milliseconds kRetry{3000};
// A stream has epochs more often than this.
constexpr std::chrono::seconds kSilence{30};

PeerLink peer;
std::array<std::uint8_t, 10240> received;
std::array<std::uint8_t, 8192> replyBuffer;

/// Empties a list and gives its memory back.
template <class List> void release(List& list) {
    list = List();
}

/// The service manager is told what the connection does, and of a silence when it began.
void notifyConnection(const char* what) {
    notifyStatus("%s %s:%d", what, DLY.input.host.c_str(), DLY.input.port);
}

void waitForData() {
    if (socket_wait(inputSocketID, kSilence))
        return;
    const CalendarTime last = time2epoch(timeadd(utcNow(), -static_cast<double>(kSilence.count())));
    notifyStatus("connected to %s:%d, no data since %02.0f:%02.0f UTC", DLY.input.host.c_str(),
                 DLY.input.port, last[3], last[4]);
    socket_wait(inputSocketID, kNoLimit);
    notifyConnection("connected to");
}

} // namespace

void Initialize(int argc, char** argv) {
    CTRL = {};
    CTRL.argc = argc;
    std::copy_n(argv, std::min<std::size_t>(static_cast<std::size_t>(argc), CTRL.argv.size()),
                CTRL.argv.begin());
    if (argc < kFewestArguments)
        usage();
    m_readJsonFile(DLY, argc, argv);
    prepareSession();
}

void prepareSession() {
    DLY.currentMjd = DLY.startMjd;
    DLY.currentSod = DLY.startSod;
    DLY.counters = {};
    DLY.stationEpochs.clear();
    DLY.stationEpochs.resize(DLY.stations.size()); // in place: one is too large for the stack
    Rnxeph_initial();
    StreamObs_m_initial();
}

void onrtcm0(std::uint32_t status, const std::uint8_t* frame, std::int32_t length) {
    if (status == kEpoch) {
        const int size = VrsMain(0, replyBuffer);
        print(Level::debug, "***INFO: Get a return buff, size=%d\n", size);
        if (size > 0)
            peer.sendReply(outputSocketID,
                           std::span(replyBuffer).first(static_cast<std::size_t>(size)),
                           DLY.currentMjd * kSecondsPerDay + DLY.currentSod);
        printEpochEnd();
    } else {
        print(Level::debug, "***INFO: Copy raw buff, size=%d\n", length);
        if (length > 0)
            peer.sendFrame(outputSocketID, {frame, static_cast<std::size_t>(length)});
    }
    notifyDue(); // one block may hold many epochs, each with seconds of a slow card or peer
}

void serveOnce() {
    if (socket_isconnection(inputSocketID) == -1) {
        StreamObs_m_restart();
        if (const auto left = peer.untilNextConnect(); left.count() > 0) {
            notifyConnection("connection was lost at once, waiting 3 s to reach");
            pauseTelling(left);
        }
        notifyConnection("connecting to");
        const int connected = socket_connect(inputSocketID, DLY.input.host.c_str(),
                                             static_cast<std::uint32_t>(DLY.input.port));
        notifyReady();
        if (connected == -1) {
            print(Lasting{Cause::noConnection}, "***WARN: Connect input failed, %s:%d\n",
                  DLY.input.host.c_str(), DLY.input.port);
            notifyConnection("no connection, trying every 3 s to reach");
            pauseTelling(kRetry);
            return;
        }
        peer.made();
        printEnded(Cause::noConnection);
        printEnded(Cause::outputLost);
        notifyConnection("connected to");
        // The output is the input's descriptor: nothing is connected for it, its loss is only told.
        if (socket_isconnection(outputSocketID) == -1)
            print(Lasting{Cause::outputLost}, "***WARN: Connect output failed, %s:%d\n",
                  DLY.output.host.c_str(), DLY.output.port);
    }
    waitForData();
    const int length = socket_recv(inputSocketID, received);
    const int error = errno;
    print(Level::debug, "recv len:%d\n", length);
    if (length == -1)
        peer.receiveFailed(error);
    StreamReader(0, received.data(), length);
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
    notifyInitial();
    inputSocketID = outputSocketID = socket_new_tcp();
    if (inputSocketID < 0)
        fatal("***ERROR: no socket, %s", std::strerror(errno));
    for (;;)
        serveOnce();
}

void finish() {
    DLY.satelliteIndex = Session::noSatellites(); // no name leads to a satellite any more
    release(DLY.satelliteNames);
    release(DLY.satellites);
    release(DLY.stations);
    release(DLY.stationEpochs);
    release(DLY.requests);
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
