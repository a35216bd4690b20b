#include "app/Service.h"

#include "base/Print.h"
#include "gnss/Clock.h"
#include "net/Notify.h"
#include "net/ysocket.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <utility>

namespace {

constexpr std::chrono::milliseconds kRetry{3000};
// A stream has epochs more often than this.
constexpr std::chrono::seconds kSilence{30};

/// Empties a list and gives its memory back.
template <class List> void release(List& list) {
    list = List();
}

} // namespace

/// The service manager is told what the connection does, and of a silence when it began.
void Service::notifyConnection(const char* what) const {
    notifyStatus("%s %s:%d", what, record.input.host.c_str(), record.input.port);
}

/// What the watchdog leaves until an epoch must have come.
std::chrono::milliseconds Service::untilWatchdog() const {
    if (record.watchdogS <= 0.0)
        return kNoLimit;
    const auto due = lastEpochAt_ + std::chrono::milliseconds(std::llround(record.watchdogS * 1e3));
    return std::max(std::chrono::ceil<std::chrono::milliseconds>(due - monotonicNow()),
                    std::chrono::milliseconds(0));
}

/// False where the watchdog's time passes first.
bool Service::waitForData() const {
    const std::chrono::milliseconds left = untilWatchdog();
    if (left.count() == 0)
        return false;
    if (socket_wait(sockets.input, std::min<std::chrono::milliseconds>(kSilence, left)))
        return true;
    if (left <= kSilence)
        return false;
    const CalendarTime last = time2epoch(timeadd(utcNow(), -static_cast<double>(kSilence.count())));
    notifyStatus("connected to %s:%d, no data since %02.0f:%02.0f UTC", record.input.host.c_str(),
                 record.input.port, last[3], last[4]);
    const bool any = socket_wait(sockets.input, untilWatchdog());
    notifyConnection("connected to");
    return any;
}

void Service::prepareSession() {
    record.currentMjd = record.startMjd;
    record.currentSod = record.startSod;
    record.counters = {};
    record.stationEpochs.clear();
    record.stationEpochs.resize(record.stations.size()); // in place: one is too large for the stack
    folder = {record.outputPath};
    Rnxeph_initial(intake.ephemerides, record.satelliteNames);
    StreamObs_m_initial(intake, record.tables.leapsc);
    intake.savesEpochs = record.rawSave;
    station.begin(record);
}

void Service::beginStatus() {
    if (record.statusPath.empty())
        return;
    status_ = std::make_unique<ServiceStatus>(*this);
    intake.watcher = status_.get();
    status_->write();
}

void Service::readState() {
    ephemerisFile.open(record.statePath, record.file);
    int satellite = 0;
    const ReplyCallback sends =
        std::exchange(intake.onrtcm, [&](std::uint32_t status, const std::uint8_t*, std::int32_t) {
            satellite = status == kEphemeris ? intake.decoder.ephsat : 0;
        });
    ephemerisFile.read([&](std::span<const std::uint8_t> frame) {
        satellite = 0;
        StreamReader(intake, 0, frame.data(), static_cast<int>(frame.size()));
        return satellite;
    });
    intake.onrtcm = sends;
}

VrsSources Service::sources() {
    return {record, record, intake.ephemerides, record, folder, intake.run.epoch(), intake.sender};
}

int Service::answer(std::size_t place, std::span<std::uint8_t> reply) {
    return VrsMain(station, sources(), place, reply);
}

void Service::onMessage(std::uint32_t status, const std::uint8_t* frame, std::int32_t length) {
    if (status == kEpoch) {
        if (record.watchdogS > 0.0)
            lastEpochAt_ = monotonicNow();
        const int size = answer(0, replyBuffer_);
        print(Level::debug, "***INFO: Get a return buff, size=%d\n", size);
        const bool held = intake.displaced && !record.guard->warnOnly;
        const std::span reply(replyBuffer_.data(), static_cast<std::size_t>(size));
        const bool sent = !held && size > 0 &&
                          peer.sendReply(sockets.output, reply,
                                         record.currentMjd * kSecondsPerDay + record.currentSod);
        if (status_)
            status_->epoch(fateOf(reply, held, sent), reply);
        if (size > 0 && !sent)
            station.introduced.reset(); // it may have been in what is lost
        printEpochEnd();
    } else {
        if (status == kEphemeris)
            ephemerisFile.keep(intake.decoder.ephsat, {frame, static_cast<std::size_t>(length)});
        print(Level::debug, "***INFO: Copy raw buff, size=%d\n", length);
        if (length > 0)
            forward({frame, static_cast<std::size_t>(length)});
    }
    notifyDue(); // one block may hold many epochs, each with seconds of a slow card or peer
}

/// A plain stream has no second place and names: those of the sender stay behind, and its biases
/// are the virtual station's.
void Service::forward(std::span<const std::uint8_t> frame) {
    const int type = messageType(frame);
    if (!record.answering.plain || !tellsOfStation(type)) {
        pass(frame);
        return;
    }
    std::array<std::uint8_t, kMaxFrame> own;
    if (type != 1230 || frame.size() > own.size())
        return;
    std::copy(frame.begin(), frame.end(), own.begin());
    setbitu(own, kMessageBit + 12, 12,
            static_cast<std::uint32_t>(record.requests.front().stationId));
    const std::size_t size = closeFrame(own, 8 * (frame.size() - kCheckBytes));
    pass(std::span(own).first(size));
}

void Service::pass(std::span<const std::uint8_t> frame) {
    const bool sent = peer.sendFrame(sockets.output, frame);
    if (status_)
        status_->passed(frame, sent);
}

ServiceStatus::Fate Service::fateOf(std::span<const std::uint8_t> reply, bool held,
                                    bool sent) const {
    if (sent)
        return ServiceStatus::Fate::answered;
    if (!usable(record.stations.front().xyz))
        return ServiceStatus::Fate::noCoordinates;
    if (reply.empty())
        return ServiceStatus::Fate::noSatellite;
    return held ? ServiceStatus::Fate::guard : ServiceStatus::Fate::notSent;
}

void Service::serveOnce() {
    if (socket_isconnection(sockets.input) == -1) {
        StreamObs_m_restart(intake);
        if (status_)
            status_->lost(ServiceStatus::Loss::failed); // where nothing has told why
        if (const auto left = peer.untilNextConnect(); left.count() > 0) {
            notifyConnection("connection was lost at once, waiting 3 s to reach");
            pauseTelling(left);
        }
        notifyConnection("connecting to");
        if (status_)
            status_->attempt();
        const int connected = socket_connect(sockets.input, record.input.host.c_str(),
                                             static_cast<std::uint32_t>(record.input.port));
        notifyReady();
        if (connected == -1) {
            print(Lasting{Cause::noConnection}, "***WARN: Connect input failed, %s:%d\n",
                  record.input.host.c_str(), record.input.port);
            notifyConnection("no connection, trying every 3 s to reach");
            pauseTelling(kRetry);
            return;
        }
        peer.made();
        if (status_)
            status_->connected();
        lastEpochAt_ = monotonicNow();
        station.introduced.reset();
        printEnded(Cause::noConnection);
        printEnded(Cause::outputLost);
        notifyConnection("connected to");
        // The output is the input's descriptor: nothing is connected for it, its loss is only told.
        if (socket_isconnection(sockets.output) == -1)
            print(Lasting{Cause::outputLost}, "***WARN: Connect output failed, %s:%d\n",
                  record.output.host.c_str(), record.output.port);
    }
    if (!waitForData()) {
        print(Level::warning, "***WARN: No epoch for %.0f s, connection to %s:%d is made anew!\n",
              record.watchdogS, record.input.host.c_str(), record.input.port);
        socket_disconnect(sockets.input);
        if (status_)
            status_->lost(ServiceStatus::Loss::watchdog);
        return;
    }
    const int length = socket_recv(sockets.input, received_);
    const int error = errno;
    print(Level::debug, "recv len:%d\n", length);
    if (length == -1)
        peer.receiveFailed(error);
    if (status_ && length > 0)
        status_->received(static_cast<std::size_t>(length));
    else if (status_)
        status_->lost(length == 0 ? ServiceStatus::Loss::closed : ServiceStatus::Loss::failed);
    StreamReader(intake, 0, received_.data(), length);
    if (status_)
        status_->blockEnd();
    ephemerisFile.writeIfDue();
}

void Service::finish() {
    record.satelliteIndex = Session::noSatellites(); // no name leads to a satellite any more
    release(record.satelliteNames);
    release(record.satellites);
    release(record.stations);
    release(record.stationEpochs);
    release(record.requests);
}
