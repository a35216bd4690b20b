#include "base/Findings.h"
#include "ctl/status/MetricsText.h"
#include "gateway/web/Reports.h"

namespace gateway {

namespace {

using ctl::status::head;
using ctl::status::label;
using ctl::status::sample;

/// A metric with one sample for each station; nothing for one without.
struct PerStation {
    std::string_view name, type, help;
    std::optional<double> (*value)(const StationCounts&);
};
template <class T> double number(T count) {
    return static_cast<double>(count);
}
constexpr PerStation kPerStation[] = {
    {"gateway_delivering", "gauge", "1 while epochs reach rovers.",
     [](const StationCounts& s) {
         return std::optional(s.glance.delivery == Delivery::delivering ? 1.0 : 0.0);
     }},
    {"gateway_last_epoch_timestamp_seconds", "gauge", "When the last epoch went to rovers.",
     [](const StationCounts& s) { return s.glance.lastEpochUnixS; }},
    {"gateway_epoch_interval_seconds", "gauge", "Between epochs, measured.",
     [](const StationCounts& s) { return s.glance.intervalS; }},
    {"gateway_received_epochs_total", "counter", "Whole epochs of the station's stream.",
     [](const StationCounts& s) { return std::optional(number(s.watch.epochsIn())); }},
    {"gateway_sent_epochs_total", "counter", "Epochs that went to rovers.",
     [](const StationCounts& s) { return std::optional(number(s.watch.epochsOut())); }},
    {"gateway_received_observations_total", "counter", "Observations of the station's stream.",
     [](const StationCounts& s) { return std::optional(number(s.watch.cellsInTotal())); }},
    {"gateway_sent_observations_total", "counter", "Observations that went to rovers.",
     [](const StationCounts& s) { return std::optional(number(s.watch.cellsOutTotal())); }},
    {"gateway_rovers", "gauge", "Rovers that get the stream.",
     [](const StationCounts& s) { return std::optional(number(s.glance.rovers)); }},
    {"gateway_rovers_cut_total", "counter", "Rovers that fell behind and were cut off.",
     [](const StationCounts& s) { return std::optional(number(s.roversCut)); }},
    {"gateway_sent_bytes_total", "counter", "Bytes sent to rovers.",
     [](const StationCounts& s) { return std::optional(number(s.sentBytes)); }},
    {"gateway_engine_starts_total", "counter", "Starts of the station's engine.",
     [](const StationCounts& s) { return std::optional(number(s.engineStarts)); }},
    {"gateway_failovers_total", "counter", "Changes from one source to another.",
     [](const StationCounts& s) { return std::optional(number(s.failovers)); }},
    {"gateway_audited_epochs_total", "counter", "Epochs that the audit compared.",
     [](const StationCounts& s) { return std::optional(number(s.audit.counts.epochs)); }},
    {"gateway_unaudited_epochs_total", "counter", "Epochs that the audit could not compare.",
     [](const StationCounts& s) { return std::optional(number(s.audit.counts.notAudited)); }},
    {"gateway_withheld_epochs_total", "counter", "Epochs that the audit withheld.",
     [](const StationCounts& s) { return std::optional(number(s.audit.counts.wrongEpochs)); }},
    {"gateway_clock_ahead_seconds", "gauge", "The stream's time minus the machine's.",
     [](const StationCounts& s) { return s.clockAheadS; }}};

std::string stationLabel(const StationCounts& s) {
    return label("station", s.name);
}

void addSatellites(std::string& out, std::span<const StationCounts> stations, std::string_view name,
                   std::string_view help, EpochCells StationGlance::*cells) {
    out += head(name, "gauge", help);
    for (const StationCounts& s : stations)
        for (std::size_t system = 0; system < kMsmLetters.size(); ++system)
            if (s.glance.received.count(system) > 0)
                out += sample(
                    name, stationLabel(s) + "," + label("system", kMsmLetters.substr(system, 1)),
                    (s.glance.*cells).count(system));
}

void addDelays(std::string& out, std::span<const StationCounts> stations) {
    constexpr std::string_view name = "gateway_delay_seconds";
    const std::string base(name);
    out += head(name, "histogram", "From the last byte of an epoch to its answer.");
    for (const StationCounts& s : stations) {
        const StationWatch::Delays& delays = s.watch.delays();
        std::uint64_t upTo = 0;
        for (std::size_t i = 0; i < StationWatch::kDelayBoundsS.size(); ++i) {
            upTo += delays.upTo[i];
            const std::string bound = text("%g", StationWatch::kDelayBoundsS[i]);
            out +=
                sample(base + "_bucket", stationLabel(s) + "," + label("le", bound), number(upTo));
        }
        out += sample(base + "_bucket", stationLabel(s) + "," + label("le", "+Inf"),
                      number(delays.count));
        out += sample(base + "_sum", stationLabel(s), delays.sumS);
        out += sample(base + "_count", stationLabel(s), number(delays.count));
    }
}

void addAlarms(std::string& out, std::span<const StationCounts> stations, const Alarms& alarms) {
    out +=
        head("gateway_alarm", "gauge", "1 while an alarm holds; without station: the gateway's.");
    const auto add = [&](AlarmKind kind, const std::string& station, bool holds) {
        out += sample("gateway_alarm",
                      (station.empty() ? "" : label("station", station) + ",") +
                          label("kind", nameOf(kind)),
                      holds ? 1.0 : 0.0);
    };
    std::vector<std::string> names{""};
    for (const StationCounts& s : stations)
        names.push_back(s.name);
    for (const std::string& name : names) {
        std::array<bool, kAlarmKinds> holds{};
        for (const Alarm& alarm : alarms.ofStation(name))
            holds[static_cast<std::size_t>(alarm.kind)] = true;
        for (std::size_t kind = 0; kind < kAlarmKinds; ++kind)
            if (isOfGateway(static_cast<AlarmKind>(kind)) == name.empty())
                add(static_cast<AlarmKind>(kind), name, holds[kind]);
    }
    out += head("gateway_alarms_total", "counter", "Alarms that have begun, by kind.");
    for (std::size_t kind = 0; kind < kAlarmKinds; ++kind)
        out += sample("gateway_alarms_total", label("kind", nameOf(static_cast<AlarmKind>(kind))),
                      number(alarms.begun()[kind]));
}

} // namespace

std::string metricsText(std::span<const StationCounts> stations, const Alarms& alarms,
                        const Totals& totals) {
    std::string out = head("gateway_info", "gauge", "The program.") +
                      sample("gateway_info", label("version", KESTRUNE_VERSION), 1.0) +
                      head("gateway_stations", "gauge", "Stations that are configured.") +
                      sample("gateway_stations", "", number(totals.stations)) +
                      head("gateway_page_listeners", "gauge", "Pages that are open.") +
                      sample("gateway_page_listeners", "", number(totals.listeners));
    for (const PerStation& metric : kPerStation) {
        std::string samples;
        for (const StationCounts& s : stations)
            if (const auto value = metric.value(s))
                samples += sample(metric.name, stationLabel(s), *value);
        if (!samples.empty())
            out += head(metric.name, metric.type, metric.help) + samples;
    }
    addSatellites(out, stations, "gateway_satellites_received", "Satellites of the last epoch.",
                  &StationGlance::received);
    addSatellites(out, stations, "gateway_satellites_sent",
                  "Satellites of the last epoch that went to rovers.", &StationGlance::kept);
    addDelays(out, stations);
    addAlarms(out, stations, alarms);
    return out;
}

} // namespace gateway
