#include "app/Status.h"

#include "app/Service.h"
#include "base/Signals.h"
#include "gnss/Clock.h"
#include "net/Notify.h"
#include "rtcm/Frame.h"
#include "rtcm/layouts/ReplyFrame.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::chrono::seconds kStatusSpacing{1};

ServiceStatus* toTellAtEnd = nullptr;

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
      warmStart_(ephemeridesOf(of.intake.ephemerides)), tally_(of.record) {
    file_.open(of.record.statusPath);
    printTarget = this;
    toTellAtEnd = this;
    callBeforeEnd(writeAtEnd);
    endInWaitsOnly();
    tellBeside([this] { return writeIfDue(); });
}

ServiceStatus::~ServiceStatus() {
    if (printTarget == this)
        printTarget = next_;
    toTellAtEnd = nullptr;
    tellBeside({});
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

void ServiceStatus::blockEnd() {
    skippedBytes_ =
        bytesIn_ -
        std::min(bytesIn_, frameBytesIn_ + static_cast<Count>(service_.intake.decoder.nbyte));
}

void ServiceStatus::frame(std::span<const std::uint8_t> frame) {
    frameBytesIn_ += frame.size();
    messagesIn_[messageType(frame)].add(frame.size());
}

void ServiceStatus::observations(std::span<const std::uint8_t> frame) {
    tally_.received(frame);
    stationId_ = stationIdOf(frame);
}

void ServiceStatus::epochEnd(bool whole) {
    ++(whole ? wholeEpochs_ : unfinishedEpochs_);
    if (!tally_.empty())
        tally_.endEpoch(Tally::Answer::none); // nobody was asked for an answer
}

void ServiceStatus::take(const Lasting& what, std::string_view text) {
    next_->take(what, text);
    tooLarge_ = tooLarge_ || what.cause == Cause::longReply;
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

/// The service ends by itself.
void ServiceStatus::lastLine() {
    writeAtEnd();
    next_->lastLine();
}

/// The frames of an answer.
void ServiceStatus::countAnswer(std::span<const std::uint8_t> reply) {
    if (!service_.record.answering.plain && reply.size() >= kReplyHeadBytes + kReplyCheckBytes)
        reply = reply.subspan(kReplyHeadBytes, reply.size() - kReplyHeadBytes - kReplyCheckBytes);
    while (!reply.empty()) {
        const std::span frame = reply.first(frameLength(reply));
        messagesOut_[messageType(frame)].add(frame.size());
        tally_.answered(frame);
        reply = reply.subspan(frame.size());
    }
}

void ServiceStatus::epoch(Fate fate, std::span<const std::uint8_t> reply) {
    if (fate == Fate::answered) {
        const std::chrono::duration<double> delay = monotonicNow() - lastByteAt_;
        const auto bound = std::ranges::lower_bound(kDelayBoundsS, delay.count());
        ++delays_[static_cast<std::size_t>(bound - kDelayBoundsS.begin())];
        delaySumS_ += delay.count();
        countAnswer(reply);
        ++answers_;
        bytesOut_ += reply.size();
        // A reply of few signals is sent also where it holds no satellite.
        if (tally_.answeredNone())
            fate = Fate::noSatellite;
    } else if (fate == Fate::noSatellite && tooLarge_) {
        fate = Fate::tooLarge;
    }
    tally_.endEpoch(fate == Fate::answered || fate == Fate::noSatellite
                        ? Tally::Answer::byObservation
                        : Tally::Answer::none);
    ++fates_[static_cast<std::size_t>(fate)];
    lastFate_ = fate;
    lastReasons_ = std::exchange(reasons_, {});
    tooLarge_ = false;
    lastEpochReceivedS_ = unixNowS();
}

void ServiceStatus::passed(std::span<const std::uint8_t> frame, bool sent) {
    ++(sent ? passedOn_ : framesDropped_);
    if (!sent)
        return;
    bytesOut_ += frame.size();
    messagesOut_[messageType(frame)].add(frame.size());
}

/// The time until it is due again.
std::chrono::milliseconds ServiceStatus::writeIfDue() {
    if (monotonicNow() - writtenAt_ >= kStatusSpacing)
        write();
    return std::chrono::ceil<std::chrono::milliseconds>(writtenAt_ + kStatusSpacing -
                                                        monotonicNow());
}

void ServiceStatus::write() {
    tally_.settle();
    const std::string content = composed();
    file_.tell(file_.write({reinterpret_cast<const std::uint8_t*>(content.data()), content.size()},
                           ReplacedFile::Disk::mayWait));
    writtenAt_ = monotonicNow();
}

void ServiceStatus::writeAtEnd() {
    if (toTellAtEnd)
        toTellAtEnd->changed("ended");
}
