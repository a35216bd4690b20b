#include "intake/EpochRun.h"

#include "base/Print.h"
#include "rtcm/Msm4.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kSameS = 0.0005; // times are sent in ms
constexpr int kGroupsToLearn = 3;
constexpr int kEpochsToBelieve = 3; // of another station, or of one whose ends do not come
/// The first that is there dates an epoch.
constexpr std::array<System, 5> kDating{kGps, kGalileo, kQzss, kBds, kGlonass};

std::size_t rowOf(System system) {
    const auto row = std::ranges::find(kMsmSystems, system, &MsmSystem::system);
    return static_cast<std::size_t>(row - kMsmSystems.begin());
}

const char* nameOf(System system) {
    constexpr std::array<const char*, kMsmSystems.size()> names{
        "GPS", "GLONASS", "Galileo", "SBAS", "QZSS", "BDS", "NavIC"};
    return names[rowOf(system)];
}

bool sameS(double a, double b) {
    return std::fabs(a - b) < kSameS;
}

/// Whether two messages of one number carry a satellite's signal both.
bool shareCell(const MsmMessage& a, const MsmMessage& b) {
    const std::uint64_t satellites = a.head.satellites & b.head.satellites;
    const std::uint32_t signals = a.head.signals & b.head.signals;
    const auto rank = [](auto mask, auto bit) { // of a bit among those of the mask
        return static_cast<std::size_t>(std::popcount(mask & ~(bit | (bit - 1))));
    };
    for (std::uint64_t left = satellites; left != 0; left &= left - 1)
        for (std::uint32_t rest = signals; rest != 0; rest &= rest - 1) {
            const std::uint64_t satellite = left & -left;
            const std::uint32_t signal = rest & -rest;
            if (a.hasCell(rank(a.head.satellites, satellite), rank(a.head.signals, signal)) &&
                b.hasCell(rank(b.head.satellites, satellite), rank(b.head.signals, signal)))
                return true;
        }
    return false;
}

bool repeatsBody(const ReceivedMessage& held, const ReceivedMessage& m) {
    if (const auto* const a = std::get_if<MsmMessage>(&held.body))
        return shareCell(*a, std::get<MsmMessage>(m.body));
    return shareSignal(std::get<LegacyMessage>(held.body), std::get<LegacyMessage>(m.body));
}

} // namespace

bool dates(System system) {
    return std::ranges::find(kDating, system) != kDating.end();
}

double UsualDifferences::of(System system) const {
    return rows_[rowOf(system)].usualS;
}

void UsualDifferences::add(const EpochMessage& m) {
    const EpochMessage* held = group_.find(m.type);
    if (held && held->field != m.field) {
        breakGroup();
        held = nullptr;
    }
    if (!held)
        group_.add(m); // once for each number, so there is room
    Row& row = rows_[rowOf(m.system)];
    if (m.time && !row.time)
        row.time = m.time;
}

void UsualDifferences::endGroup() {
    const auto dating = std::ranges::find_if(
        kDating, [&](System system) { return rows_[rowOf(system)].time.has_value(); });
    for (std::size_t i = 0; i < rows_.size(); ++i) {
        Row& row = rows_[i];
        const System system = kMsmSystems[i].system;
        if (dating == kDating.end() || system == *dating || !row.time)
            continue;
        const GTime reference = timeadd(*rows_[rowOf(*dating)].time, -of(*dating));
        const double shownS = timediff(*row.time, reference);
        row.shown = row.shown > 0 && sameS(shownS, row.shownS) ? row.shown + 1 : 1;
        row.shownS = shownS;
        if (row.shown != kGroupsToLearn || sameS(shownS, row.usualS))
            continue;
        row.usualS = shownS;
        print(Level::warning,
              "***WARN(StreamObs): times of %s are %.3f s beside those of %s, taken as the same!\n",
              nameOf(system), shownS, nameOf(*dating));
    }
    for (Row& row : rows_)
        row.time.reset();
    group_.clear();
}

void UsualDifferences::breakGroup() {
    group_.clear();
    for (Row& row : rows_) {
        row.time.reset();
        row.shown = 0;
    }
}

const EpochMessage* RunHeads::find(int type) const {
    const auto held = std::ranges::find(heads_, type, &EpochMessage::type);
    return held == heads_.end() ? nullptr : &*held;
}

bool RunHeads::otherTime(const EpochMessage& m, const UsualDifferences& usual) const {
    if (!m.time || !dates(m.system))
        return false;
    const auto first = std::ranges::find_if(
        heads_, [](const EpochMessage& h) { return h.time && dates(h.system); });
    return first != heads_.end() &&
           !sameS(timediff(*m.time, *first->time), usual.of(m.system) - usual.of(first->system));
}

std::optional<GTime> RunHeads::time(const UsualDifferences& usual) const {
    for (const System system : kDating)
        for (const EpochMessage& m : heads_)
            if (m.system == system && m.time)
                return timeadd(*m.time, -usual.of(system));
    return std::nullopt;
}

bool StreamStation::counts(const EpochMessage& m, int own) {
    if (m.staid != own) {
        lookAtOther(m);
        return false;
    }
    other_ = {};
    otherRun_.clear();
    return true;
}

void StreamStation::lookAtOther(const EpochMessage& m) {
    first_ = {};
    const UsualDifferences none;
    if (m.staid != other_.id) {
        other_ = {m.staid, 0};
        otherRun_.clear();
    }
    const EpochMessage* const held = otherRun_.find(m.type);
    if (!otherRun_.empty() &&
        (otherRun_.full() || (held && held->field != m.field) || otherRun_.otherTime(m, none))) {
        ++other_.epochs;
        otherRun_.clear();
    }
    otherRun_.add(m);
    if (!m.more) {
        ++other_.epochs;
        otherRun_.clear();
    }
}

void StreamStation::runEnded(int id, bool whole) {
    first_ = {id, first_.id == id ? first_.epochs + 1 : 1};
    if (!id_ && (whole || first_.epochs >= kEpochsToBelieve))
        id_ = id;
}

std::optional<int> StreamStation::rival() const {
    return other_.epochs >= kEpochsToBelieve ? std::optional(other_.id) : std::nullopt;
}

void StreamStation::takeOver() {
    id_ = other_.id;
    other_ = {};
    otherRun_.clear();
}

bool EpochRun::read(const EpochMessage& m, BitReader message) {
    readWhole_ = m.time && epoch_.read(m, message);
    return readWhole_;
}

/// Whether a number comes a second time. A system of more than 64 pairs of satellites and signals
/// comes in several messages of one number.
bool EpochRun::repeats(const EpochMessage& m) const {
    const EpochMessage* const held = heads_.find(m.type);
    if (!held)
        return false;
    if (!readWhole_ || held->field != m.field)
        return true;
    return std::ranges::any_of(epoch_.messages(), [&](const ReceivedMessage& other) {
        return other.head.type == m.type && repeatsBody(other, epoch_.lastRead());
    });
}

bool EpochRun::endsBefore(const EpochMessage& m) const {
    return !heads_.empty() && (heads_.full() || repeats(m) || heads_.otherTime(m, usual_));
}

void EpochRun::take(const EpochMessage& m) {
    heads_.add(m);
    usual_.add(m);
    if (readWhole_)
        epoch_.takeLastRead();
}

const ReceivedEpoch& EpochRun::ended() {
    epoch_.time = heads_.time(usual_).value_or(GTime{});
    return epoch_;
}

void EpochRun::begin(Ended before) {
    epoch_.clear();
    heads_.clear();
    if (before == Ended::whole)
        usual_.endGroup();
}

void EpochRun::drop() {
    epoch_.clear();
    heads_.clear();
    usual_.breakGroup();
}
