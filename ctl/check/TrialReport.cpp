#include "ctl/check/TrialReport.h"

#include "base/ComText.h"
#include "base/Findings.h"
#include "ctl/Counted.h"
#include "ctl/Times.h"
#include "ctl/check/Examine.h"
#include "ctl/check/Place.h"
#include "ctl/dump/Fields.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <cmath>
#include <ostream>

namespace ctl::check {

namespace {

constexpr double kSamePlaceM = 5.0;   // as the service tells it while it runs
constexpr double kClockApartS = 30.0; // of a live stream; a replay begins within its first minute
constexpr int kEphemerisMinutes = 15; // within which stations have sent each of theirs

using Unsigned = unsigned long long;

const char* nameOf(char system) {
    constexpr std::array<std::pair<char, const char*>, 7> names{{{'G', "GPS"},
                                                                 {'R', "GLONASS"},
                                                                 {'E', "Galileo"},
                                                                 {'C', "BeiDou"},
                                                                 {'J', "QZSS"},
                                                                 {'S', "SBAS"},
                                                                 {'I', "NavIC"}}};
    for (const auto& [letter, name] : names)
        if (letter == system)
            return name;
    return "?";
}

bool configured(const Session& session, char system) {
    return std::any_of(session.satelliteNames.begin(), session.satelliteNames.end(),
                       [&](const std::string& name) { return name.front() == system; });
}

/// Whether a carrier of the band is configured.
bool carrierConfigured(const Session& session, const SignalKey& key) {
    const std::size_t system = systemIndex(key.first);
    if (system == std::string_view::npos)
        return false;
    const auto& names = session.frequencies[system];
    return std::any_of(names.begin(), names.end(), [&](const std::string& slot) {
        return slot.size() > 1 && slot[1] == key.second.front();
    });
}

/// Whether replies of the deployment carry a signal; a complete one has those of every system that
/// can be answered.
bool carried(const TrialResult& result, const SignalKey& key) {
    return result.deployment->answering.complete ? contains("GRECJ", {&key.first, 1})
                                                 : repliesCarry(key.first, key.second);
}

/// A signal of the same band that the service keeps in its place.
std::string rivalOf(const SignalKey& key, const TrialResult& result) {
    for (const auto& [other, count] : result.signals)
        if (other.first == key.first && other.second.front() == key.second.front() &&
            other != key && count.kept > 0)
            return other.second;
    return {};
}

std::string durationText(double seconds) {
    const double s = std::fabs(seconds);
    return s < 120.0      ? text("%.1f s", s)
           : s < 7200.0   ? text("%.1f minutes", s / 60.0)
           : s < 172800.0 ? text("%.1f hours", s / 3600.0)
                          : text("%.1f days", s / 86400.0);
}

/// Names of the satellites for which something holds.
template <class Is> std::string satellitesThat(const TrialResult& result, const Is& is) {
    std::string out;
    for (const auto& [name, count] : result.satellites)
        if (pointer_string(result.deployment->satelliteNames, name) >= 0 && count.received > 0 &&
            count.replied == 0 && is(count))
            out += " " + name;
    return out;
}

std::string placeRemark(const StatedPlace& stated, const Vector3& here) {
    const double apartM = distance(stated.xyz, here);
    if (apartM <= kSamePlaceM)
        return {};
    const std::string mended = mendedTowards(here, stated.xyz);
    return text("%d places the station at %s, %.1f %s from the configured place (which lands at "
                "%s)%s%s",
                stated.type, usable(stated.xyz) ? shortText(placeOf(stated.xyz)).c_str() : "0 0 0",
                apartM < 1e4 ? apartM : apartM / 1000.0, apartM < 1e4 ? "m" : "km",
                shortText(placeOf(here)).c_str(), mended.empty() ? "" : ": it is there with ",
                mended.c_str());
}

} // namespace

std::string whyLost(const SignalKey& key, const TrialResult& result) {
    const SignalCount& count = result.signals.at(key);
    if (count.replied >= count.received)
        return {};
    if (!carried(result, key))
        return "no reply carries it";
    if (!configured(*result.deployment, key.first))
        return "no satellite of the system is configured";
    if (result.deployment->answering.complete)
        return count.replied > 0
                   ? "some satellites have no ephemeris, stand low, or are not configured"
                   : "its satellites have no ephemeris, stand low, or are not configured";
    if (!carrierConfigured(*result.deployment, key))
        return "its carrier is not in common/freqused";
    const std::string rival = rivalOf(key, result);
    std::string why;
    const auto add = [&](const char* separator, const std::string& reason) {
        why += (why.empty() ? "" : separator) + reason;
    };
    if (count.incomplete > 0)
        add("", text("%llu without range or phase", static_cast<Unsigned>(count.incomplete)));
    const bool keptLess = count.kept + count.incomplete < count.received;
    if (keptLess && !rival.empty())
        add(", ", rival + " takes its carrier" + (count.kept > 0 ? " where both come" : ""));
    else if (keptLess && count.kept == 0)
        add(", ", "the service keeps none of it: its satellites are not configured, its epochs are "
                  "not taken, or no channel is known");
    else if (keptLess)
        add(", ", "some of no configured satellite, or of no known channel");
    if (keptLess && count.kept > 0 && result.epochEnds > result.epochs)
        add(", ", "some in epochs that are not taken");
    if (count.kept > 0 && count.replied == 0)
        add("; ", "its satellites have no ephemeris, or stand low");
    else if (count.replied < count.kept)
        add("; ", "some satellites have no ephemeris, or stand low");
    return why;
}

std::vector<std::string> remarksOn(const TrialResult& r) {
    std::vector<std::string> out;
    if (r.messages == 0)
        return out;
    for (const StatedPlace& place : r.places)
        if (std::string remark = placeRemark(place, r.deployment->stations[0].xyz); !remark.empty())
            out.push_back(std::move(remark));
    if (r.epochs > 0 && std::fabs(r.clockAheadS) > kClockApartS)
        out.push_back(text("the first epoch is of %s (GPS time), the clock stands %s %s: %s",
                           dateTimeText(r.first).c_str(), durationText(r.clockAheadS).c_str(),
                           r.clockAheadS > 0.0 ? "later" : "earlier",
                           r.deployment->clock ? "put the start of the recording into common/clock"
                                               : "set the clock; a recording needs common/clock"));
    if (r.apart.epochs > 0)
        out.push_back(text("within %s the times of messages differ: %d is %.3f s %s %d; what came "
                           "before is lost",
                           counted(r.apart.epochs, "epoch").c_str(), r.apart.second,
                           std::fabs(r.apart.seconds), r.apart.seconds > 0.0 ? "after" : "before",
                           r.apart.first));
    if (r.stations.size() > 1) {
        std::string ids;
        for (const int id : r.stations)
            ids += text(" %d", id);
        out.push_back("messages of several stations come:" + ids +
                      "; replies may mix their places");
    }
    if (r.interrupted > 0)
        out.push_back(counted(r.interrupted, "epoch is", "epochs are") +
                      " interrupted by another message: what came before it is lost");
    if (r.backward > 0)
        out.push_back(counted(r.backward, "epoch is", "epochs are") +
                      " not later than the one before");
    if (r.epochEnds > r.epochs)
        out.push_back(counted(r.epochEnds, "epoch ends", "epochs end") +
                      text(" in the stream, and the service takes %llu: it refuses the others, or "
                           "drops them with bytes that only begin like a frame, such as those "
                           "where the stream is joined",
                           static_cast<Unsigned>(r.epochs)));
    if (r.badFrames > 0)
        out.push_back(counted(r.badFrames, "frame has", "frames have") + " a wrong check word");
    if (r.places.empty())
        out.emplace_back("no message states the station's place (1005, 1006): it is not compared");
    const std::string none = satellitesThat(
        r, [](const SatelliteCount& c) { return c.noEphemeris > 0 && c.oldEphemeris == 0; });
    if (!none.empty())
        out.push_back("no ephemeris came in time of:" + none +
                      (r.lateEphemerides > 0
                           ? " (" +
                                 counted(r.lateEphemerides, "ephemeris comes", "ephemerides come") +
                                 " behind the last epoch)"
                       : r.whole ? std::string()
                                 : text(" (stations repeat them within %d minutes: --seconds %d "
                                        "waits for that)",
                                        kEphemerisMinutes, 60 * kEphemerisMinutes)));
    const std::string old =
        satellitesThat(r, [](const SatelliteCount& c) { return c.oldEphemeris > 0; });
    if (!old.empty())
        out.push_back("ephemerides are more than two hours away from the epochs, of:" + old);
    return out;
}

std::string verdictOn(const TrialResult& r) {
    if (r.answered > 0)
        return text("the service would answer %llu of %llu epochs%s",
                    static_cast<Unsigned>(r.answered), static_cast<Unsigned>(r.epochs),
                    r.emptyReplies > 0 ? ", the others without observations" : "");
    std::string why = "its satellites have no ephemeris, or stand low";
    if (r.bytes == 0 && r.beginning.empty())
        why = "nothing came";
    else if (r.messages == 0)
        why = "no RTCM 3 message came; the bytes begin with \"" + dump::clean(r.beginning) + '"';
    else if (r.observationMessages == 0)
        why = "no observations came";
    else if (r.epochEnds == 0)
        why = "every observation message says that more of its epoch follow";
    else if (r.epochs == 0)
        why = "the service refuses them";
    else if (std::none_of(r.signals.begin(), r.signals.end(), [&](const auto& entry) {
                 return entry.second.received > 0 && carried(r, entry.first) &&
                        (entry.second.kept > 0 || r.deployment->answering.complete);
             }))
        why = "no reply carries the signals that come";
    else if (r.ephemerisMessages == 0)
        why = "no ephemerides came";
    else if (r.lateEphemerides == r.ephemerisMessages)
        why = "the ephemerides come behind the last epoch";
    return "the service would answer no epoch with an observation: " + why;
}

void printTrial(const TrialSource& source, const TrialResult& r, std::ostream& out) {
    out << dump::clean(source.name) << ": " << r.bytes << " bytes, " << r.messages << " messages, "
        << counted(r.epochs, "epoch");
    if (r.epochs > 1)
        out << (r.backward == 0 ? text(" in %.1f s", r.spanS()) : std::string())
            << text(" from %s (GPS time)", dateTimeText(r.first).c_str());
    out << (source.ended.empty() ? "" : "; " + source.ended) << '\n';
    for (const StatedPlace& place : r.places)
        out << text("    station %d at %s (%d), %.2f m from the configured place\n", place.station,
                    usable(place.xyz) ? longText(placeOf(place.xyz)).c_str() : "no place",
                    place.type, distance(place.xyz, r.deployment->stations[0].xyz));
    if (!r.signals.empty())
        out << "    system   signal   received  in replies\n";
    for (const auto& [key, count] : r.signals)
        out << text("    %-8s %-6s %10llu  %10llu  %s", nameOf(key.first), key.second.c_str(),
                    static_cast<Unsigned>(count.received), static_cast<Unsigned>(count.replied),
                    whyLost(key, r).c_str())
            << '\n';
    std::string answered;
    for (const auto& [name, count] : r.satellites)
        answered += count.replied > 0 ? " " + name : "";
    if (!answered.empty())
        out << "    satellites in replies:" << answered << '\n';
    if (const std::string low = satellitesThat(
            r, [](const SatelliteCount& c) { return c.noEphemeris + c.oldEphemeris == 0; });
        !low.empty() && r.epochs > 0)
        out << "    left out, low or without a signal that replies carry:" << low << '\n';
    for (const std::string& remark : remarksOn(r))
        out << "warning: " << remark << '\n';
    for (const std::string& line : r.said)
        out << "the service would say: " << dump::clean(line) << '\n';
    out << dump::clean(source.name) << ": " << verdictOn(r) << '\n';
}

cJSON* jsonOfTrial(const TrialSource& source, const TrialResult& r) {
    cJSON* const o = cJSON_CreateObject();
    const auto number = [](cJSON* to, const char* key, double value) {
        cJSON_AddNumberToObject(to, key, value);
    };
    const auto words = [&](const char* key, const std::vector<std::string>& lines) {
        cJSON* const list = cJSON_AddArrayToObject(o, key);
        for (const std::string& line : lines)
            cJSON_AddItemToArray(list, cJSON_CreateString(dump::clean(line).c_str()));
    };
    cJSON_AddStringToObject(o, "source", dump::clean(source.name).c_str());
    cJSON_AddStringToObject(o, "ended", source.ended.c_str());
    cJSON_AddStringToObject(o, "verdict", verdictOn(r).c_str());
    for (const auto& [key, value] : std::initializer_list<std::pair<const char*, std::uint64_t>>{
             {"bytes", r.bytes},
             {"messages", r.messages},
             {"bad_frames", r.badFrames},
             {"epoch_ends", r.epochEnds},
             {"epochs", r.epochs},
             {"answered", r.answered},
             {"empty_replies", r.emptyReplies},
             {"interrupted", r.interrupted},
             {"ephemerides", r.ephemerisMessages}})
        number(o, key, static_cast<double>(value));
    number(o, "seconds", r.spanS());
    number(o, "clock_ahead_s", r.clockAheadS);
    cJSON* const signals = cJSON_AddArrayToObject(o, "signals");
    for (const auto& [key, count] : r.signals) {
        cJSON* const row = cJSON_CreateObject();
        cJSON_AddItemToArray(signals, row);
        cJSON_AddStringToObject(row, "system", std::string(1, key.first).c_str());
        cJSON_AddStringToObject(row, "signal", key.second.c_str());
        number(row, "received", static_cast<double>(count.received));
        number(row, "without_range_or_phase", static_cast<double>(count.incomplete));
        number(row, "kept", static_cast<double>(count.kept));
        number(row, "in_replies", static_cast<double>(count.replied));
        cJSON_AddStringToObject(row, "why", whyLost(key, r).c_str());
    }
    cJSON* const satellites = cJSON_AddArrayToObject(o, "satellites");
    for (const auto& [name, count] : r.satellites) {
        cJSON* const row = cJSON_CreateObject();
        cJSON_AddItemToArray(satellites, row);
        cJSON_AddStringToObject(row, "satellite", name.c_str());
        number(row, "received", static_cast<double>(count.received));
        number(row, "in_replies", static_cast<double>(count.replied));
        number(row, "no_ephemeris", static_cast<double>(count.noEphemeris));
        number(row, "old_ephemeris", static_cast<double>(count.oldEphemeris));
    }
    cJSON* const places = cJSON_AddArrayToObject(o, "places");
    for (const StatedPlace& place : r.places) {
        cJSON* const row = cJSON_CreateObject();
        cJSON_AddItemToArray(places, row);
        number(row, "type", place.type);
        number(row, "station", place.station);
        cJSON_AddItemToObject(row, "xyz", cJSON_CreateDoubleArray(place.xyz.data(), 3));
        number(row, "distance_m", distance(place.xyz, r.deployment->stations[0].xyz));
    }
    words("warnings", remarksOn(r));
    words("said", r.said);
    return o;
}

} // namespace ctl::check
