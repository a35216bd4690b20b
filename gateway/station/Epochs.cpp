#include "gateway/station/Epochs.h"

#include "ctl/dump/Describe.h"
#include "rtcm/Messages.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace gateway {

namespace {

// An epoch of 64 messages, all of the greatest length.
constexpr std::size_t kMostBytes = 64 * kMaxFrame;
constexpr std::size_t kBeginning = 512; // bytes

void append(Bytes& to, std::span<const std::uint8_t> from) {
    to.insert(to.end(), from.begin(), from.end());
}

struct ReferenceTime {
    double s, periodS; // of the week or the day
};
std::optional<ReferenceTime> referenceTimeOf(std::span<const std::uint8_t> ephemeris) {
    std::optional<ReferenceTime> out;
    visitMessage(messageType(ephemeris), [&](const auto& row) {
        auto m = row.blank();
        BitReader in = messageOf(ephemeris);
        row.layout(in, m);
        if (!in.ok())
            return;
        if constexpr (requires { m.toes; })
            out = {m.toes, kSecondsPerWeek};
        else if constexpr (requires { m.tb; })
            out = {900.0 * m.tb, kSecondsPerDay};
    });
    return out;
}

} // namespace

FrameHead headOf(std::span<const std::uint8_t> frame) {
    FrameHead out;
    out.type = messageType(frame);
    BitReader in = messageOf(frame);
    const auto take = [&](const auto& layout, auto head) {
        layout(in, head);
        if (!in.ok())
            return;
        const EpochMessage m = epochMessage(out.type, head);
        out.kind = FrameHead::Kind::observations;
        out.station = m.staid;
        out.time = m.field;
        out.more = m.more;
    };
    if (isMsm4To7(out.type))
        take(layoutMsmHead, MsmHead{});
    else if (isLegacy(out.type))
        take(layoutLegacyHead, LegacyHead{});
    else if (ctl::dump::isEphemeris(out.type))
        out.kind = FrameHead::Kind::ephemeris;
    else if (tellsOfStation(out.type)) {
        out.kind = FrameHead::Kind::station;
        out.station = stationIdOf(frame);
    }
    return out;
}

std::optional<double> secondsBetween(const FrameHead& from, const FrameHead& to) {
    if (from.type != to.type)
        return std::nullopt;
    const bool msmGlonass = to.type / 10 == 108;
    const bool glonass = msmGlonass || (isLegacy(to.type) && legacyForm(to.type).glonass);
    // DF416, the day of the week, does not count here.
    const std::uint32_t mask = msmGlonass ? (1U << 27) - 1 : ~0U;
    const std::int64_t periodMs = glonass ? 86'400'000 : 604'800'000;
    std::int64_t ms = std::int64_t{to.time & mask} - std::int64_t{from.time & mask};
    if (ms < -periodMs / 2)
        ms += periodMs;
    else if (ms > periodMs / 2)
        ms -= periodMs;
    return static_cast<double>(ms) * 1e-3;
}

int satelliteOf(std::span<const std::uint8_t> ephemeris) {
    const int width = messageType(ephemeris) == 1044 ? 4 : 6; // DF429; DF009, DF038, DF252, DF488
    return static_cast<int>(getbitu(ephemeris, kMessageBit + 12, width));
}

std::optional<double> secondsBetweenIssues(std::span<const std::uint8_t> from,
                                           std::span<const std::uint8_t> to) {
    const auto before = referenceTimeOf(from), after = referenceTimeOf(to);
    if (!before || !after)
        return std::nullopt;
    return std::remainder(after->s - before->s, after->periodS);
}

void Epochs::take(std::span<const std::uint8_t> bytes) {
    scanner_.feed(bytes);
    bytes_ += bytes.size();
    append(beginning_, bytes.first(std::min(bytes.size(), kBeginning - beginning_.size())));
}

std::optional<Block> Epochs::next() {
    while (ready_.empty()) {
        const auto found = scanner_.next();
        if (!found) {
            if (first_ || between_.empty())
                return std::nullopt;
            endBetween();
        } else if (found->kind == ctl::dump::Found::kMessage && found->good) {
            ++frames_;
            take(found->bytes, headOf(found->bytes));
        }
    }
    Block block = std::move(ready_.front());
    ready_.pop_front();
    return block;
}

void Epochs::restart() {
    scanner_ = ctl::dump::FrameScanner(ctl::dump::FrameScanner::Replies::kIgnore);
    epoch_.clear();
    between_.clear();
    ready_.clear();
    first_.reset();
    frames_ = bytes_ = 0;
    beginning_.clear();
}

void Epochs::take(std::span<const std::uint8_t> frame, const FrameHead& head) {
    if (head.kind != FrameHead::Kind::observations) {
        append(between_, frame);
        if (between_.size() > kMostBytes) {
            end(Block::Kind::unfinished);
            endBetween();
        }
        return;
    }
    const bool another = first_ && head.type == first_->type && head.time != first_->time;
    if (another || epoch_.size() > kMostBytes)
        end(Block::Kind::unfinished);
    if (!first_) {
        endBetween();
        first_ = head;
    }
    append(epoch_, frame);
    if (!head.more)
        end(Block::Kind::epoch);
}

void Epochs::end(Block::Kind kind) {
    if (first_)
        ready_.push_back({std::exchange(epoch_, {}), kind, *first_});
    first_.reset();
}

void Epochs::endBetween() {
    if (!between_.empty())
        ready_.push_back({std::exchange(between_, {})});
}

} // namespace gateway
