#pragma once

#include "app/ReplacedFile.h"
#include "app/Tally.h"
#include "base/Print.h"
#include "gnss/EpochObs.h"
#include "intake/StreamWatcher.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

struct Service;

/// ServiceStatus: the file of common/status, which says how the service is. It counts what comes
/// and goes; why satellites are left out it learns from the lines that are printed. The file is
/// written anew and renamed, so a reader always gets a whole one: at most once a second, and when
/// the connection changes. The names of numbers end with their units; counters never go back.
class ServiceStatus final : public StreamWatcher, public PrintTarget {
public:
    /// From now on what is printed goes through it.
    explicit ServiceStatus(const Service& of);
    ~ServiceStatus();
    ServiceStatus(const ServiceStatus&) = delete;
    ServiceStatus& operator=(const ServiceStatus&) = delete;

    // The connection.
    void attempt();
    void connected();
    enum class Loss : std::uint8_t { closed, failed, watchdog };
    void lost(Loss how);
    /// Bytes came, the last ones just now.
    void received(std::size_t bytes);

    // What leaves.
    enum class Fate : std::uint8_t { answered, noSatellite, noCoordinates, guard, notSent };
    /// An epoch and its answer, which was sent for the fate `answered`.
    void epoch(Fate fate, std::span<const std::uint8_t> reply);
    /// A frame that was to be passed on.
    void passed(std::size_t bytes, bool sent);

    void writeIfDue();
    /// Writes the file. A failure is told when it begins.
    void write();

    void frame(std::span<const std::uint8_t> frame) override;
    void wrongCheckWord() override { ++wrongCheckWords_; }
    void observations(std::span<const std::uint8_t> frame) override;
    void ofOtherStation() override { ++ofOtherStation_; }
    void epochEnd(bool whole) override { ++(whole ? wholeEpochs_ : unfinishedEpochs_); }

    void take(Level level, std::string_view text) override { next_->take(level, text); }
    void take(const Lasting& what, std::string_view text) override;
    void epochEnd() override { next_->epochEnd(); }
    void ended(Cause cause) override { next_->ended(cause); }
    void flush() override { next_->flush(); }
    void lastLine() override { next_->lastLine(); }
    std::uint64_t droppedLines() const override { return next_->droppedLines(); }

private:
    using Instant = std::chrono::nanoseconds; // of the monotonic clock
    using Count = std::uint64_t;
    /// Why a satellite is not in an answer, as lines say it.
    enum class Reason : std::uint8_t { none, noEphemeris, oldEphemeris, noOrbit };
    static constexpr std::array<double, 13> kDelayBoundsS{1e-4, 2e-4, 5e-4, 1e-3, 2e-3, 5e-3, 1e-2,
                                                          2e-2, 5e-2, 0.1,  0.2,  0.5,  1.0};

    void countAnswer(std::span<const std::uint8_t> reply);
    void changed(std::string_view state);
    std::string composed() const;
    class Json;
    void tellProcess(Json& out) const;
    void tellTraffic(Json& out) const;
    void tellEpochs(Json& out) const;
    void tellSystem(Json& out, std::size_t system) const;
    void tellSignals(Json& out, std::size_t system) const;
    void tellEphemerides(Json& out, char letter) const;
    void tellSender(Json& out) const;
    std::string_view whyNot(int satellite) const;
    std::string_view whyDropped(std::size_t system, std::size_t signal) const;

    ReplacedFile file_;
    const Service& service_;
    PrintTarget* const next_;
    const double startedS_; // Unix times
    std::string_view state_ = "connecting";
    double stateSinceS_;
    Instant writtenAt_{};

    const Count warmStart_; // satellites with an ephemeris at the start
    Count attempts_ = 0, made_ = 0;
    std::array<Count, 3> losses_{};
    Count bytesIn_ = 0, frameBytesIn_ = 0, wrongCheckWords_ = 0, ofOtherStation_ = 0;
    std::map<int, Count> messagesIn_, messagesOut_, refused_; // by type
    Count bytesOut_ = 0, answers_ = 0, passedOn_ = 0, framesDropped_ = 0;
    Count wholeEpochs_ = 0, unfinishedEpochs_ = 0;
    std::array<Count, 5> fates_{}; // of epochs

    Instant lastByteAt_{};
    std::array<Count, kDelayBoundsS.size()> withinBound_{};
    Count delays_ = 0;
    double delaySumS_ = 0.0;

    double lastEpochReceivedS_ = 0.0; // Unix time; 0 = none yet
    Tally in_, out_;
    Satellites seen_{}, answered_{}; // of the last epoch
    std::array<Reason, kMaxSatellites> reasons_{};

    int stationId_ = -1;
};
