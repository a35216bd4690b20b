#include "runs.h"

#include "reference/standard/orbit.h"

#include <algorithm>
#include <cmath>

namespace ref {

namespace {

constexpr std::size_t kMostMessages = 64;
constexpr int kInARow = 3;
constexpr std::string_view kDating = "GEJCR"; // the first of them that is there dates a run

std::int64_t msOf(GpsTime t) {
    return std::llround((t - GpsTime{}) * 1000);
}

GpsTime timeOf(std::int64_t ms) {
    constexpr std::int64_t weekMs = 604800000;
    return {static_cast<int>(ms / weekMs), static_cast<double>(ms % weekMs) / 1000};
}

} // namespace

std::optional<int> Runs::station() const {
    return pinned_ ? pinned_ : open_ ? std::optional(open_->station) : std::nullopt;
}

bool Runs::refuses(int id) const {
    return station() && *station() != id;
}

Runs::Ms Runs::usual(char system) const {
    const auto it = usual_.find(system);
    return it == usual_.end() ? 0 : it->second;
}

void Runs::newConnection() {
    open_.reset();
    rows_.clear();
    groupFields_.clear();
    group_.clear();
}

// A number comes again for another part of the same epoch: other pairs at the same time. A part
// that cannot be read brought none.
bool Runs::endsBefore(const Msm& head, std::optional<Ms> t, const OpenRun::Held& held) const {
    if (datesEpochs(head.system) && t && open_->time && *t - usual(head.system) != *open_->time)
        return true;
    const auto [from, to] = open_->numbers.equal_range(head.type);
    return open_->numbers.size() >= kMostMessages || std::any_of(from, to, [&](const auto& n) {
               const OpenRun::Held& before = n.second;
               return before.field != held.field || !held.pairs ||
                      std::any_of(held.pairs->begin(), held.pairs->end(), [&](const auto& p) {
                          return before.pairs && before.pairs->contains(p);
                      });
           });
}

std::vector<Run> Runs::take(const Frame& f) {
    std::vector<Run> out;
    const std::optional<Msm> head = headOf(f);
    if (!head)
        return out;
    const std::optional<GpsTime> time = timeNear(*head, near_);
    const std::optional<Ms> t = time ? std::optional(msOf(*time)) : std::nullopt;
    if (refuses(head->station)) {
        countOther(*head, t, out);
        return out;
    }
    other_ = {};
    if (head->station != uninterruptedId_)
        uninterrupted_ = 0;
    uninterruptedId_ = head->station;
    std::optional<ReceivedMessage> m = time ? received(f, *time) : std::nullopt;
    OpenRun::Held held{head->epochField, std::nullopt};
    if (m)
        held.pairs = m->pairs;
    if (open_ && endsBefore(*head, t, held))
        end(/*finished=*/false, out);
    if (!open_)
        open_ = OpenRun{head->station, {}, {}, {}, {}};
    open_->numbers.emplace(head->type, std::move(held));
    if (t) {
        open_->timeOf.emplace(head->system, *t);
        if (datesEpochs(head->system)) {
            near_ = *time;
            if (!open_->time)
                open_->time = *t - usual(head->system);
        }
    }
    if (m)
        open_->messages.push_back(std::move(*m));
    learn(*head, t);
    if (!head->more) {
        end(/*finished=*/true, out);
        learnAtEnd();
    }
    return out;
}

void Runs::end(bool finished, std::vector<Run>& out) {
    OpenRun o = std::move(*open_);
    open_.reset();
    uninterrupted_ = finished ? 0 : uninterrupted_ + 1;
    if (finished || uninterrupted_ >= kInARow)
        pinned_ = o.station;
    Run& run = out.emplace_back();
    run.station = o.station;
    run.finished = finished;
    run.messages = std::move(o.messages);
    run.time = near_;
    for (const char system : kDating)
        if (const auto it = o.timeOf.find(system); it != o.timeOf.end()) {
            run.time = timeOf(it->second - usual(system));
            break;
        }
}

// Three epochs of one other station without a message of the stream's: it takes over.
void Runs::countOther(const Msm& head, std::optional<Ms> t, std::vector<Run>& out) {
    uninterrupted_ = 0;
    if (other_.station != head.station)
        other_ = {.station = head.station, .fields = {}, .time = {}};
    const auto startAfresh = [&] {
        ++other_.epochs;
        other_.fields.clear();
        other_.time.reset();
    };
    const auto before = other_.fields.find(head.type);
    const bool dated = t && datesEpochs(head.system);
    if ((before != other_.fields.end() && before->second != head.epochField) ||
        (dated && other_.time && *other_.time != *t))
        startAfresh();
    other_.fields[head.type] = head.epochField;
    if (dated && !other_.time)
        other_.time = t;
    if (!head.more) {
        ++refusedEnds_;
        startAfresh();
    }
    if (other_.epochs < kInARow)
        return;
    if (open_)
        end(/*finished=*/false, out);
    pinned_ = other_.station;
    changed_ = true;
    other_ = {};
    usual_.clear();
    rows_.clear();
    groupFields_.clear();
    group_.clear();
}

void Runs::learn(const Msm& head, std::optional<Ms> t) {
    const auto before = groupFields_.find(head.type);
    if (before != groupFields_.end() && before->second != head.epochField) { // no end came
        rows_.clear();
        groupFields_.clear();
        group_.clear();
    }
    groupFields_[head.type] = head.epochField;
    if (t && datesEpochs(head.system))
        group_.emplace(head.system, *t);
}

void Runs::learnAtEnd() {
    std::optional<Ms> date;
    for (const char system : kDating) {
        const auto it = group_.find(system);
        if (it == group_.end())
            continue;
        if (!date) {
            date = it->second - usual(system);
            continue;
        }
        const Ms difference = it->second - *date;
        if (difference == usual(system)) {
            rows_.erase(system);
            continue;
        }
        auto& [shown, times] = rows_[system];
        times = times > 0 && shown == difference ? times + 1 : 1;
        shown = difference;
        if (times >= kInARow) {
            usual_[system] = difference;
            rows_.erase(system);
        }
    }
    groupFields_.clear();
    group_.clear();
}

} // namespace ref
