#include "ctl/status/Screen.h"

#include "base/Findings.h"
#include "ctl/Counted.h"
#include "ctl/Times.h"
#include "gnss/GTime.h"
#include "gnss/gnsscmn.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <cmath>

namespace ctl::status {

namespace {

using Unsigned = unsigned long long;

std::string spanText(double seconds) {
    const double s = std::fabs(seconds);
    return s < 120.0      ? text("%.1f s", s)
           : s < 7200.0   ? text("%.0f min", s / 60.0)
           : s < 172800.0 ? text("%.1f h", s / 3600.0)
                          : text("%.1f days", s / 86400.0);
}

std::string instantText(double unixS) {
    return dateTimeText({static_cast<std::int64_t>(unixS), 0.0}) + " UTC";
}

/// "low 1, no ephemeris 2" of the counts under a path that are not 0.
std::string countsUnder(const StatusFile& s, const std::string& path) {
    std::string out;
    s.forEach(path + "/*", [&](const std::vector<std::string>& names, const cJSON& value) {
        if (cJSON_IsNumber(&value) && value.valuedouble != 0.0)
            out += (out.empty() ? "" : ", ") + names.back() + text(" %.0f", value.valuedouble);
    });
    return out;
}

std::string behind(const std::string& before, const std::string& list) {
    return list.empty() ? "" : before + list;
}

class Lines {
public:
    void add(const std::string& what, const std::string& line) {
        if (!line.empty())
            out_ += text("    %-13s %s\n", what.c_str(), line.c_str());
    }
    std::string take() { return std::move(out_); }

private:
    std::string out_;
};

std::string connectionText(const StatusFile& s, double now) {
    const std::string state = s.text("connection/state");
    const auto since = s.number("connection/since_unix_s");
    if (state == "ended")
        return "ended" + (since ? " " + spanText(now - *since) + " ago" : std::string()) +
               "; its peer was " + s.text("connection/peer");
    std::string out = state == "connected" ? "connected to " : "not connected to ";
    out += s.text("connection/peer");
    if (since)
        out += " for " + spanText(now - *since);
    return out;
}

std::string lastEpochText(const StatusFile& s, double now) {
    const auto age = lastEpochAgeS(s, now);
    if (!age)
        return "none yet";
    std::string out = spanText(*age) + " ago";
    if (const auto ahead = s.number("epochs/last/clock_ahead_s"))
        out += "; the clock is " + spanText(*ahead) + (*ahead < 0.0 ? " behind" : " ahead of") +
               " its time";
    return out;
}

/// The bound below which so many of the answers left; empty without any.
std::string delayWithin(const StatusFile& s, double share) {
    const auto all = static_cast<double>(s.count("output/delay/answers_total"));
    std::string found;
    s.forEach("output/delay/at_most_total/*",
              [&](const std::vector<std::string>& names, const cJSON& value) {
                  if (found.empty() && all > 0.0 && value.valuedouble >= share * all)
                      found = text("%.0f %% within %s s", 100.0 * share, names[0].c_str());
              });
    return found;
}

void addSystem(Lines& lines, const StatusFile& s, const ConfiguredSystem& system) {
    const std::string path = std::string("systems/") + system.letter;
    if (!s.number(path + "/seen_count"))
        return;
    std::string satellites =
        text("%llu seen, %llu answered", Unsigned{s.count(path + "/seen_count")},
             Unsigned{s.count(path + "/answered_count")});
    satellites += behind("; ", countsUnder(s, path + "/left_out_count"));
    satellites += "; ephemerides of " + std::to_string(s.count(path + "/ephemeris_count"));
    if (const auto oldest = s.number(path + "/oldest_ephemeris_age_s"))
        satellites += ", the oldest of " + spanText(*oldest) + (*oldest < 0.0 ? " ahead" : " ago");
    lines.add(std::string(system.fullName), satellites);
    s.forEach(path + "/signals/*", [&](const std::vector<std::string>& names, const cJSON&) {
        const std::string signal = path + "/signals/" + names[0];
        lines.add("", text("%s %llu received, %llu answered", names[0].c_str(),
                           Unsigned{s.count(signal + "/received_total")},
                           Unsigned{s.count(signal + "/answered_total")}) +
                          behind("; ", countsUnder(s, signal + "/dropped_total")));
    });
}

std::string senderText(const StatusFile& s) {
    std::string out;
    if (const auto id = s.number("sender/station_id"))
        out = text("station %.0f", *id);
    if (const auto distance = s.number("sender/distance_m"))
        out += text("%s%.2f m from the configured place", out.empty() ? "" : ", ", *distance);
    if (s.isTrue("sender/guard_holds"))
        out += ": ANSWERS ARE HELD BACK";
    for (const char* const what : {"receiver", "antenna"})
        if (const std::string name = s.text(std::string("sender/") + what); !name.empty())
            out += (out.empty() ? "" : "; ") + std::string(what) + " " + name;
    return out;
}

} // namespace

std::string screenOf(const StatusFile& s, double now) {
    Lines lines;
    lines.add("last epoch", lastEpochText(s, now));
    lines.add("epochs",
              text("%llu complete, %llu unfinished, %llu answered",
                   Unsigned{s.count("epochs/complete_total")},
                   Unsigned{s.count("epochs/unfinished_total")},
                   Unsigned{s.count("epochs/answered_total")}) +
                  behind("; not answered: ", countsUnder(s, "epochs/not_answered_total")));
    lines.add("in",
              text("%llu bytes, %llu skipped, ", Unsigned{s.count("input/received_bytes_total")},
                   Unsigned{s.count("input/skipped_bytes_total")}) +
                  counted(s.count("input/wrong_check_words_total"), "wrong check word") +
                  behind("; messages ", countsUnder(s, "input/messages_total")) +
                  behind("; refused ", countsUnder(s, "input/refused_messages_total")));
    lines.add("out",
              text("%llu bytes, %llu answers (%llu dropped), %llu frames passed on (%llu dropped)",
                   Unsigned{s.count("output/sent_bytes_total")},
                   Unsigned{s.count("output/answers_total")},
                   Unsigned{s.count("output/dropped_answers_total")},
                   Unsigned{s.count("output/forwarded_frames_total")},
                   Unsigned{s.count("output/dropped_frames_total")}));
    lines.add("delay", delayWithin(s, 0.5) + behind(", ", delayWithin(s, 0.99)));
    for (const ConfiguredSystem& system : kConfiguredSystems)
        addSystem(lines, s, system);
    lines.add("sender", senderText(s));
    lines.add("losses", countsUnder(s, "connection/lost_total"));
    if (const auto end = s.number("leap_seconds/file_end_unix_s"))
        lines.add("leap seconds", "the file ends on " + instantText(*end));
    if (const auto dropped = s.count("log/dropped_lines_total"); dropped > 0)
        lines.add("log", counted(dropped, "line") + " dropped");
    std::string head = s.text("station") + ": " + connectionText(s, now);
    if (const auto started = s.number("process/started_unix_s"))
        head += text("; process %llu since ", Unsigned{s.count("process/process_id")}) +
                instantText(*started);
    return head + "\n" + lines.take();
}

std::string lineOf(const StatusFile& s, double now) {
    const auto age = lastEpochAgeS(s, now);
    std::uint64_t seen = 0;
    std::uint64_t answered = 0;
    for (const ConfiguredSystem& system : kConfiguredSystems) {
        seen += s.count(std::string("systems/") + system.letter + "/seen_count");
        answered += s.count(std::string("systems/") + system.letter + "/answered_count");
    }
    return text("%-4s  %-10s  last epoch %-14s  %llu of %llu epochs answered, %llu of %llu "
                "satellites%s\n",
                s.text("station").c_str(), s.text("connection/state").c_str(),
                age ? (spanText(*age) + " ago").c_str() : "none",
                Unsigned{s.count("epochs/answered_total")},
                Unsigned{s.count("epochs/complete_total")}, Unsigned{answered}, Unsigned{seen},
                s.isTrue("sender/guard_holds") ? ", ANSWERS ARE HELD BACK" : "");
}

} // namespace ctl::status
