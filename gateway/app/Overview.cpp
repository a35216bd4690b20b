#include "gateway/app/Overview.h"

#include "base/Findings.h"
#include "gateway/net/Say.h"
#include "gateway/settings/Certificate.h"
#include "gnss/Clock.h"
#include "gnss/ComTime.h"
#include "gnss/Taiutc.h"

#include <cmath>
#include <filesystem>

namespace gateway {

using namespace std::chrono_literals;

namespace {

constexpr unsigned kLookTicks = 10;      // at what changes slowly
constexpr double kFewSatellites = 0.7;   // of the usual number
constexpr std::size_t kEngineStarts = 3; // within
constexpr Duration kEngineSpan = 10min;
constexpr std::size_t kRoversCut = 3; // within
constexpr Duration kRoversSpan = 5min;
constexpr std::uintmax_t kLeastSpace = std::uintmax_t{16} << 20; // bytes

} // namespace

Overview::Overview(const EventLog& log, All all, Notifier& notifier)
    : log_(log), all_(std::move(all)), alarms_([&notifier](const Alarm& alarm, bool begins) {
          say(begins ? Level::warning : Level::notice,
              alarm.station.empty() ? "gateway" : alarm.station,
              std::string(begins ? "alarm: " : "alarm ends: ") + titleOf(alarm.kind) + ": " +
                  alarm.text);
          notifier.tell(alarm, begins);
      }) {}

void Overview::apply(const Settings& settings) {
    settings_ = settings;
    ticks_ = 0; // look at once
    const Names stations = all_();
    std::erase_if(watched_, [&](const auto& entry) {
        if (stations.contains(entry.first))
            return false;
        alarms_.forget(entry.first);
        return true;
    });
}

void Overview::tick(Instant now) {
    for (const auto& [name, station] : all_())
        lookAt(name, *station, now);
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

void Overview::lookAt(const std::string& name, Station& station, Instant now) {
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
    if (ticks_ % kLookTicks == 0) {
        disk_ = wrongDisk();
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
               : text("the leap seconds are known for %d more days: install a newer package", days);
}

StationRow Overview::rowOf(const std::string& name, const Station& station) const {
    return {name, station.settings().mountpoint, station.glance(), alarms_.ofStation(name)};
}

Totals Overview::totals() const {
    Totals out;
    for (const auto& [name, station] : all_()) {
        ++out.stations;
        const StationGlance& glance = station->glance();
        out.delivering += glance.delivery == Delivery::delivering ? 1 : 0;
        out.rovers += glance.rovers;
        out.sentBytes += station->mountpoint().totals.sentBytes;
    }
    out.listeners = listeners_;
    return out;
}

std::string Overview::fleetHead() const {
    return fleetHeadJson(ctl::status::nowUnixS(), totals(), alarms_.now());
}

std::map<std::string, std::string> Overview::summaries() const {
    std::map<std::string, std::string> out;
    for (const auto& [name, station] : all_())
        out.emplace(name, summaryJson(rowOf(name, *station)));
    return out;
}

std::optional<std::string> Overview::station(const std::string& name) const {
    const Names stations = all_();
    const auto found = stations.find(name);
    if (found == stations.end())
        return std::nullopt;
    const Instant now = std::chrono::steady_clock::now();
    const StationLook look = found->second->look(now);
    return stationJson({rowOf(name, *found->second), look, found->second->watch(), log_.events()},
                       now, ctl::status::nowUnixS());
}

std::optional<std::string> Overview::events(const std::optional<std::string>& station) const {
    if (station && !all_().contains(*station))
        return std::nullopt;
    return eventsJson(log_.events(), station);
}

std::string Overview::metrics() const {
    std::vector<StationCounts> counts;
    const Names stations = all_();
    for (const auto& [name, station] : stations)
        counts.push_back({name, station->glance(), station->watch(), station->auditLook(),
                          station->engineStarts(), station->failovers(),
                          station->mountpoint().totals.cutOff,
                          station->mountpoint().totals.sentBytes});
    return metricsText(counts, alarms_, totals());
}

std::vector<std::string> Overview::untried() const {
    std::vector<std::string> out;
    for (const auto& [name, station] : all_())
        if (!station->tried())
            out.push_back(name);
    return out;
}

} // namespace gateway
