#include "app/Status.h"

#include "app/Service.h"
#include "gnss/Clock.h"
#include "rtcm/layouts/ReplyFrame.h"
#include "rtcm/layouts/StationMessages.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr std::chrono::seconds kStatusSpacing{1};

double unixNowS() {
    const GTime now = utcNow();
    return static_cast<double>(now.time) + now.sec;
}

std::uint64_t ephemeridesOf(const EphemerisStore& store) {
    const auto held = [](const auto& record) {
        if constexpr (requires { record.tocMjd; })
            return record.tocMjd != 0;
        else
            return record.mjd != 0;
    };
    return static_cast<std::uint64_t>(std::ranges::count_if(store.kepler, held) +
                                      std::ranges::count_if(store.glonass, held));
}

/// 0 or the error number; the old file stays where it fails.
int replaceFile(const std::string& path, const std::string& content) {
    const std::string fresh = path + ".new";
    static_cast<void>(unlink(fresh.c_str())); // a pipe there would be waited for
    const int fd = open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0)
        return errno;
    const ssize_t n = write(fd, content.data(), content.size());
    const int error = n < 0 ? errno : n == static_cast<ssize_t>(content.size()) ? 0 : ENOSPC;
    if (close(fd) != 0 && error == 0)
        return errno;
    if (error == 0 && std::rename(fresh.c_str(), path.c_str()) == 0)
        return 0;
    const int why = error != 0 ? error : errno;
    static_cast<void>(std::remove(fresh.c_str()));
    return why;
}

} // namespace

ServiceStatus::ServiceStatus(const Service& service)
    : service_(service), next_(printTarget), startedS_(unixNowS()), stateSinceS_(startedS_),
      warmStart_(ephemeridesOf(service.intake.ephemerides)) {
    printTarget = this;
}

ServiceStatus::~ServiceStatus() {
    if (printTarget == this)
        printTarget = next_;
}

void ServiceStatus::changed(std::string_view state) {
    state_ = state;
    stateSinceS_ = unixNowS();
    write();
}

void ServiceStatus::attempt() {
    ++attempts_;
    if (state_ != "connecting")
        changed("connecting");
    else
        writeIfDue();
}

void ServiceStatus::connected() {
    ++made_;
    changed("connected");
}

void ServiceStatus::lost(Loss how) {
    if (state_ != "connected")
        return;
    ++losses_[static_cast<std::size_t>(how)];
    changed("connecting");
}

void ServiceStatus::received(std::size_t bytes) {
    bytesIn_ += bytes;
    lastByteAt_ = monotonicNow();
}

void ServiceStatus::frame(std::span<const std::uint8_t> frame) {
    frameBytesIn_ += frame.size();
    ++messagesIn_[typeOfFrame(frame)];
}

void ServiceStatus::observations(std::span<const std::uint8_t> frame) {
    addMessage(in_, frame);
    stationId_ = static_cast<int>(getbitu(frame, kMessageBit + 12, 12));
}

void ServiceStatus::take(const Lasting& what, std::string_view text) {
    next_->take(what, text);
    if (what.cause == Cause::messageRefused)
        ++refused_[static_cast<int>(what.subject)];
    if (what.subject >= reasons_.size())
        return;
    Reason& reason = reasons_[what.subject];
    if (what.cause == Cause::noRecord || what.cause == Cause::noEphemeris)
        reason = Reason::noEphemeris;
    else if (what.cause == Cause::oldEphemeris)
        reason = Reason::oldEphemeris;
    else if (what.cause == Cause::noOrbit || what.cause == Cause::noConvergence)
        reason = Reason::noOrbit;
}

/// The frames of an answer.
void ServiceStatus::countAnswer(std::span<const std::uint8_t> reply) {
    if (!service_.record.answering.plain && reply.size() >= kReplyHeadBytes + kReplyCheckBytes)
        reply = reply.subspan(kReplyHeadBytes, reply.size() - kReplyHeadBytes - kReplyCheckBytes);
    while (reply.size() > kHeaderBytes + kCheckBytes) {
        const std::size_t size = getbitu(reply, 14, 10) + kHeaderBytes + kCheckBytes;
        if (size > reply.size())
            return;
        const std::span frame = reply.first(size);
        ++messagesOut_[typeOfFrame(frame)];
        addMessage(out_, frame);
        reply = reply.subspan(size);
    }
}

void ServiceStatus::epoch(Fate fate, std::span<const std::uint8_t> reply) {
    if (fate == Fate::answered) {
        const std::chrono::duration<double> delay = monotonicNow() - lastByteAt_;
        ++delays_;
        delaySumS_ += delay.count();
        for (std::size_t i = 0; i < kDelayBoundsS.size(); ++i)
            withinBound_[i] += delay.count() <= kDelayBoundsS[i] ? 1U : 0U;
        countAnswer(reply);
        ++answers_;
        bytesOut_ += reply.size();
    }
    seen_ = endEpoch(in_);
    answered_ = endEpoch(out_);
    // A reply of few signals is sent also where it holds no satellite.
    if (fate == Fate::answered && answered_ == Satellites{})
        fate = Fate::noSatellite;
    ++fates_[static_cast<std::size_t>(fate)];
    lastEpochReceivedS_ = unixNowS();
}

void ServiceStatus::passed(std::size_t bytes, bool sent) {
    ++(sent ? passedOn_ : framesDropped_);
    bytesOut_ += sent ? bytes : 0;
}

void ServiceStatus::ofStream(std::span<const std::uint8_t> frame) {
    const int type = typeOfFrame(frame);
    if (type != 1005 && type != 1006)
        return;
    PositionMessage m;
    BitReader in = messageOf(frame);
    layoutPosition<1005>(in, m); // 1006 begins so
    if (in.ok())
        statedPlace_ = m.pos;
}

void ServiceStatus::writeIfDue() {
    if (monotonicNow() - writtenAt_ >= kStatusSpacing)
        write();
}

void ServiceStatus::write() {
    const std::string& path = service_.record.statusPath;
    const int error = replaceFile(path, composed());
    reasons_ = {};
    if (error != 0 && !failing_)
        print(Level::warning, "***WARN: file = %s,cannot be written,%s\n", path.c_str(),
              std::strerror(error));
    else if (error == 0 && failing_)
        print(Level::notice, "***INFO: file = %s,is written again\n", path.c_str());
    failing_ = error != 0;
    writtenAt_ = monotonicNow();
}
