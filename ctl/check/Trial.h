#pragma once

#include "app/Service.h"
#include "base/Print.h"
#include "ctl/dump/Describe.h"
#include "ctl/dump/FrameScanner.h"
#include "gnss/ComCoord.h"
#include "gnss/GTime.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

/// Trial: the service's own road (decoder, ephemeris store, virtual station, reply) run in this
/// process on a piece of a stream. What the stream carries is
/// counted from its frames, what the service makes of it from its stored epochs and its replies.

namespace ctl::check {

/// Cells (a satellite and a signal of an epoch) of one signal on their way.
struct SignalCount {
    std::uint64_t received = 0;   // in the stream
    std::uint64_t incomplete = 0; // of them, those without range or phase
    std::uint64_t kept = 0;       // with range and phase in the epochs that the service stored
    std::uint64_t replied = 0;    // in its replies
};
/// System letter and code, such as 'G' and "2W".
using SignalKey = std::pair<char, std::string>;

/// Epochs of a satellite.
struct SatelliteCount {
    std::uint64_t received = 0;
    std::uint64_t replied = 0;
    std::uint64_t noEphemeris = 0;
    std::uint64_t oldEphemeris = 0;
};

/// A reference point that the stream states.
struct StatedPlace {
    int type = 0; // 1005 or 1006
    int station = 0;
    Vector3 xyz{}; // m
};

/// Two messages of one epoch whose times differ.
struct TimesApart {
    int first = 0, second = 0; // types
    double seconds = 0.0;      // second minus first
    std::uint64_t epochs = 0;
};

struct TrialResult {
    const Deployment* deployment = nullptr; // of the trial
    std::uint64_t bytes = 0;
    std::uint64_t messages = 0;         // with a right check word
    std::uint64_t badFrames = 0;        // behind the first good one
    std::string beginning;              // of bytes in which there was no message
    std::map<int, std::uint64_t> types; // of the messages
    std::uint64_t observationMessages = 0;
    std::uint64_t ephemerisMessages = 0;
    std::uint64_t lateEphemerides = 0; // of them, those behind the last epoch
    bool whole = false;                // the stream has no more than was read
    std::uint64_t epochEnds = 0;       // observation messages that are the last of their epoch
    std::uint64_t epochs = 0;          // that the service took
    std::uint64_t answered = 0;        // with observations
    std::uint64_t emptyReplies = 0;    // without any
    std::uint64_t interrupted = 0;     // epochs that lost what came before another message
    std::uint64_t backward = 0;        // epochs that are not later than the one before
    GTime first, last;                 // epoch times, GPS time
    double clockAheadS = 0.0;          // the clock minus the time of the first epoch
    std::map<SignalKey, SignalCount> signals;
    std::map<std::string, SatelliteCount> satellites;
    std::set<int> stations;
    std::vector<StatedPlace> places; // the first of each kind
    TimesApart apart;
    std::vector<std::string> said; // what the service would tell its operator

    double spanS() const { return timediff(last, first); }
};

class Trial final : private PrintTarget {
public:
    /// A service of its own; stops after so many seconds of the stream.
    Trial(Deployment deployment, double seconds);
    Trial(const Trial&) = delete;
    Trial& operator=(const Trial&) = delete;

    void take(std::span<const std::uint8_t> bytes);
    enum class Rest { none, unread };
    void finish(Rest rest);
    bool enough() const { return enough_; }
    const TrialResult& result() const { return result_; }

private:
    void message(std::uint32_t status);
    void run();
    void see(const dump::Found& found);
    void seeObservations(const dump::Found& found, const dump::Description& d);
    void seeTime(std::span<const std::uint8_t> frame, int type);
    void epoch();
    void keep();
    const Answering& answering() const { return service_->record.answering; }
    void open(std::span<const std::uint8_t> reply);

    void take(Level level, std::string_view text) override;
    void take(const Lasting& what, std::string_view text) override;
    void epochEnd() override {}
    void ended(Cause) override {}
    void flush() override {}
    void lastLine() override;

    const std::unique_ptr<Service> service_ = std::make_unique<Service>();
    const double limitS_;
    bool enough_ = false;
    dump::FrameScanner scanner_{dump::FrameScanner::Replies::kIgnore};
    TrialResult result_;
    TrialResult upToEpoch_; // as it stood behind the last epoch
    std::vector<std::uint8_t> replyBuffer_;
    std::string line_; // of the service, unfinished
    /// Messages of the current epoch so far, and the time of the first.
    int openType_ = 0;
    std::optional<double> openSecond_;
    bool apartNow_ = false;
};

} // namespace ctl::check
