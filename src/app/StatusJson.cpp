#include "app/Service.h"
#include "app/Status.h"
#include "base/ComText.h"
#include "base/Findings.h"
#include "gnss/Clock.h"
#include "gnss/ComTime.h"
#include "gnss/Leaps.h"
#include "vrs/VrsEncoder.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <unistd.h>
#include <vector>

// What the file of the status says. A value that is not known is left out.

/// A JSON object that is built from the outside in.
class ServiceStatus::Json {
public:
    Json() : root_(cJSON_CreateObject(), cJSON_Delete), path_{root_.get()} {}

    void open(std::string_view name) {
        path_.push_back(cJSON_AddObjectToObject(path_.back(), key(name)));
    }
    void close() { path_.pop_back(); }
    void add(std::string_view name, double value) {
        if (std::isfinite(value))
            cJSON_AddNumberToObject(path_.back(), key(name), value);
    }
    void add(std::string_view name, Count n) { add(name, static_cast<double>(n)); }
    void add(std::string_view name, bool value) {
        cJSON_AddBoolToObject(path_.back(), key(name), value);
    }
    /// A text; a '?' stands for what is no character of ASCII. An empty one is left out.
    void add(std::string_view name, std::string_view value) {
        std::string shown(value);
        std::ranges::replace_if(
            shown, [](char c) { return c < ' ' || c > '~'; }, '?');
        if (!shown.empty())
            cJSON_AddStringToObject(path_.back(), key(name), shown.c_str());
    }
    void add(std::string_view name, const char* value) { add(name, std::string_view(value)); }
    /// Counts by a number or a name.
    template <class Counts> void counts(std::string_view name, const Counts& list) {
        open(name);
        for (const auto& [what, n] : list)
            if constexpr (std::is_integral_v<std::remove_cvref_t<decltype(what)>>)
                add(std::to_string(what), Count{n});
            else
                add(what, Count{n});
        close();
    }
    std::string text() const {
        const std::unique_ptr<char, decltype(&cJSON_free)> printed(
            cJSON_PrintUnformatted(root_.get()), cJSON_free);
        return printed ? printed.get() : "";
    }

private:
    const char* key(std::string_view name) { return (key_ = name).c_str(); }

    std::unique_ptr<cJSON, void (*)(cJSON*)> root_;
    std::vector<cJSON*> path_; // open objects
    std::string key_;
};

namespace {

double unixSeconds(GTime t) {
    return static_cast<double>(t.time) + t.sec;
}

/// Signal of a system by its MSM id, "1C"; "id 20" without a name.
std::string signalName(std::size_t system, std::size_t id) {
    const std::string_view code = code2obs(kMsmSystems[system].codes[id]);
    return code.empty() ? text("id %zu", id) : std::string(code);
}

} // namespace

void ServiceStatus::tellProcess(Json& out) const {
    out.open("process");
    out.add("process_id", static_cast<Count>(getpid()));
    out.add("started_unix_s", startedS_);
    out.add("written_unix_s", unixSeconds(utcNow()));
    out.add("warm_start_count", warmStart_);
    out.close();
    out.open("connection");
    out.add("state", state_);
    out.add("peer", text("%s:%d", service_.record.input.host.c_str(), service_.record.input.port));
    out.add("since_unix_s", stateSinceS_);
    out.add("attempts_total", attempts_);
    out.add("made_total", made_);
    out.counts("lost_total",
               std::array{std::pair{"closed", losses_[0]}, std::pair{"failed", losses_[1]},
                          std::pair{"watchdog", losses_[2]}});
    out.close();
}

void ServiceStatus::tellTraffic(Json& out) const {
    const auto pending = static_cast<Count>(service_.intake.decoder.nbyte);
    out.open("input");
    out.add("received_bytes_total", bytesIn_);
    out.add("skipped_bytes_total", bytesIn_ - std::min(bytesIn_, frameBytesIn_ + pending));
    out.add("wrong_check_words_total", wrongCheckWords_);
    out.counts("messages_total", messagesIn_);
    out.counts("refused_messages_total", refused_);
    out.add("other_station_messages_total", ofOtherStation_);
    out.close();
    out.open("output");
    out.add("sent_bytes_total", bytesOut_);
    out.add("answers_total", answers_);
    out.add("dropped_answers_total", fates_[static_cast<std::size_t>(Fate::notSent)]);
    out.add("forwarded_frames_total", passedOn_);
    out.add("dropped_frames_total", framesDropped_);
    out.counts("messages_total", messagesOut_);
    out.open("delay");
    out.add("sum_s", delaySumS_);
    out.add("answers_total", delays_);
    out.open("at_most_total");
    for (std::size_t i = 0; i < kDelayBoundsS.size(); ++i)
        out.add(text("%g", kDelayBoundsS[i]), withinBound_[i]);
    out.close();
    out.close();
    out.close();
}

void ServiceStatus::tellEpochs(Json& out) const {
    const auto fate = [&](Fate f) { return fates_[static_cast<std::size_t>(f)]; };
    out.open("epochs");
    out.add("complete_total", wholeEpochs_);
    out.add("unfinished_total", unfinishedEpochs_);
    out.add("answered_total", fate(Fate::answered));
    out.counts("not_answered_total",
               std::array{std::pair{"no satellite", fate(Fate::noSatellite)},
                          std::pair{"no coordinates", fate(Fate::noCoordinates)},
                          std::pair{"guard", fate(Fate::guard)},
                          std::pair{"not sent", fate(Fate::notSent)}});
    if (lastEpochReceivedS_ > 0.0) {
        const GTime time = gtimeOf({service_.record.currentMjd, service_.record.currentSod});
        out.open("last");
        constexpr double gpsEpochUnixS = 315964800.0;
        out.add("time_gps_s", unixSeconds(time) - gpsEpochUnixS);
        out.add("received_unix_s", lastEpochReceivedS_);
        out.add("clock_ahead_s", lastEpochReceivedS_ - unixSeconds(gpst2utc(time)));
        out.close();
    }
    out.close();
}

/// Why a satellite of the last epoch is not in its answer.
std::string_view ServiceStatus::whyNot(int satellite) const {
    const int index = service_.record.satelliteIndex[static_cast<std::size_t>(satellite)];
    if (index < 0)
        return "not configured";
    switch (reasons_[static_cast<std::size_t>(index)]) {
    case Reason::noEphemeris:
        return "no ephemeris";
    case Reason::oldEphemeris:
        return "old ephemeris";
    case Reason::noOrbit:
        return "no orbit";
    default:
        return service_.record.answering.complete ? "low" : "low or no signal";
    }
}

/// Why answers lack observations of a signal, of all that it is received of or of some satellites.
std::string_view ServiceStatus::whyDropped(std::size_t system, std::size_t signal) const {
    const std::uint8_t code = kMsmSystems[system].codes[signal];
    const std::size_t row = systemIndex(kMsmLetters[system]);
    if (service_.record.answering.complete)
        return "satellite not answered";
    if (code2obs(code).empty())
        return "unknown";
    if (index_mask(row, "C" + std::string(code2obs(code))) < 0)
        return "not in the reply's list";
    if (service_.record.slotOf[row][code] < 0)
        return "carrier not in use";
    return "satellite not answered, or another signal took its carrier";
}

void ServiceStatus::tellSignals(Json& out, std::size_t system) const {
    out.open("signals");
    for (std::size_t id = 1; id <= kMsmSignals; ++id) {
        const Count received = in_[system].cells[id];
        const Count answered = out_[system].cells[id];
        if (received == 0 && answered == 0)
            continue;
        out.open(signalName(system, id));
        out.add("received_total", received);
        out.add("answered_total", answered);
        out.open("dropped_total");
        out.add(whyDropped(system, id), received - std::min(received, answered));
        out.close();
        out.close();
    }
    out.close();
}

/// Ages against the last epoch, from the reference time of each ephemeris.
void ServiceStatus::tellEphemerides(Json& out, char letter) const {
    const DeployConfig& record = service_.record;
    const EphemerisStore& store = service_.intake.ephemerides;
    Count count = 0;
    double newest = 1e9;
    double oldest = -1e9;
    for (std::size_t i = 0; i < record.satelliteNames.size(); ++i) {
        if (record.satelliteNames[i].front() != letter || store.slotOf[i] < 0)
            continue;
        const auto slot = static_cast<std::size_t>(store.slotOf[i]);
        MjdTime at;
        if (letter == 'R') {
            at = {store.glonass[slot].mjd, store.glonass[slot].sod};
        } else if (const GPSEPH& e = store.kepler[slot]; e.tocMjd != 0) {
            at = wksow2mjd(static_cast<int>(e.week), e.toe + (letter == 'C' ? kBdtOffset : 0.0));
        }
        if (at.mjd == 0)
            continue;
        ++count;
        const double ageS = timdif(record.currentMjd, at.mjd, record.currentSod, at.sod);
        newest = std::min(newest, ageS);
        oldest = std::max(oldest, ageS);
    }
    out.add("ephemeris_count", count);
    if (count > 0 && lastEpochReceivedS_ > 0.0) {
        out.add("newest_ephemeris_age_s", newest);
        out.add("oldest_ephemeris_age_s", oldest);
    }
}

void ServiceStatus::tellSystem(Json& out, std::size_t system) const {
    const auto count = [](std::uint64_t mask) { return static_cast<Count>(std::popcount(mask)); };
    const std::string_view letter = kMsmLetters.substr(system, 1);
    std::map<std::string_view, Count> leftOut;
    std::uint64_t lacking = seen_[system] & ~answered_[system];
    for (; lacking != 0; lacking &= ~std::bit_floor(lacking))
        ++leftOut[whyNot(satelliteOf(system, std::countl_zero(lacking) + 1))];
    out.open(letter);
    out.add("seen_count", count(seen_[system]));
    out.add("answered_count", count(answered_[system]));
    out.counts("left_out_count", leftOut);
    tellEphemerides(out, letter.front());
    tellSignals(out, system);
    out.close();
}

void ServiceStatus::tellSender(Json& out) const {
    const StationInfo& said = service_.intake.sender.said;
    const Service& s = service_;
    out.open("sender");
    if (stationId_ >= 0)
        out.add("station_id", static_cast<Count>(stationId_));
    out.add("antenna", view(said.antdes));
    out.add("antenna_serial", view(said.antsno));
    out.add("receiver", view(said.rectype));
    out.add("firmware", view(said.recver));
    out.add("receiver_serial", view(said.recsno));
    if (s.intake.sender.placed)
        out.add("distance_m", distance(said.pos, s.record.stations.front().xyz));
    out.add("guard_holds", s.intake.displaced && s.record.guard && !s.record.guard->warnOnly);
    out.open("channels");
    for (std::size_t slot = 0; slot < kGlonassSlots; ++slot)
        if (const int channel = s.intake.decoder.nav.glo_fcn[slot]; channel != 0)
            out.add(text("R%02zu_channel", slot + 1), static_cast<double>(channel - 8));
    out.close();
    out.close();
}

std::string ServiceStatus::composed() const {
    Json out;
    out.add("format", "kestrune-status-1");
    out.add("version", KESTRUNE_VERSION);
    out.add("station", std::string_view(service_.record.stations.front().name));
    tellProcess(out);
    tellTraffic(out);
    tellEpochs(out);
    out.open("systems");
    for (std::size_t system = 0; system < kMsmSystems.size(); ++system)
        if (contains(service_.record.systems, kMsmLetters.substr(system, 1)) || seen_[system] != 0)
            tellSystem(out, system);
    out.close();
    tellSender(out);
    if (const auto leaps = service_.intake.leapSeconds.table.rows(); !leaps.empty()) {
        out.open("leap_seconds");
        out.add("file_end_unix_s", static_cast<double>(mjd2time(leaps.back().mjd, 0.0)));
        out.close();
    }
    out.open("log");
    out.add("dropped_lines_total", droppedLines());
    out.close();
    return out.text() + "\n";
}
