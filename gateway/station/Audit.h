#pragma once

#include "gateway/net/Outbox.h"
#include "gateway/net/Say.h"
#include "gateway/station/Engine.h"
#include "gateway/station/Epochs.h"
#include "gateway/station/Look.h"
#include "reference/service/compare.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

/// Audit: holds what an engine sends back against what it owes for the stream that it got, by an
/// independent computation (reference/). What is wrong goes to nobody.
///
/// Values of a satellite can be computed when its ephemeris has come since the engine was started
/// and the engine has taken it. Until then they are not audited; all else of its observations is.

namespace gateway {

/// A whole frame as the independent computation takes it.
ref::Frame frameOf(std::span<const std::uint8_t> bytes);

class Audit {
public:
    Audit(ref::Expectation terms, Say say);

    /// An engine has connected; its clock is within some hours of that time.
    void connected(Engine::Process process, ref::GpsTime clock);
    /// The engine gets whole frames.
    void sent(std::span<const std::uint8_t> frames);
    /// What it sends back; what of that may go to rovers, in order.
    std::vector<Block> take(const Block& block, Instant at);

    const AuditCounts& counts() const { return counts_; }
    /// The largest differences of the last epoch that was compared, by system.
    const std::vector<AuditLook::Worst>& worst() const { return worst_; }
    /// Tells them.
    void tellCounts() const;
    /// What came and was wrong, the last of it; empty where nothing has been for a while.
    const std::string& trouble() const { return trouble_; }
    /// When something wrong came last.
    Instant lastTrouble() const { return lastTrouble_; }

private:
    enum class Finding { right, wrong };

    bool predictNext();
    template <class Match> std::deque<ref::Expected>::iterator find(const Match& match);
    void bound();
    void skip(std::size_t count);
    Finding forwarded(std::span<const std::uint8_t> frame, Instant at);
    Finding answer(const std::vector<ref::Frame>& came, Instant at);
    void blur(ref::Expected& expected) const;
    void measure(const std::vector<ref::ComparedCell>& cells);
    void count(const ref::ComparedAnswer& compared, Instant at);
    void wrong(const std::string& what, Instant at);
    void right(Instant at);

    ref::Expectation terms_;
    Say say_;
    std::unique_ptr<ref::Predictor> owes_; // null: no engine has connected
    Bytes unread_;                         // sent; from readTo_ on not predicted yet
    std::size_t readTo_ = 0;
    std::deque<ref::Expected> owed_;
    std::size_t owedEpochs_ = 0;
    bool forgotten_ = false;         // something owed is no longer held
    std::set<std::string> notTaken_; // satellites whose last ephemeris the engine has not taken
    std::vector<Bytes> station_;     // messages that stand in front of the next epoch
    AuditCounts counts_;
    std::vector<AuditLook::Worst> worst_;
    std::string trouble_;
    std::size_t troubles_ = 0; // since it began
    Instant lastTrouble_{};
    std::optional<Instant> unprovenSince_; // since when no value was compared
    bool toldUnproven_ = false;
};

} // namespace gateway
