#include "app/Status.h"

#include "app/Service.h"
#include "gnss/Clock.h"
#include "rtcm/Frame.h"
#include "rtcm/layouts/ReplyFrame.h"

#include <algorithm>

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

} // namespace

ServiceStatus::ServiceStatus(const Service& of)
    : service_(of), next_(printTarget), startedS_(unixNowS()), stateSinceS_(startedS_),
      warmStart_(ephemeridesOf(of.intake.ephemerides)) {
    file_.open(of.record.statusPath);
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
    ++messagesIn_[messageType(frame)];
}

void ServiceStatus::observations(std::span<const std::uint8_t> frame) {
    addMessage(in_, frame);
    stationId_ = stationIdOf(frame);
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
    while (const std::size_t size = wholeFrame(reply)) {
        const std::span frame = reply.first(size);
        ++messagesOut_[messageType(frame)];
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

void ServiceStatus::writeIfDue() {
    if (monotonicNow() - writtenAt_ >= kStatusSpacing)
        write();
}

void ServiceStatus::write() {
    const std::string content = composed();
    file_.tell(file_.write({reinterpret_cast<const std::uint8_t*>(content.data()), content.size()},
                           ReplacedFile::Disk::mayWait));
    reasons_ = {};
    writtenAt_ = monotonicNow();
}
