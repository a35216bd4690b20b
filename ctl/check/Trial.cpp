#include "ctl/check/Trial.h"

#include "app/Tally.h"
#include "base/ComText.h"
#include "base/bits.h"
#include "gnss/Clock.h"
#include "gnss/Leaps.h"
#include "rtcm/layouts/Legacy.h"
#include "rtcm/layouts/Msm.h"
#include "rtcm/layouts/StationMessages.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace ctl::check {

namespace {

using dump::Description;
using dump::Found;

constexpr std::size_t kMostSaid = 20; // different lines of the service
constexpr std::size_t kMostPlaces = 4;
constexpr std::size_t kBeginning = 60; // bytes
constexpr double kSameTimeS = 0.0005;

bool isEmpty(const dump::Value& value) {
    return std::holds_alternative<std::monostate>(value);
}

char systemOf(int type) {
    if (isMsm4To7(type))
        return kMsmLetters[static_cast<std::size_t>((type - 1070) / 10)];
    return legacyForm(type).glonass ? 'R' : 'G';
}

/// No reply carries them, and their times date no epoch.
bool aside(char system) {
    return system == 'S' || system == 'I';
}

/// Second of the GPS day that the raw epoch of a message stands for.
double gpsSecondOfDay(char system, std::uint32_t raw) {
    constexpr std::uint32_t top = 1U << 30;
    constexpr std::uint32_t belowZeroMs = 20000; // some receivers send a negative time of week
    const GTime now = utc2gpst(utcNow());
    const double leapS = timediff(now, gpst2utc(now));
    double s = raw >= top - belowZeroMs ? -1e-3 * (top - raw) : 1e-3 * raw;
    if (system == 'R')
        s = 1e-3 * (raw & 0x7FFFFFFU) - kMoscowOffset + leapS;
    else if (system == 'C')
        s += kBdtOffset;
    return s - kSecondsPerDay * std::floor(s / kSecondsPerDay);
}

std::uint32_t rawEpoch(std::span<const std::uint8_t> frame, int type) {
    BitReader in = messageOf(frame);
    if (isMsm4To7(type)) {
        MsmHead head;
        layoutMsmHead(in, head);
        return head.epoch;
    }
    LegacyHead head;
    layoutLegacyHead(in, head);
    return head.epochMs;
}

} // namespace

Trial::Trial(Deployment deployment, double seconds)
    : limitS_(seconds), replyBuffer_(kLongestReply) {
    static_cast<Deployment&>(service_->record) = std::move(deployment);
    service_->record.rawSave = service_->record.vrsSave = false; // nothing is written
    service_->prepareSession();
    service_->intake.onrtcm = [this](std::uint32_t status, const std::uint8_t*, std::int32_t) {
        message(status);
    };
    result_.deployment = &service_->record;
}

void Trial::take(std::span<const std::uint8_t> bytes) {
    if (result_.messages == 0 && result_.beginning.size() < kBeginning)
        result_.beginning.append(reinterpret_cast<const char*>(bytes.data()),
                                 std::min(bytes.size(), kBeginning));
    scanner_.feed(bytes);
    run();
}

void Trial::finish(Rest rest) {
    scanner_.end();
    run();
    result_.lateEphemerides = result_.ephemerisMessages - upToEpoch_.ephemerisMessages;
    result_.whole = rest == Rest::none && !enough_;
}

void Trial::run() {
    printTarget = this;
    while (!enough_) {
        const auto found = scanner_.next();
        if (!found)
            break;
        result_.bytes += found->bytes.size();
        see(*found);
        StreamReader(service_->intake, 0, found->bytes.data(),
                     static_cast<int>(found->bytes.size()));
    }
    printTarget = nullptr;
}

void Trial::message(std::uint32_t status) {
    if (status == kEpoch) {
        epoch();
    } else if (openSecond_ && !answering().complete) { // the decoder starts afresh behind it
        ++result_.interrupted;
        openSecond_.reset();
    }
}

void Trial::see(const Found& found) {
    if (found.kind != Found::kMessage || !found.good) {
        result_.badFrames += found.kind == Found::kMessage && result_.messages > 0 ? 1U : 0U;
        return;
    }
    const Description d = dump::describe(found.bytes);
    ++result_.messages;
    ++result_.types[d.type];
    if (d.station)
        result_.stations.insert(*d.station);
    if (dump::isObservation(d.type) && d.decoded)
        return seeObservations(found, d);
    result_.ephemerisMessages += dump::isEphemeris(d.type) && d.decoded ? 1U : 0U;
    const bool station = d.type == 1005 || d.type == 1006;
    if (!station || !d.decoded || result_.places.size() == kMostPlaces)
        return;
    PositionMessage w;
    BitReader in = messageOf(found.bytes);
    layoutPosition<1005>(in, w); // 1006 begins with the same fields
    const auto same = [&](const StatedPlace& p) {
        return p.type == d.type && p.station == w.staid && p.xyz == w.pos;
    };
    if (std::none_of(result_.places.begin(), result_.places.end(), same))
        result_.places.push_back({d.type, w.staid, w.pos});
}

void Trial::seeObservations(const Found& found, const Description& d) {
    ++result_.observationMessages;
    const char system = systemOf(d.type);
    for (const auto& row : d.rows) {
        SignalCount& count = result_.signals[{system, std::get<std::string>(row[1])}];
        ++count.received;
        count.incomplete += isEmpty(row[2]) || isEmpty(row[3]) ? 1U : 0U; // range, phase
    }
    for (const std::string& name : d.satellites.value_or(std::vector<std::string>{}))
        ++result_.satellites[name].received;
    if (!aside(system))
        seeTime(found.bytes, d.type);
    if (d.more == false) {
        ++result_.epochEnds;
        openSecond_.reset();
        apartNow_ = false;
    }
}

void Trial::seeTime(std::span<const std::uint8_t> frame, int type) {
    const double second = gpsSecondOfDay(systemOf(type), rawEpoch(frame, type));
    if (!openSecond_) {
        openSecond_ = second;
        openType_ = type;
        return;
    }
    const double apart = std::remainder(second - *openSecond_, kSecondsPerDay);
    if (std::fabs(apart) <= kSameTimeS || apartNow_)
        return;
    apartNow_ = true;
    if (result_.apart.epochs++ == 0)
        result_.apart = {openType_, type, apart, 1};
}

/// The service has stored an epoch and asks for its reply.
void Trial::epoch() {
    const GTime time = gtimeOf({service_->record.currentMjd, service_->record.currentSod});
    if (result_.epochs > 0 && timediff(time, result_.first) > limitS_) {
        enough_ = true;
        result_ = upToEpoch_; // without the messages of this one
        return;
    }
    if (result_.epochs++ == 0) {
        result_.first = time;
        result_.clockAheadS = timediff(utc2gpst(utcNow()), time);
    } else if (timediff(time, result_.last) <= 0.0) {
        ++result_.backward;
    }
    result_.last = time;
    if (!answering().complete)
        keep();
    const int size = service_->answer(0, replyBuffer_);
    open(std::span(replyBuffer_).first(static_cast<std::size_t>(std::max(size, 0))));
    upToEpoch_ = result_;
}

/// Counts the cells of the stored epoch.
void Trial::keep() {
    const EpochObs& obs = service_->record.stationEpochs[0].obs;
    for (const std::size_t satellite : obs.written())
        obs.each(satellite, [&](std::size_t, const SlotObs& slot) {
            const std::string code(code2obs(slot.phaseType));
            if (!code.empty() && slot.phase != 0.0 && slot.range != 0.0)
                ++result_.signals[{service_->record.satelliteNames[satellite].front(), code}].kept;
        });
}

/// Counts what a reply holds.
void Trial::open(std::span<const std::uint8_t> reply) {
    std::uint64_t cells = 0;
    const std::size_t before = answering().plain ? 0 : kReplyHeadBytes;
    const std::size_t behind = answering().plain ? 0 : kReplyCheckBytes;
    if (reply.size() > before + behind) {
        dump::FrameScanner inside(dump::FrameScanner::Replies::kIgnore);
        inside.feed(reply.subspan(before, reply.size() - before - behind));
        inside.end();
        while (const auto piece = inside.next()) {
            const Description d = dump::describe(piece->bytes);
            if (!dump::isObservation(d.type))
                continue;
            std::set<std::string> names;
            for (const auto& row : d.rows) {
                ++cells;
                auto& signal = result_.signals[{systemOf(d.type), std::get<std::string>(row[1])}];
                ++signal.replied;
                if (answering().complete) // nothing is chosen
                    ++signal.kept;
                names.insert(std::get<std::string>(row[0]));
            }
            for (const std::string& name : names)
                ++result_.satellites[name].replied;
        }
    }
    ++(cells > 0 ? result_.answered : result_.emptyReplies);
}

void Trial::take(Level level, std::string_view text) {
    const bool matters = level <= Level::notice;
    for (const char c : text) {
        if (c != '\n') {
            line_ += c;
            continue;
        }
        const bool said = pointer_string(result_.said, line_) >= 0;
        if (matters && !said && result_.said.size() < kMostSaid)
            result_.said.push_back(line_);
        line_.clear();
    }
}

void Trial::take(const Lasting& what, std::string_view) {
    const bool none = what.cause == Cause::noEphemeris;
    if ((!none && what.cause != Cause::oldEphemeris) ||
        what.subject >= service_->record.satelliteNames.size())
        return;
    SatelliteCount& count = result_.satellites[service_->record.satelliteNames[what.subject]];
    ++(none ? count.noEphemeris : count.oldEphemeris);
}

/// The service would end here: its last line goes to standard output.
void Trial::lastLine() {
    printTarget = nullptr;
}

} // namespace ctl::check
