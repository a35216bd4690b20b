#include "gateway/app/Overview.h"

#include "base/Findings.h"
#include "gateway/net/Say.h"
#include "gateway/settings/Certificate.h"
#include "gnss/Clock.h"
#include "gnss/ComTime.h"
#include "gnss/Taiutc.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

namespace gateway {

using namespace std::chrono_literals;

namespace {

constexpr unsigned kLookTicks = 10;      // at what changes slowly
constexpr unsigned kReadTicks = 600;     // at files that end on a day
constexpr double kFewSatellites = 0.7;   // of the usual number
constexpr std::size_t kEngineStarts = 3; // within
constexpr Duration kEngineSpan = 10min;
constexpr std::size_t kRoversCut = 3; // within
constexpr Duration kRoversSpan = 5min;
constexpr std::uintmax_t kLeastSpace = std::uintmax_t{16} << 20; // bytes

} // namespace

Overview::Overview(const EventLog& log, const Stations& stations, Notifier& notifier)
    : log_(log), stations_(stations), alarms_([&notifier](const Alarm& alarm, bool begins) {
          say(begins ? Level::warning : Level::notice,
              alarm.station.empty() ? "gateway" : alarm.station,
              std::string(begins ? "alarm: " : "alarm ends: ") + titleOf(alarm.kind) + ": " +
                  alarm.text);
          notifier.tell(alarm, begins);
      }) {}

void Overview::apply(const Settings& settings) {
    settings_ = settings;
    ticks_ = 0; // look at once
    std::erase_if(watched_, [&](const auto& entry) {
        if (find(entry.first))
            return false;
        alarms_.forget(entry.first);
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

std::size_t Overview::Lately::count(std::uint64_t total, Instant now, Duration span) {
    for (; before < total; ++before)
        at.push_back(now);
    while (!at.empty() && (now - at.front() > span || at.size() > 100))
        at.pop_front();
    return at.size();
}

void Overview::lookAt(Station& station, Instant now) {
    const std::string& name = station.settings().name;
    Watched& watched = watched_[name];
    const StationGlance& glance = station.glance();
    const StationWatch& watch = station.watch();
    const auto look = [&](AlarmKind kind, const std::string& wrong) {
        alarms_.look(kind, name, wrong, now);
    };
    const bool delivers = glance.delivery == Delivery::delivering;
    std::string none;
    if (glance.delivery == Delivery::silent ||
        (glance.delivery == Delivery::starting && now - station.startedAt() > kSilent))
        none = "no epoch has gone to rovers for 30 s";
    look(AlarmKind::noEpochs, none);
    if (ticks_ % kLookTicks == 0)
        lookAtSatellites(watched, station, now);
    look(AlarmKind::fewSatellites, delivers ? watched.few : "");
    look(AlarmKind::systemGone, delivers ? watched.gone : "");
    look(AlarmKind::delay, glance.delayS && *glance.delayS > settings_.alarms.delayS
                               ? text("answers take %.3f s", *glance.delayS)
                               : "");
    look(AlarmKind::moved,
         station.moved() ? "the stream states another position; rovers get nothing" : "");
    look(AlarmKind::audit, station.alarmed() ? "an answer is not what the audit computes" : "");
    const auto ahead = watch.clockAheadS();
    look(AlarmKind::clock,
         station.isLive() && delivers && ahead && std::abs(*ahead) > settings_.alarms.clockS
             ? text("the stream's time is %.1f s %s the machine's", std::abs(*ahead),
                    *ahead > 0 ? "ahead of" : "behind")
             : "");
    const std::size_t starts = watched.engineStarts.count(station.engineStarts(), now, kEngineSpan);
    look(AlarmKind::engine,
         starts >= kEngineStarts ? text("started %zu times within 10 min", starts) : "");
    const std::size_t cut =
        watched.roversCut.count(station.mountpoint().totals.cutOff, now, kRoversSpan);
    look(AlarmKind::roversCut,
         cut >= kRoversCut ? text("%zu fell behind and were cut off within 5 min", cut) : "");
}

void Overview::lookAtSatellites(Watched& watched, Station& station, Instant now) const {
    StationWatch& watch = station.watch();
    const auto usual = watch.usualSatellites(now);
    const int have = watch.cellsOut().count();
    watched.few =
        usual && have < kFewSatellites * *usual ? text("%d where %d are usual", have, *usual) : "";
    const std::string gone = watch.goneSystems(now);
    watched.gone = gone.empty() ? "" : "no satellites of " + gone;
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
    std::error_code failed;
    const auto space = std::filesystem::space(settings_.state, failed);
    if (failed)
        return settings_.state.string() + ": " + failed.message();
    return space.available < kLeastSpace
               ? text("%ju KiB are left for %s", space.available / 1024, settings_.state.c_str())
               : "";
}

std::string Overview::wrongCertificate() const {
    const CasterSettings& caster = settings_.caster;
    if (caster.listenTls.empty())
        return {};
    const auto remarks = examineCertificate(caster.certificate, caster.key, utcNow().time);
    return remarks.empty() ? "" : caster.certificate.string() + ": " + remarks.front().wrong;
}

/// All engines that are ours have the same file.
std::string Overview::wrongLeapSeconds() const {
    if (settings_.externalEngine || settings_.stations.empty())
        return {};
    LeapSeconds leaps;
    leaps.path = settings_.state / settings_.stations.front().name / "files/leapsec.tab";
    if (!std::filesystem::exists(leaps.path) || !Taiutc_m_load(leaps) || leaps.table.rows().empty())
        return {};
    const std::int64_t leftS = mjd2time(leaps.table.rows().back().mjd, 0.0) - utcNow().time;
    const auto days = static_cast<int>(std::floor(static_cast<double>(leftS) / kSecondsPerDay));
    return days >= kLeapTableEndsSoonDays
               ? ""
               : text("the leap seconds are known for %d more days: install a newer package",
                      std::max(days, 0));
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
    out.listeners = listeners_;
    return out;
}

std::string Overview::fleetHead() const {
    return fleetHeadJson(ctl::status::nowUnixS(), totals(), alarms_.now());
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
                          station.auditLook(), station.engineStarts(), station.failovers(),
                          totals.cutOff, totals.sentBytes});
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
