#include "gateway/station/StationWatch.h"

#include "ctl/status/StatusFile.h"
#include "gateway/station/Heard.h"
#include "gnss/Leaps.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numeric>
#include <span>

namespace gateway {

using namespace std::chrono_literals;

namespace {

constexpr std::size_t kMostUnanswered = 600; // epochs that may still be answered
constexpr std::size_t kMostDelays = 1200;    // of a minute
constexpr std::size_t kIntervals = 15;       // whose median counts
constexpr std::size_t kEnough = 60;          // steps of 10 s before anything is usual
constexpr std::size_t kEnoughMinutes = 10;   // of a system
constexpr double kNearlyAll = 0.9;           // of those minutes
constexpr double kFew = 0.7;                 // of the usual number
constexpr int kFewer = 5;                    // than usual, at least
constexpr Duration kAnswered = 5s;           // an epoch that came, at the latest
constexpr Duration kMissing = 10s;           // of a system that some epochs may leave out
constexpr Duration kBecomesUsual = 24h;
constexpr std::uint32_t kTimeOfAll = 0x7FFFFFF; // bits of a time that every system sends

const StationWatch::Last kNothing;

template <class T> T median(std::vector<T> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

std::vector<float> known(std::vector<float> values) {
    std::erase_if(values, [](float v) { return std::isnan(v); });
    return values;
}

/// GPS and Galileo send the time of the GPS week.
std::optional<double> aheadOf(const FrameHead& head, double nowUnixS) {
    const bool msm = isMsm4To7(head.type);
    const int tens = msm ? (head.type - 1070) / 10 : -1;
    if (tens != 0 && tens != 2 && !(head.type >= 1001 && head.type <= 1004))
        return std::nullopt;
    const WeekTime now = time2gpst(utc2gpst(
        {static_cast<std::int64_t>(std::floor(nowUnixS)), nowUnixS - std::floor(nowUnixS)}));
    const double ahead = head.time / 1000.0 - now.sow;
    return std::remainder(ahead, kSecondsPerWeek);
}

} // namespace

int EpochCells::count(std::size_t system) const {
    return std::popcount(satellites[system]);
}

int EpochCells::count() const {
    return std::accumulate(satellites.begin(), satellites.end(), 0,
                           [](int sum, std::uint64_t mask) { return sum + std::popcount(mask); });
}

EpochCells cellsOf(const Bytes& epoch) {
    EpochCells out;
    forEachFrame(epoch, [&](std::span<const std::uint8_t> frame) {
        forEachCellMasks(frame, [&](std::size_t system, const CellMasks& m) {
            out.satellites[system] |= m.satellites;
            out.cells += static_cast<unsigned>(std::popcount(m.cells));
        });
    });
    return out;
}

void StationWatch::cameIn(const Block& epoch, Instant at) {
    in_ = {epoch.bytes, cellsOf(epoch.bytes)};
    lastIn_ = at;
    ++epochsIn_;
    cellsIn_ += in_.cells.cells;
    seen.raise(at, static_cast<float>(in_.cells.count()));
    clockAheadS_ = aheadOf(epoch.first, ctl::status::nowUnixS());
    waiting_.emplace_back(epoch.first.time & kTimeOfAll, at);
    if (waiting_.size() > kMostUnanswered)
        waiting_.pop_front();
}

void StationWatch::wentOut(const Block& epoch, Instant at) {
    out_ = {epoch.bytes, cellsOf(epoch.bytes)};
    ++epochsOut_;
    cellsOut_ += out_.cells.cells;
    lastOutUnixS_ = ctl::status::nowUnixS();
    lastOut_ = at;
    answered.raise(at, static_cast<float>(out_.cells.count()));
    const float before = epochs.now(at);
    epochs.set(at, std::isnan(before) ? 1.0F : before + 1.0F);
    for (std::size_t system = 0; system < bySystem_.size(); ++system) {
        const int count = out_.cells.count(system);
        bySystem_[system].raise(at, static_cast<float>(count));
        if (count > 0)
            lastWith_[system] = at;
    }

    if (const auto later = lastHead_ ? secondsBetween(*lastHead_, epoch.first) : std::nullopt) {
        intervals_.push_back(*later);
        if (intervals_.size() > kIntervals)
            intervals_.pop_front();
    }
    lastHead_ = epoch.first;

    // The last of that time: a recording may come again and again.
    const auto asked = std::find_if(waiting_.rbegin(), waiting_.rend(), [&](const auto& one) {
        return one.first == (epoch.first.time & kTimeOfAll);
    });
    if (asked == waiting_.rend())
        return;
    const double took = std::chrono::duration<double>(at - asked->second).count();
    waiting_.erase(waiting_.begin(), asked.base());
    const auto bound = std::ranges::lower_bound(kDelayBoundsS, took);
    ++delays_.upTo[static_cast<std::size_t>(bound - kDelayBoundsS.begin())];
    ++delays_.count;
    delays_.sumS += took;
    delay.raise(at, static_cast<float>(took));
    recentDelays_.emplace_back(at, static_cast<float>(took));
    while (recentDelays_.size() > kMostDelays || at - recentDelays_.front().first > 1min)
        recentDelays_.pop_front();
}

/// Beside what a second says: an epoch may come late, or a rover be given few of them.
Duration StationWatch::patience() const {
    constexpr double most = 3.0; // intervals
    return std::chrono::duration_cast<Duration>(
        std::chrono::duration<double>(most * intervalS().value_or(0.0)));
}

const StationWatch::Last& StationWatch::in(Instant now) const {
    return lastIn_ && now - *lastIn_ < kSilent + patience() ? in_ : kNothing;
}

const StationWatch::Last& StationWatch::out(Instant now) const {
    const bool comes = lastOut_ && now - *lastOut_ < kSilent + patience();
    return comes && *lastIn_ - *lastOut_ < kAnswered + patience() ? out_ : kNothing;
}

std::optional<double> StationWatch::intervalS() const {
    if (intervals_.empty())
        return std::nullopt;
    return median(std::vector(intervals_.begin(), intervals_.end()));
}

std::optional<double> StationWatch::delayS(Instant now) const {
    std::vector<float> recent;
    for (const auto& [at, took] : recentDelays_)
        if (now - at <= 1min)
            recent.push_back(took);
    if (recent.empty())
        return std::nullopt;
    return median(std::move(recent));
}

/// Messages of some systems may come less often than others: the most of the last seconds.
int StationWatch::satellitesLately(Instant now) {
    const float most = std::fmax(answered.now(now), answered.whole(now).back());
    return std::isnan(most) ? out_.cells.count() : static_cast<int>(most);
}

std::optional<StationWatch::Fewer> StationWatch::fewerThanUsual(Instant now) {
    if (fewer_ && now - fewer_->since > kBecomesUsual)
        fewer_.reset();
    int usual = fewer_ ? fewer_->usual : 0;
    if (!fewer_) {
        std::vector<float> hour = known(answered.whole(now));
        if (hour.size() < kEnough)
            return std::nullopt;
        usual = static_cast<int>(median(std::move(hour)));
    }
    const int have = satellitesLately(now);
    if (have >= kFew * usual || usual - have < kFewer) {
        fewer_.reset();
        return std::nullopt;
    }
    if (!fewer_)
        fewer_ = {now, usual};
    return Fewer{have, usual};
}

/// Satellites set one after the other: a system that had only one may be gone for that.
bool StationWatch::wasUsual(std::size_t system, Instant now) {
    std::vector<float> hour = known(bySystem_[system].whole(now));
    const std::size_t all = hour.size();
    std::erase(hour, 0.0F);
    return hour.size() >= kEnoughMinutes &&
           static_cast<double>(hour.size()) >= kNearlyAll * static_cast<double>(all) &&
           std::ranges::all_of(std::span(hour).last(kEnoughMinutes),
                               [](float count) { return count > 1.0F; });
}

std::string StationWatch::goneSystems(Instant now) {
    std::string gone;
    for (std::size_t system = 0; system < bySystem_.size(); ++system) {
        auto& since = gone_[system];
        const auto& with = lastWith_[system];
        if (!with || *lastOut_ - *with <= kMissing || (since && now - *since > kBecomesUsual))
            since.reset();
        else if (!since && wasUsual(system, now))
            since = now;
        if (since)
            gone += kMsmLetters[system];
    }
    return gone;
}

} // namespace gateway
