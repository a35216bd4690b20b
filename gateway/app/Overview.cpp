#include "gateway/app/Overview.h"

#include "base/Findings.h"
#include "ctl/simulate/Summary.h"
#include "gateway/net/FileTime.h"
#include "gateway/net/Say.h"
#include "gateway/settings/Certificate.h"
#include "gnss/Clock.h"
#include "gnss/ComTime.h"
#include "gnss/Taiutc.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <sys/statvfs.h>

namespace gateway {

using namespace std::chrono_literals;

namespace {

constexpr unsigned kLookTicks = 10;     // at what changes slowly
constexpr unsigned kReadTicks = 600;    // at files that end on a day
constexpr std::size_t kEngineFails = 3; // within
constexpr Duration kEngineSpan = 10min;
constexpr Duration kFirstEphemerides = 2min; // as long some streams take to send them all
constexpr std::size_t kRoversCut = 3;        // within, and one of ten rovers
constexpr Duration kRoversSpan = 5min;
constexpr std::uintmax_t kLeastSpace = std::uintmax_t{16} << 20; // bytes
constexpr std::uintmax_t kLeastFiles = 100;

} // namespace

Overview::Overview(const EventLog& log, const Stations& stations, Notifier& notifier)
    : log_(log), stations_(stations), alarms_([&notifier](const Alarm& alarm) {
          say(alarm.lasted ? Level::notice : Level::warning,
              alarm.station.empty() ? "gateway" : alarm.station,
              std::string(alarm.lasted ? "alarm ends: " : "alarm: ") + titleOf(alarm.kind) + ": " +
                  wordsOf(alarm));
          notifier.tell(alarm);
      }) {}

void Overview::apply(const Settings& settings) {
    settings_ = settings;
    ticks_ = 0; // look at once
    std::erase_if(watched_, [&](const auto& entry) {
        if (find(entry.first))
            return false;
        alarms_.forget(entry.first, std::chrono::steady_clock::now());
        return true;
    });
}

Station* Overview::find(const std::string& name) const {
    Station* out = nullptr;
    stations_.forEach([&](Station& station) {
        if (station.settings().name == name)
            out = &station;
    });
    return out;
}

void Overview::tick(Instant now) {
    stations_.forEach([&](Station& station) { lookAt(station, now); });
    lookAtGateway(now);
    ++ticks_;
}

void Overview::lookAt(Station& station, Instant now) {
    using Wrong = std::optional<std::string>;
    const std::string& name = station.settings().name;
    Watched& watched = watched_[name];
    if (std::exchange(watched.startedAt, station.startedAt()) != station.startedAt()) {
        for (Repeated* const repeated : {&watched.engineFailures, &watched.roversCut})
            repeated->restart();
        alarms_.endNow(AlarmKind::moved, name, now); // somebody has acted
    }
    const StationGlance& glance = station.glance();
    const auto look = [&](AlarmKind kind, const Wrong& wrong) {
        alarms_.look(kind, name, wrong, now);
    };
    look(AlarmKind::noEpochs, wrongEpochs(station, now));
    const bool delivers = glance.delivery == Delivery::delivering;
    if (ticks_ % kLookTicks == 0 && delivers)
        lookAtSatellites(watched, station, now);
    look(AlarmKind::fewSatellites, delivers ? Wrong(watched.few) : std::nullopt);
    look(AlarmKind::systemGone, delivers ? Wrong(watched.gone) : std::nullopt);
    Wrong delay, clock;
    if (glance.delayS)
        delay = *glance.delayS > settings_.alarms.delayS
                    ? text("answers take %.3f s", *glance.delayS)
                    : "";
    look(AlarmKind::delay, delay);
    look(AlarmKind::moved, station.moved());
    look(AlarmKind::audit, station.auditTrouble());
    const auto ahead = station.clockAheadS();
    if (!station.isLive())
        clock = "";
    else if (ahead && delivers)
        clock = std::abs(*ahead) > settings_.alarms.clockS
                    ? text("the stream's time is %.1f s %s the machine's", std::abs(*ahead),
                           *ahead > 0 ? "ahead of" : "behind")
                    : "";
    look(AlarmKind::clock, clock);
    const std::size_t failed =
        watched.engineFailures.look(station.engineFailures(), kEngineFails, now, kEngineSpan);
    look(AlarmKind::engine, failed > 0 ? text("failed %zu times within 10 min", failed) : "");
    const std::size_t cut =
        watched.roversCut.look(station.mountpoint().totals.cutOff,
                               std::max(kRoversCut, glance.rovers / 10), now, kRoversSpan);
    look(AlarmKind::roversCut,
         cut > 0 ? text("%zu fell behind and were cut off within 5 min", cut) : "");
}

std::optional<std::string> Overview::wrongEpochs(const Station& station, Instant now) {
    const Delivery delivery = station.glance().delivery;
    if (delivery != Delivery::starting && delivery != Delivery::silent)
        return "";
    const Instant since = station.mountpoint().heard().lastEpoch().value_or(station.startedAt());
    const Duration patience = station.watch().epochsIn() > 0 ? kFirstEphemerides : kSilent;
    if (delivery == Delivery::starting && now - since <= patience)
        return std::nullopt;
    return "no epoch has gone to rovers for " + spanText(now - since);
}

void Overview::lookAtSatellites(Watched& watched, Station& station, Instant now) const {
    const auto fewer = station.watch().fewerThanUsual(now);
    watched.few = fewer ? text("%d where %d are usual", fewer->have, fewer->usual) : "";
    watched.gone.clear();
    for (const char system : station.watch().goneSystems(now))
        watched.gone += std::string(watched.gone.empty() ? "no satellites of " : ", ") +
                        ctl::simulate::systemName(system);
}

void Overview::lookAtGateway(Instant now) {
    if (ticks_ % kLookTicks == 0)
        disk_ = wrongDisk();
    if (ticks_ % kReadTicks == 0) {
        certificate_ = wrongCertificate();
        leapSeconds_ = wrongLeapSeconds();
    }
    alarms_.look(AlarmKind::disk, "", disk_, now);
    alarms_.look(AlarmKind::certificate, "", certificate_, now);
    alarms_.look(AlarmKind::leapSeconds, "", leapSeconds_, now);
}

std::string Overview::wrongDisk() const {
    const std::string folder = settings_.state.string();
    struct statvfs disk {};
    if (statvfs(folder.c_str(), &disk) != 0)
        return folder + ": " + std::strerror(errno);
    if ((disk.f_flag & ST_RDONLY) != 0)
        return folder + ": the disk can only be read";
    const std::uintmax_t left = std::uintmax_t{disk.f_bavail} * disk.f_frsize;
    if (left < kLeastSpace)
        return text("%ju KiB are left for %s", left / 1024, folder.c_str());
    const bool counts = disk.f_files > 0; // some file systems have no limit
    return counts && disk.f_favail < kLeastFiles ? "no more files are left for " + folder : "";
}

/// What is wrong with the one that clients get: it is read when the settings are.
std::string Overview::wrongCertificate() {
    const CasterSettings& caster = settings_.caster;
    if (caster.listenTls.empty())
        return {};
    const auto written = writtenAt(caster.certificate);
    if (ticks_ == 0)
        certificateTime_ = written;
    if (written && written != certificateTime_)
        return caster.certificate.string() + ": is newer than the one in use: reload the gateway";
    const auto remarks = examineCertificate(caster.certificate, caster.key, utcNow().time);
    return remarks.empty() ? "" : caster.certificate.string() + ": " + remarks.front().wrong;
}

/// All engines that are ours have the same file.
std::string Overview::wrongLeapSeconds() const {
    if (settings_.externalEngine)
        return {};
    LeapSeconds leaps;
    const auto read = [&](const StationSettings& station) { // once its engine has been started
        leaps.path = settings_.state / station.name / "files/leapsec.tab";
        return std::filesystem::exists(leaps.path) && Taiutc_m_load(leaps);
    };
    if (std::ranges::none_of(settings_.stations, read) || leaps.table.rows().empty())
        return {};
    const std::int64_t leftS = mjd2time(leaps.table.rows().back().mjd, 0.0) - utcNow().time;
    const auto days = static_cast<int>(std::floor(static_cast<double>(leftS) / kSecondsPerDay));
    return days >= kLeapTableEndsSoonDays
               ? ""
               : text("the leap seconds are known for %d more days", std::max(days, 0));
}

StationRow Overview::rowOf(const Station& station) const {
    const StationSettings& settings = station.settings();
    return {settings.name, settings.mountpoint, station.glance(), alarms_.ofStation(settings.name)};
}

Totals Overview::totals() const {
    Totals out;
    stations_.forEach([&](Station& station) {
        ++out.stations;
        const StationGlance& glance = station.glance();
        out.delivering += glance.delivery == Delivery::delivering ? 1 : 0;
        out.rovers += glance.rovers;
        out.sentBytes += station.mountpoint().totals.sentBytes;
    });
    out.alarms = alarms_.count();
    out.listeners = listeners_;
    return out;
}

std::string Overview::fleetHead() const {
    return fleetHeadJson(ctl::status::nowUnixS(), totals());
}

std::map<std::string, std::string> Overview::summaries() const {
    std::map<std::string, std::string> out;
    stations_.forEach([&](Station& station) {
        out.emplace(station.settings().name, summaryJson(rowOf(station)));
    });
    return out;
}

std::optional<std::string> Overview::station(const std::string& name) const {
    Station* const found = find(name);
    if (!found)
        return std::nullopt;
    const Instant now = std::chrono::steady_clock::now();
    return stationJson({rowOf(*found), found->look(now), found->watch(), log_.events()}, now,
                       ctl::status::nowUnixS());
}

std::optional<std::string> Overview::events(const std::optional<std::string>& station) const {
    if (station && !find(*station))
        return std::nullopt;
    return eventsJson(log_.events(), station);
}

std::string Overview::metrics() const {
    std::vector<StationCounts> counts;
    stations_.forEach([&](Station& station) {
        const Mountpoint::Totals& totals = station.mountpoint().totals;
        counts.push_back({station.settings().name, station.glance(), station.watch(),
                          station.auditLook(), station.clockAheadS(), station.engineStarts(),
                          station.failovers(), totals.cutOff, totals.sentBytes});
    });
    return metricsText(counts, alarms_, totals());
}

std::vector<std::string> Overview::untried() const {
    std::vector<std::string> out;
    stations_.forEach([&](Station& station) {
        if (!station.tried())
            out.push_back(station.settings().name);
    });
    return out;
}

} // namespace gateway
