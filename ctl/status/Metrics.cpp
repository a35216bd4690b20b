#include "ctl/status/Metrics.h"

#include "ctl/status/MetricsText.h"

#include <cjson/cJSON.h>

#include <array>
#include <cmath>
#include <set>
#include <stdexcept>

namespace ctl::status {

namespace {

/// A metric: the path of its values, whose '*' become labels.
struct Metric {
    std::string_view path, name, type, help;
    std::array<std::string_view, 3> labels{};
};
// clang-format off
constexpr Metric kMetrics[] = {
    {"process/started_unix_s", "start_timestamp_seconds", "gauge", "When the process started."},
    {"process/written_unix_s", "status_timestamp_seconds", "gauge", "When the status was written."},
    {"process/warm_start_count", "warm_start_satellites", "gauge", "Satellites whose ephemerides were kept over the restart."},
    {"connection/since_unix_s", "connection_state_timestamp_seconds", "gauge", "When the state of the connection began."},
    {"connection/attempts_total", "connection_attempts_total", "counter", "Connects that were tried."},
    {"connection/made_total", "connections_total", "counter", "Connections that were made."},
    {"connection/lost_total/*", "connections_lost_total", "counter", "Connections that ended, by cause.", {"cause"}},
    {"input/received_bytes_total", "received_bytes_total", "counter", "Bytes received."},
    {"input/skipped_bytes_total", "skipped_bytes_total", "counter", "Bytes received that belong to no frame."},
    {"input/wrong_check_words_total", "wrong_check_words_total", "counter", "Frames received with a wrong check word."},
    {"input/messages_total/*", "received_messages_total", "counter", "Messages received, by number.", {"message"}},
    {"input/message_bytes_total/*", "received_message_bytes_total", "counter", "Bytes of the frames received, by number.", {"message"}},
    {"input/refused_messages_total/*", "refused_messages_total", "counter", "Messages that were refused, by number.", {"message"}},
    {"input/other_station_messages_total", "other_station_messages_total", "counter", "Messages of another station than the stream's."},
    {"output/sent_bytes_total", "sent_bytes_total", "counter", "Bytes sent."},
    {"output/answers_total", "answers_total", "counter", "Answers sent."},
    {"output/dropped_answers_total", "dropped_answers_total", "counter", "Answers that could not be sent."},
    {"output/forwarded_frames_total", "forwarded_frames_total", "counter", "Frames passed on."},
    {"output/dropped_frames_total", "dropped_frames_total", "counter", "Frames that could not be passed on."},
    {"output/messages_total/*", "sent_messages_total", "counter", "Messages sent, in answers or passed on, by number.", {"message"}},
    {"output/message_bytes_total/*", "sent_message_bytes_total", "counter", "Bytes of their frames, by number.", {"message"}},
    {"epochs/complete_total", "complete_epochs_total", "counter", "Epochs that came with their end."},
    {"epochs/unfinished_total", "unfinished_epochs_total", "counter", "Epochs that came without their end."},
    {"epochs/answered_total", "answered_epochs_total", "counter", "Epochs that were answered."},
    {"epochs/not_answered_total/*", "epochs_not_answered_total", "counter", "Epochs that were not answered, by reason.", {"reason"}},
    {"epochs/last/received_unix_s", "last_epoch_timestamp_seconds", "gauge", "When the last epoch came."},
    {"epochs/last/clock_ahead_s", "clock_ahead_seconds", "gauge", "The clock minus the time of the last epoch."},
    {"systems/*/seen_count", "satellites_seen", "gauge", "Satellites in the last epoch.", {"system"}},
    {"systems/*/answered_count", "satellites_answered", "gauge", "Satellites in the last answer.", {"system"}},
    {"systems/*/left_out_count/*", "satellites_left_out", "gauge", "Satellites that the last answer lacks, by reason.", {"system", "reason"}},
    {"systems/*/ephemeris_count", "ephemerides", "gauge", "Satellites with an ephemeris.", {"system"}},
    {"systems/*/newest_ephemeris_age_s", "newest_ephemeris_age_seconds", "gauge", "Age of the newest ephemeris.", {"system"}},
    {"systems/*/oldest_ephemeris_age_s", "oldest_ephemeris_age_seconds", "gauge", "Age of the oldest ephemeris.", {"system"}},
    {"systems/*/signals/*/received_total", "observations_received_total", "counter", "Observations received, by signal.", {"system", "signal"}},
    {"systems/*/signals/*/answered_total", "observations_answered_total", "counter", "Observations in answers, by signal.", {"system", "signal"}},
    {"systems/*/signals/*/dropped_total/*", "observations_dropped_total", "counter", "Observations that no answer holds, by reason.", {"system", "signal", "reason"}},
    {"sender/distance_m", "sender_distance_meters", "gauge", "Distance of the place in the stream from the configured one."},
    {"sender/guard_holds", "guard_holds", "gauge", "1 while answers are held back for that distance."},
    {"leap_seconds/file_end_unix_s", "leap_second_file_end_timestamp_seconds", "gauge", "When the leap-second file ends."},
    {"log/dropped_lines_total", "log_lines_dropped_total", "counter", "Lines of the log that nobody read in time."}};
// clang-format on

std::string stationLabel(const StatusFile& file) {
    return label("station", file.text("station"));
}

void add(std::string& out, const Metric& metric, std::span<const StatusFile> files) {
    std::string samples;
    for (const StatusFile& file : files)
        file.forEach(metric.path, [&](const std::vector<std::string>& names, const cJSON& value) {
            if (!cJSON_IsNumber(&value) && !cJSON_IsBool(&value))
                return;
            std::string labels = stationLabel(file);
            for (std::size_t i = 0; i < names.size(); ++i)
                labels += "," + label(metric.labels.at(i), names[i]);
            samples += sample(metric.name, labels,
                              cJSON_IsBool(&value) ? cJSON_IsTrue(&value) : value.valuedouble);
        });
    if (!samples.empty())
        out += head(metric.name, metric.type, metric.help) + samples;
}

/// What is no number in the file.
void addInfo(std::string& out, std::span<const StatusFile> files) {
    out += head("info", "gauge", "The program and the peer of its connection.");
    for (const StatusFile& file : files)
        out += sample("info",
                      stationLabel(file) + "," + label("version", file.text("version")) + "," +
                          label("peer", file.text("connection/peer")),
                      1.0);
    out += head("connected", "gauge", "1 while there is a connection.");
    for (const StatusFile& file : files)
        out += sample("connected", stationLabel(file),
                      file.text("connection/state") == "connected" ? 1.0 : 0.0);
}

void addDelay(std::string& out, std::span<const StatusFile> files) {
    std::string samples;
    for (const StatusFile& file : files) {
        const auto sum = file.number("output/delay/sum_s");
        if (!sum)
            continue;
        const auto all = static_cast<double>(file.count("output/delay/answers_total"));
        const std::string station = stationLabel(file);
        file.forEach("output/delay/at_most_total/*", [&](const std::vector<std::string>& names,
                                                         const cJSON& value) {
            samples += sample("answer_delay_seconds_bucket", station + "," + label("le", names[0]),
                              value.valuedouble);
        });
        samples += sample("answer_delay_seconds_bucket", station + ",le=\"+Inf\"", all);
        samples += sample("answer_delay_seconds_sum", station, *sum);
        samples += sample("answer_delay_seconds_count", station, all);
    }
    if (!samples.empty())
        out += head("answer_delay_seconds", "histogram",
                    "From the last byte of an epoch to the first one of its answer.") +
               samples;
}

} // namespace

std::string metricsOf(std::span<const StatusFile> files) {
    std::set<std::string> stations;
    for (const StatusFile& file : files)
        if (!stations.insert(file.text("station")).second)
            throw std::runtime_error(file.name() + ": a station " + file.text("station") +
                                     " is among the files already");
    std::string out;
    addInfo(out, files);
    for (const Metric& metric : kMetrics)
        add(out, metric, files);
    addDelay(out, files);
    return out;
}

} // namespace ctl::status
