#include "gateway/web/Reports.h"

#include "ctl/dump/Describe.h"
#include "ctl/dump/Fields.h"
#include "gnss/gnsscmn.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>

namespace gateway {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kMostRovers = 200, kMostEvents = 100; // of a station

std::string dumped(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json fit(const std::string& of) {
    return ctl::dump::clean(of);
}

/// To 1, 0.1, 0.01...: what is nearest to such a number is written short.
double rounded(double value, double step) {
    const double perUnit = std::round(1 / step);
    return std::round(value * perUnit) / perUnit;
}

/// Seconds since 1970, to the millisecond.
double unixTime(double s) {
    return rounded(s, 1e-3);
}

void put(Json& to, const char* key, const std::optional<double>& value, double step) {
    if (value && std::isfinite(*value))
        to[key] = rounded(*value, step);
}

constexpr double kDegree = kPi / 180;

Json placeOf(const Vector3& ecef) {
    const Vector3 blh = xyzblh(ecef, 1.0, 0, 0, 0, 0, 0);
    return {{"latitude_deg", rounded(blh[0] / kDegree, 1e-9)},
            {"longitude_deg", rounded(blh[1] / kDegree, 1e-9)},
            {"height_m", rounded(blh[2], 1e-4)}};
}

const char* nameOf(Delivery delivery) {
    constexpr std::array names{"starting", "delivering", "silent", "stopped", "wrong"};
    return names[static_cast<std::size_t>(delivery)];
}

const char* nameOf(Level level) {
    return level == Level::error     ? "error"
           : level == Level::warning ? "warning"
           : level == Level::notice  ? "notice"
                                     : "info";
}

Json alarmOf(const Alarm& alarm) {
    Json out{{"kind", nameOf(alarm.kind)}};
    if (!alarm.station.empty())
        out["station"] = alarm.station;
    out["since_unix_s"] = unixTime(alarm.sinceUnixS);
    out["text"] = fit(wordsOf(alarm));
    return out;
}

Json alarmsOf(const std::vector<Alarm>& alarms) {
    Json out = Json::array();
    for (const Alarm& alarm : alarms)
        out.push_back(alarmOf(alarm));
    return out;
}

Json eventOf(const Event& event) {
    Json out{{"number", event.number}, {"at_unix_s", unixTime(event.atUnixS)}};
    if (!event.station.empty())
        out["station"] = event.station;
    out["level"] = nameOf(event.level);
    out["text"] = fit(event.text);
    return out;
}

Json summaryOf(const StationRow& row) {
    const StationGlance& g = row.glance;
    Json out{{"name", row.name},
             {"mountpoint", row.mountpoint},
             {"state", nameOf(g.delivery)},
             {"since_unix_s", unixTime(g.sinceUnixS)}};
    put(out, "last_epoch_unix_s", g.lastEpochUnixS, 1e-3);
    put(out, "interval_s", g.intervalS, 1e-3);
    out["satellites"] = Json::object();
    for (std::size_t system = 0; system < kMsmLetters.size(); ++system)
        if (g.received.count(system) > 0)
            out["satellites"][std::string(1, kMsmLetters[system])] = {
                {"seen_count", g.received.count(system)}, {"answered_count", g.kept.count(system)}};
    out["received_signals_count"] = g.received.cells;
    out["kept_signals_count"] = g.kept.cells;
    out["rovers_count"] = g.rovers;
    put(out, "delay_s", g.delayS, 1e-6);
    if (g.place)
        out["place"] = placeOf(*g.place);
    out["alarms"] = Json::array();
    for (const Alarm& alarm : row.alarms)
        out["alarms"].push_back(nameOf(alarm.kind));
    return out;
}

Json sourceOf(const SourceLook& source) {
    Json out{{"address", fit(source.address)}, {"state", source.state}, {"active", source.active}};
    put(out, "delivering_since_unix_s", source.deliveringSinceUnixS, 1e-3);
    if (!source.lastError.empty())
        out["last_error"] = fit(source.lastError);
    return out;
}

Json messagesOf(const std::vector<MessageLook>& messages) {
    Json out = Json::array();
    for (const MessageLook& m : messages) {
        Json one{{"number", m.number}};
        if (std::string name = ctl::dump::messageName(m.number); !name.empty())
            one["name"] = std::move(name);
        if (m.intervalS > 0.0)
            one["interval_s"] = m.intervalS;
        one["messages_total"] = m.messages;
        one["bytes_total"] = m.bytes;
        out.push_back(std::move(one));
    }
    return out;
}

Json satelliteOf(const SatelliteLook& s) {
    Json out{{"name", s.name}, {"fate", s.fate}};
    put(out, "azimuth_deg", s.azimuthDeg, 0.01);
    put(out, "elevation_deg", s.elevationDeg, 0.01);
    put(out, "change_m", s.changeM, 1e-4);
    out["cn0_dbhz"] = Json::object();
    for (const auto& [signal, cn0] : s.cn0DbHz)
        out["cn0_dbhz"][signal] = rounded(cn0, 0.01);
    put(out, "ephemeris_age_s", s.ephemerisAgeS, 1.0);
    if (s.ephemerisIssue)
        out["ephemeris_issue"] = *s.ephemerisIssue;
    out["kept"] = s.kept;
    return out;
}

Json seriesOf(Series& series, Instant now, double nowUnixS, double step) {
    const double stepS = std::chrono::duration<double>(series.step()).count();
    // The last whole step ended when the one that holds the instant began.
    const double intoS =
        std::chrono::duration<double>(now.time_since_epoch() % series.step()).count();
    Json values = Json::array();
    for (const float v : series.whole(now))
        if (std::isnan(v))
            values.push_back(nullptr);
        else
            values.push_back(rounded(static_cast<double>(v), step));
    return {{"end_unix_s", unixTime(nowUnixS - intoS)}, {"step_s", stepS}, {"values", values}};
}

Json roverOf(const RoverLook& r) {
    Json out = Json::object();
    if (!r.user.empty())
        out["user"] = fit(r.user);
    out["address"] = r.address;
    if (!r.agent.empty())
        out["agent"] = fit(r.agent);
    out["since_unix_s"] = unixTime(r.sinceUnixS);
    out["sent_bytes_total"] = r.sentBytes;
    out["waiting_bytes"] = r.waitingBytes;
    if (r.place) {
        out["place"] = {{"latitude_deg", r.place->latitudeDeg},
                        {"longitude_deg", r.place->longitudeDeg},
                        {"height_m", r.place->heightM}};
        out["place_unix_s"] = unixTime(r.place->atUnixS);
    }
    return out;
}

Json auditOf(const AuditLook& audit) {
    Json out{{"on", audit.on},
             {"epochs_total", audit.counts.epochs},
             {"unaudited_epochs_total", audit.counts.notAudited},
             {"withheld_epochs_total", audit.counts.wrongEpochs},
             {"cells_total", audit.counts.values},
             {"worst", Json::array()}};
    for (const AuditLook::Worst& w : audit.worst)
        out["worst"].push_back({{"system", std::string(1, w.system)},
                                {"range_m", rounded(w.rangeM, 1e-7)},
                                {"phase_m", rounded(w.phaseM, 1e-7)},
                                {"range_bound_m", rounded(w.rangeBoundM, 1e-7)},
                                {"phase_bound_m", rounded(w.phaseBoundM, 1e-7)}});
    return out;
}

Json lastEvents(const std::deque<Event>& events, const std::optional<std::string>& station,
                std::size_t most) {
    Json out = Json::array();
    for (auto event = events.rbegin(); event != events.rend() && out.size() < most; ++event)
        if (!station || event->station == *station)
            out.push_back(eventOf(*event));
    return out;
}

} // namespace

std::string summaryJson(const StationRow& row) {
    return dumped(summaryOf(row));
}

std::string alarmsJson(const std::vector<Alarm>& alarms) {
    return dumped(alarmsOf(alarms));
}

std::string fleetHeadJson(double atUnixS, const Totals& totals) {
    const Json members{{"at_unix_s", unixTime(atUnixS)},
                       {"version", KESTRUNE_VERSION},
                       {"totals",
                        {{"stations_count", totals.stations},
                         {"delivering_count", totals.delivering},
                         {"rovers_count", totals.rovers},
                         {"alarms_count", totals.alarms},
                         {"sent_bytes_total", totals.sentBytes}}}};
    const std::string object = dumped(members);
    return object.substr(1, object.size() - 2);
}

std::string stationJson(const StationReport& report, Instant now, double nowUnixS) {
    const StationLook& look = report.look;
    StationWatch& watch = report.watch;
    Json out = summaryOf(report.row);
    out["at_unix_s"] = unixTime(nowUnixS);
    out["identifier"] = fit(look.identifier);
    if (!look.descriptor.empty())
        out["descriptor"] = fit(look.descriptor);
    if (look.virtualPlace)
        out["virtual_place"] = placeOf(*look.virtualPlace);
    out["virtual_offset_m"] = look.offsetM;
    out["sources"] = Json::array();
    for (const SourceLook& source : look.sources)
        out["sources"].push_back(sourceOf(source));
    if (look.ephemerides)
        out["ephemeris_source"] = sourceOf(*look.ephemerides);
    out["failovers_total"] = look.failovers;
    out["engine"] = {{"state", look.engineState}, {"starts_total", look.engineStarts}};
    put(out["engine"], "since_unix_s", look.engineSinceUnixS, 1e-3);
    out["sky"] = Json::array();
    for (const SatelliteLook& satellite : look.sky)
        out["sky"].push_back(satelliteOf(satellite));
    out["received"] = messagesOf(look.received);
    out["sent"] = messagesOf(look.sent);
    out["history"] = {{"seen", seriesOf(watch.seen, now, nowUnixS, 1.0)},
                      {"answered", seriesOf(watch.answered, now, nowUnixS, 1.0)},
                      {"epochs", seriesOf(watch.epochs, now, nowUnixS, 1.0)},
                      {"delay", seriesOf(watch.delay, now, nowUnixS, 1e-6)}};
    out["audit"] = auditOf(look.audit);
    out["rovers"] = Json::array();
    for (const RoverLook& rover : look.rovers)
        if (out["rovers"].size() < kMostRovers)
            out["rovers"].push_back(roverOf(rover));
    out["events"] = lastEvents(report.events, report.row.name, kMostEvents);
    out["alarms_now"] = alarmsOf(report.row.alarms);
    return dumped(out);
}

std::string eventsJson(const std::deque<Event>& events, const std::optional<std::string>& station) {
    return dumped({{"events", lastEvents(events, station, EventLog::kMost)}});
}

std::string alarmJson(const Alarm& alarm, const std::string& gateway, double nowUnixS) {
    Json out = alarmOf(alarm);
    out["gateway"] = fit(gateway);
    out["state"] = alarm.lasted ? "ends" : "begins";
    out["at_unix_s"] = unixTime(nowUnixS);
    if (alarm.lasted)
        out["lasted_s"] = rounded(std::chrono::duration<double>(*alarm.lasted).count(), 1e-3);
    return dumped(out);
}

} // namespace gateway
