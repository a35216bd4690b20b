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
#include <array>
#include <charconv>
#include <cmath>
#include <memory>
#include <numeric>
#include <unistd.h>
#include <vector>

// What the file of the status says. A value that is not known is left out.

/// Tells the status into an object of JSON that holds the last one: from second to second few
/// values change, and hardly ever what there is. Names come in the same order each time. A number
/// is text here, in place: the library would print it twice and read it once.
class ServiceStatus::Json {
public:
    explicit Json(cJSON* root) : path_{{root, root->child}} {}
    ~Json() { dropRest(); }
    Json(const Json&) = delete;
    Json& operator=(const Json&) = delete;

    void open(std::string_view name) {
        cJSON* object = next(name);
        if (!object)
            object = cJSON_AddObjectToObject(path_.back().object, key(name));
        path_.push_back({object, object->child});
    }
    void close() {
        dropRest();
        path_.pop_back();
    }
    void add(std::string_view name, double value) {
        if (std::isfinite(value))
            addNumber(name, value);
    }
    void add(std::string_view name, Count n) { addNumber(name, n); }
    void add(std::string_view name, bool value) { addRaw(name, value ? "true" : "false"); }
    /// A text; a '?' stands for what is no character of ASCII. An empty one is left out.
    void add(std::string_view name, std::string_view value) {
        if (value.empty())
            return;
        text_ = value;
        std::ranges::replace_if(
            text_, [](char c) { return c < ' ' || c > '~'; }, '?');
        if (cJSON* const item = next(name); !item)
            cJSON_AddStringToObject(path_.back().object, key(name), text_.c_str());
        else if (text_ != item->valuestring)
            cJSON_SetValuestring(item, text_.c_str());
    }
    void add(std::string_view name, const char* value) { add(name, std::string_view(value)); }
    /// Counts by a name.
    template <class Counts> void counts(std::string_view name, const Counts& list) {
        open(name);
        for (const auto& [what, n] : list)
            add(what, Count{n});
        close();
    }

private:
    static constexpr std::string_view kRoom = "                               "; // of a number
    struct Level {
        cJSON* object;
        cJSON* next; // of the last status, what comes next; null: nothing
    };

    /// The value of that name, where it comes next. Null where it must be made; then what follows
    /// is made, too.
    cJSON* next(std::string_view name) {
        Level& level = path_.back();
        if (level.next && name == level.next->string)
            return std::exchange(level.next, level.next->next);
        dropRest();
        return nullptr;
    }
    void dropRest() {
        for (Level& level = path_.back(); level.next;)
            cJSON_Delete(cJSON_DetachItemViaPointer(level.object,
                                                    std::exchange(level.next, level.next->next)));
    }
    void addRaw(std::string_view name, std::string_view value) {
        cJSON* item = next(name);
        if (!item)
            item = cJSON_AddRawToObject(path_.back().object, key(name), kRoom.data());
        item->valuestring[value.copy(item->valuestring, kRoom.size())] = '\0';
    }
    void addNumber(std::string_view name, auto value) {
        std::array<char, kRoom.size()> number;
        const auto end = std::to_chars(number.data(), number.data() + number.size(), value);
        addRaw(name, {number.data(), end.ptr});
    }
    const char* key(std::string_view name) { return (key_ = name).c_str(); }

    std::vector<Level> path_; // open objects
    std::string key_, text_;
};

namespace {

double unixSeconds(GTime t) {
    return static_cast<double>(t.time) + t.sec;
}

/// A number as a name: a whole one, or one that is short in decimals.
class NumberText {
public:
    explicit NumberText(int n) { take(std::to_chars(begin(), end(), n)); }
    explicit NumberText(double x) {
        take(std::to_chars(begin(), end(), x, std::chars_format::fixed));
    }
    operator std::string_view() const { return {text_.data(), size_}; }

private:
    char* begin() { return text_.data(); }
    char* end() { return text_.data() + text_.size(); }
    void take(std::to_chars_result written) {
        size_ = static_cast<std::size_t>(written.ptr - text_.data());
    }

    std::array<char, 12> text_;
    std::size_t size_;
};

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

void ServiceStatus::tellMessages(Json& out, const ByType& messages) {
    out.open("messages_total");
    for (const auto& [type, m] : messages)
        out.add(NumberText(type), m.frames);
    out.close();
    out.open("message_bytes_total");
    for (const auto& [type, m] : messages)
        out.add(NumberText(type), m.bytes);
    out.close();
}

void ServiceStatus::tellTraffic(Json& out) const {
    out.open("input");
    out.add("received_bytes_total", bytesIn_);
    out.add("skipped_bytes_total", skippedBytes_);
    out.add("wrong_check_words_total", wrongCheckWords_);
    tellMessages(out, messagesIn_);
    out.open("refused_messages_total");
    for (const auto& [type, n] : refused_)
        out.add(NumberText(type), n);
    out.close();
    out.add("other_station_messages_total", ofOtherStation_);
    out.close();
    out.open("output");
    out.add("sent_bytes_total", bytesOut_);
    out.add("answers_total", answers_);
    out.add("dropped_answers_total", fates_[static_cast<std::size_t>(Fate::notSent)]);
    out.add("forwarded_frames_total", passedOn_);
    out.add("dropped_frames_total", framesDropped_);
    tellMessages(out, messagesOut_);
    out.open("delay");
    out.add("sum_s", delaySumS_);
    out.add("answers_total", std::accumulate(delays_.begin(), delays_.end(), Count{0}));
    out.open("at_most_total");
    Count within = 0;
    for (std::size_t i = 0; i < kDelayBoundsS.size(); ++i)
        out.add(NumberText(kDelayBoundsS[i]), within += delays_[i]);
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
                          std::pair{"too large", fate(Fate::tooLarge)},
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
    if (lastFate_ != Fate::answered && lastFate_ != Fate::noSatellite)
        return "epoch not answered";
    const auto i = static_cast<std::size_t>(index);
    switch (lastReasons_[i]) {
    case Reason::noEphemeris:
        return "no ephemeris";
    case Reason::oldEphemeris:
        return "old ephemeris";
    case Reason::noOrbit:
        return "no orbit";
    default: // with an orbit it has a range, and is moved unless it is low
        return service_.station.reference.referenceRange[i] != 0.0 && !moved(i) ? "low"
                                                                                : "no signal";
    }
}

/// Whether the last epoch has observations of a satellite at the virtual station.
bool ServiceStatus::moved(std::size_t index) const {
    const VirtualStation& station = service_.station;
    if (service_.record.answering.complete)
        return station.changes[service_.record.satelliteNumber[index]].has_value();
    return std::ranges::find(station.answer.obs.written(), index) !=
           station.answer.obs.written().end();
}

void ServiceStatus::tellSignals(Json& out, std::size_t system) const {
    out.open("signals");
    for (std::size_t id = 1; id <= kMsmSignals; ++id) {
        const SignalCount& counts = tally_.count(system, id);
        if (counts.received == 0 && counts.answered == 0)
            continue;
        out.open(signalName(system, id));
        out.add("received_total", counts.received);
        out.add("answered_total", counts.answered);
        out.open("dropped_total");
        for (std::size_t why = 0; why < kDroppedTexts.size(); ++why)
            if (counts.dropped[why] != 0)
                out.add(kDroppedTexts[why], counts.dropped[why]);
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

void ServiceStatus::tellSystem(Json& out, std::size_t system, std::uint64_t seen,
                               std::uint64_t answered) const {
    const auto count = [](std::uint64_t mask) { return static_cast<Count>(std::popcount(mask)); };
    const std::string_view letter = kMsmLetters.substr(system, 1);
    std::map<std::string_view, Count> leftOut;
    std::uint64_t lacking = seen & ~answered;
    for (; lacking != 0; lacking &= ~std::bit_floor(lacking))
        ++leftOut[whyNot(satelliteOf(system, std::countl_zero(lacking) + 1))];
    out.open(letter);
    out.add("seen_count", count(seen));
    out.add("answered_count", count(answered));
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
            out.add(satno2id(satno(kGlonass, static_cast<int>(slot) + 1)) + "_channel",
                    static_cast<double>(channel - 8));
    out.close();
    out.close();
}

ServiceStatus::Document::Document() : root(cJSON_CreateObject(), cJSON_Delete) {}

std::string ServiceStatus::composed() {
    tell(Json(document_.root.get()));
    constexpr int usual = 8192; // bytes
    const std::unique_ptr<char, decltype(&cJSON_free)> printed(
        cJSON_PrintBuffered(document_.root.get(), usual, /*format=*/0), cJSON_free);
    return std::string(printed ? printed.get() : "") + "\n";
}

void ServiceStatus::tell(Json&& out) const {
    out.add("format", "kestrune-status-1");
    out.add("version", KESTRUNE_VERSION);
    out.add("station", std::string_view(service_.record.stations.front().name));
    tellProcess(out);
    tellTraffic(out);
    tellEpochs(out);
    out.open("systems");
    const Satellites seen = tally_.seen();
    const Satellites answered = tally_.answered();
    for (std::size_t system = 0; system < kMsmSystems.size(); ++system)
        if (contains(service_.record.systems, kMsmLetters.substr(system, 1)) || seen[system] != 0)
            tellSystem(out, system, seen[system], answered[system]);
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
}
