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
#include <memory>
#include <string>
#include <string_view>

struct Service;
struct cJSON;

/// ServiceStatus: the file of common/status, which says how the service is. It counts what comes
/// and goes; why satellites are left out it learns from the lines that are printed. The file is
/// written anew and renamed, so a reader always gets a whole one: once a second, when the
/// connection changes, and at the end. The names of numbers end with their units; counters never go
/// back. Signals that end the process wait until the service waits: only there the file is written
/// besides, so no counter is in the middle of a change.
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
    /// A block came, just now.
    void received(std::size_t bytes);
    /// All of it was taken in.
    void blockEnd();

    // What leaves.
    enum class Fate : std::uint8_t {
        answered,
        noSatellite,
        noCoordinates,
        guard,
        tooLarge,
        notSent
    };
    /// An epoch and its answer, which was sent for the fate `answered`.
    void epoch(Fate fate, std::span<const std::uint8_t> reply);
    /// A frame that was to be passed on.
    void passed(std::span<const std::uint8_t> frame, bool sent);

    /// Writes the file. A failure is told when it begins.
    void write();

    void frame(std::span<const std::uint8_t> frame) override;
    void wrongCheckWord() override { ++wrongCheckWords_; }
    void observations(std::span<const std::uint8_t> frame) override;
    void refused(int type) override { ++refused_[type]; }
    void ofOtherStation() override { ++ofOtherStation_; }
    void epochEnd(bool whole) override;

    void take(Level level, std::string_view text) override { next_->take(level, text); }
    void take(const Lasting& what, std::string_view text) override;
    void epochEnd() override { next_->epochEnd(); }
    void ended(Cause cause) override { next_->ended(cause); }
    void flush() override { next_->flush(); }
    void lastLine() override;
    std::uint64_t droppedLines() const override { return next_->droppedLines(); }

private:
    using Instant = std::chrono::nanoseconds; // of the monotonic clock
    using Count = std::uint64_t;
    static constexpr std::size_t kFates = 6;
    /// Why a satellite is not in an answer, as lines say it.
    enum class Reason : std::uint8_t { none, noEphemeris, oldEphemeris, noOrbit };
    static constexpr std::array<double, 13> kDelayBoundsS{1e-4, 2e-4, 5e-4, 1e-3, 2e-3, 5e-3, 1e-2,
                                                          2e-2, 5e-2, 0.1,  0.2,  0.5,  1.0};

    /// Messages of a number.
    struct Messages {
        Count frames = 0, bytes = 0;
        void add(std::size_t size) {
            ++frames;
            bytes += size;
        }
    };
    using ByType = std::map<int, Messages>;

    void countAnswer(std::span<const std::uint8_t> reply);
    void changed(std::string_view state);
    std::chrono::milliseconds writeIfDue();
    static void writeAtEnd();
    std::string composed();
    class Json;
    void tell(Json&& out) const;
    void tellProcess(Json& out) const;
    static void tellMessages(Json& out, const ByType& messages);
    void tellTraffic(Json& out) const;
    void tellEpochs(Json& out) const;
    void tellSystem(Json& out, std::size_t system, std::uint64_t seen,
                    std::uint64_t answered) const;
    void tellSignals(Json& out, std::size_t system) const;
    void tellEphemerides(Json& out, char letter) const;
    void tellSender(Json& out) const;
    std::string_view whyNot(int satellite) const;
    bool moved(std::size_t index) const;

    struct Document {
        Document();
        std::unique_ptr<cJSON, void (*)(cJSON*)> root;
    };

    ReplacedFile file_;
    Document document_; // what the file says
    const Service& service_;
    PrintTarget* const next_;
    const double startedS_; // Unix times
    std::string_view state_ = "connecting";
    double stateSinceS_;
    Instant writtenAt_{};

    const Count warmStart_; // satellites with an ephemeris at the start
    Count attempts_ = 0, made_ = 0;
    std::array<Count, 3> losses_{};
    Count bytesIn_ = 0, frameBytesIn_ = 0, skippedBytes_ = 0;
    Count wrongCheckWords_ = 0, ofOtherStation_ = 0;
    ByType messagesIn_, messagesOut_;
    std::map<int, Count> refused_; // by type
    Count bytesOut_ = 0, answers_ = 0, passedOn_ = 0, framesDropped_ = 0;
    Count wholeEpochs_ = 0, unfinishedEpochs_ = 0;
    std::array<Count, kFates> fates_{}; // of epochs

    Instant lastByteAt_{};
    std::array<Count, kDelayBoundsS.size() + 1> delays_{}; // up to a bound; the last ones above all
    double delaySumS_ = 0.0;

    Tally tally_;
    // The last epoch:
    double lastEpochReceivedS_ = 0.0; // Unix time; 0 = none yet
    Fate lastFate_ = Fate::answered;
    std::array<Reason, kMaxSatellites> lastReasons_{};
    // Lines since then:
    std::array<Reason, kMaxSatellites> reasons_{};
    bool tooLarge_ = false;

    int stationId_ = -1;
};
