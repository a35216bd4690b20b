#include "ctl/simulate/Simulate.h"

#include "base/Findings.h"
#include "ctl/report/Report.h"
#include "ctl/simulate/Calendar.h"
#include "ctl/simulate/Deployment.h"
#include "ctl/simulate/Judgement.h"
#include "ctl/simulate/Simulator.h"
#include "ctl/simulate/Summary.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <csignal>
#include <fstream>
#include <iostream>
#include <unistd.h>

namespace ctl::simulate {

namespace {

constexpr std::size_t kMostJudgedByValue = 16; // endpoints
constexpr double kMostOffsetM = 5000;
constexpr double kHalfDayS = 43200 - 3600; // with room
constexpr double kHalfWeekS = 302400 - 3600;
constexpr std::string_view kAllSystems = "GRECJS";

volatile std::sig_atomic_t stopAsked = 0;

/// Bad words: the option, what was given, what is possible.
[[noreturn]] void refuse(const char* option, const std::string& given, const std::string& want) {
    throw BadArgument(option, "\"" + given + "\": " + want);
}

/// Finite numbers between commas; nothing where the text is anything else.
std::vector<double> numbers(const std::string& list) {
    std::vector<double> out;
    const char* at = list.data();
    const char* const end = at + list.size();
    for (;;) {
        double value = 0;
        const auto [next, error] = std::from_chars(at, end, value);
        if (error != std::errc{} || !std::isfinite(value) || (next < end && *next != ','))
            return {};
        out.push_back(value);
        if (next == end)
            return out;
        at = next + 1;
    }
}

double numberOf(const char* option, const std::string& given, double least, double most) {
    const std::vector<double> n = numbers(given);
    if (n.size() != 1 || n[0] < least || n[0] > most)
        refuse(option, given, text("a number from %.10g to %.10g", least, most));
    return n[0];
}

/// Latitude and longitude (degrees) and height (m), or X, Y, Z (m); to 0.1 mm, as messages carry
/// it.
ref::Vec3 siteOf(const std::string& given) {
    const std::vector<double> n = numbers(given);
    if (n.size() != 3)
        refuse("--site", given, "three numbers: LAT,LON,HEIGHT in degrees and metres, or X,Y,Z");
    ref::Vec3 site{n[0], n[1], n[2]};
    constexpr double degree = 3.14159265358979323846 / 180;
    if (std::abs(n[0]) <= 90 && std::abs(n[1]) <= 360 && std::abs(n[2]) < 20000)
        site = ref::toXyz({n[0] * degree, n[1] * degree, n[2]});
    if (norm(site) < 6.3e6 || norm(site) > 6.5e6)
        refuse("--site", given, "not near the surface of the Earth");
    if (std::hypot(site[0], site[1]) < 100)
        refuse("--site", given, "within 100 m of a pole, where no direction is north");
    for (double& x : site.v) {
        x = std::round(x * 1e4) / 1e4;
        if (x == 0) // which the service would take as absent
            x = 1e-4;
    }
    return site;
}

int msmOf(const std::string& given) {
    if (given == "legacy")
        return 0;
    if (given.size() == 1 && given[0] >= '4' && given[0] <= '7')
        return given[0] - '0';
    refuse("--msm", given, "one of 4, 5, 6, 7, legacy");
}

std::string systemsOf(const std::string& given, int msm) {
    std::string out;
    for (const char c : given) {
        if (kAllSystems.find(c) == std::string_view::npos || out.find(c) != std::string::npos)
            refuse("--systems", given, "letters of G R E C J S, each once");
        if (msm != 0 || c == 'G' || c == 'R') // legacy messages carry these two
            out += c;
    }
    if (out.empty())
        refuse("--systems", given, "no system is left for these messages");
    return out;
}

/// 0 = as fast as it goes.
double speedOf(const std::string& given) {
    if (given == "max")
        return 0;
    return numberOf("--speed", given, 1, 1e6);
}

Split splitOf(const std::string& given) {
    if (given.empty())
        return {};
    if (given == "random")
        return {0, true};
    return {static_cast<std::size_t>(numberOf("--split", given, 1, 1e6)), false};
}

EphemerisOrder orderOf(const std::string& given) {
    return given == "late"          ? EphemerisOrder::late
           : given == "interleaved" ? EphemerisOrder::interleaved
                                    : EphemerisOrder::before;
}

FaultPlan faultsOf(const Arguments& w) {
    try {
        return {w.faults, w.seed};
    } catch (const std::invalid_argument& e) {
        throw BadArgument("--fault", e.what());
    }
}

Quirks quirksOf(const Arguments& w) {
    if (!w.quirks.empty() && !w.play.empty())
        refuse("--quirk", w.quirks.front(), "a recording is sent as it is");
    if (std::find(w.quirks.begin(), w.quirks.end(), "sbas-day") != w.quirks.end() &&
        w.systems.find('S') == std::string::npos)
        refuse("--quirk", "sbas-day", "needs S in --systems");
    try {
        return Quirks(w.quirks);
    } catch (const std::invalid_argument& e) {
        throw BadArgument("--quirk", e.what());
    }
}

/// The answers of the endpoints, which repeat in that order.
std::vector<ref::Answer> answersOf(const std::string& given) {
    if (given == "both")
        return {ref::Answer::specified, ref::Answer::complete};
    return {given == "complete" ? ref::Answer::complete : ref::Answer::specified};
}

std::optional<ref::Vec3> offsetOf(const std::string& given) {
    if (given.empty())
        return std::nullopt;
    const std::vector<double> n = numbers(given);
    if (n.size() != 3 || std::hypot(n[0], n[1], n[2]) > kMostOffsetM)
        refuse("--offset", given, "three numbers, EAST,NORTH,UP in metres, together at most 5000");
    return ref::Vec3{n[0], n[1], n[2]};
}

/// The command line understood.
struct Run {
    StationOptions station;
    FaultPlan faults;
    Pace pace;
    Split split;
    std::optional<ref::GpsTime> clock; // where the service's clock is to start
    std::vector<ref::Answer> answers;
    ref::Output output = ref::Output::reply;
    std::optional<ref::Vec3> offsetM;
    bool rovers = false;            // who get what comes back
    std::set<std::string> recorded; // satellites with ephemerides in a recording
    Known known;

    bool specified() const {
        return std::find(answers.begin(), answers.end(), ref::Answer::specified) != answers.end();
    }
};

void plan(Run& run, const Arguments& w) {
    run.station.msm = msmOf(w.msm);
    run.station.siteM = siteOf(w.site);
    run.station.systems = systemsOf(w.systems, run.station.msm);
    run.station.tracking = w.tracking;
    run.station.rateHz = numberOf("--rate", w.rate, 0.1, 50);
    run.station.seed = w.seed;
    run.station.noise = w.noise;
    run.station.ephemerides = orderOf(w.ephemerides);
    run.station.quirks = quirksOf(w);
    run.faults = faultsOf(w);
    run.station.silentAtStart = run.faults.asked(Fault::noEphemerides);
    if (run.station.silentAtStart && w.play.empty())
        ++run.faults.done[Fault::noEphemerides];
    run.answers = answersOf(w.answer);
    const bool plain = w.output == "rtcm3" || !w.rovers.empty(); // as casters send it
    run.output = plain ? ref::Output::rtcm3 : ref::Output::reply;
    run.offsetM = offsetOf(w.offset);
    run.rovers = !w.rovers.empty();
    for (std::size_t f = 0; run.rovers && f < kFaultNames.size(); ++f)
        if (run.faults.asked(static_cast<Fault>(f)) && !endsConnection(static_cast<Fault>(f)))
            refuse("--fault", std::string(kFaultNames[f]),
                   "with --rover those alone that end the connection (close, reset, half-close): a "
                   "gateway mends what it can of the others");
    run.split = splitOf(w.split);
    run.pace.speed = speedOf(w.speed);
    run.pace.intervalS = 1 / run.station.rateHz;
    const double durationS = numberOf("--duration", w.duration, 0, 1e9);
    if (durationS > 0) // at least one epoch
        run.pace.epochs = std::max(1L, std::lround(durationS * run.station.rateHz));
    if (w.start == "now") {
        run.station.start = gpsNow();
        run.station.start.sow = std::floor(run.station.start.sow);
        run.pace.followClock = run.pace.speed == 1 && w.play.empty();
    } else {
        run.clock = parseUtc(w.start);
        if (!run.clock)
            refuse("--start", w.start, "now, or UTC as 2026-03-01T12:00:00, from 2017 to 2077");
        run.station.start = *run.clock;
    }
}

ref::Expectation expectationOf(const Run& run, const std::vector<std::string>& satellites,
                               std::size_t endpoint) {
    ref::Expectation e;
    e.answer = run.answers[endpoint % run.answers.size()];
    e.output = run.output;
    e.siteM = run.station.siteM;
    e.offsetM = run.offsetM;
    e.near = run.station.start;
    e.values = run.known.values && endpoint < kMostJudgedByValue;
    e.dayKnown = run.known.day;
    e.siteKnown = run.known.site;
    e.throughCaster = run.rovers;
    // a gateway configures its services by itself
    const auto listed = run.rovers ? satellitesOfEveryStation(e.answer) : satellites;
    e.satellites.insert(listed.begin(), listed.end());
    for (const std::string& sat : listed)
        if (sat[0] == 'R')
            e.channels[std::stoi(sat.substr(1))] = ref::Constellation::channel(sat);
    return e;
}

std::unique_ptr<Source> sourceOf(Run& run, const Arguments& w) {
    if (w.play.empty())
        return std::make_unique<SimulatedStation>(run.station);
    auto recording = std::make_unique<Recording>(w.play, run.station.start);
    run.known.day = run.clock.has_value();
    run.known.site = recording->siteM.has_value();
    // the complete answer follows from what is received
    run.known.values = !run.specified() && run.known.day && run.known.site;
    run.recorded = recording->satellites;
    if (recording->siteM)
        run.station.siteM = *recording->siteM;
    return recording;
}

std::vector<std::string> satellitesOf(const Run& run, const Arguments& w) {
    if (!w.play.empty() && (run.specified() || run.recorded.empty()))
        return satellitesOfEveryStation(run.specified() ? ref::Answer::specified
                                                        : ref::Answer::complete);
    if (!w.play.empty())
        return {run.recorded.begin(), run.recorded.end()};
    std::string systems = run.station.systems;
    std::erase(systems, 'S'); // has no ephemerides, so no place in a deployment
    std::vector<std::string> all = ref::Constellation::satellites(systems);
    if (run.specified()) // which takes the geostationary C59 to C63 for others
        std::erase_if(all, [](const std::string& sat) { return sat >= "C59" && sat <= "C63"; });
    return all;
}

void warnOfClocks(const Run& run, const Arguments& w, Progress& progress) {
    const double simulatedS =
        run.pace.epochs > 0 ? static_cast<double>(run.pace.epochs) * run.pace.intervalS : 1e9;
    const double speed = run.pace.speed > 0 ? run.pace.speed : 1e9;
    const double aheadS = simulatedS * (1 - 1 / speed);
    const bool glonass = run.station.systems.find('R') != std::string::npos;
    if (w.play.empty() && aheadS > (glonass ? kHalfDayS : kHalfWeekS))
        progress.say(
            text("note: the service's clock runs at its own speed. When the stream is half "
                 "a %s ahead of it, times are taken for those of another %s: use "
                 "--duration.",
                 glonass ? "day" : "week", glonass ? "day (GLONASS)" : "week"));
}

/// A file for what is asked for; nothing is opened for an empty path.
std::ofstream opened(const std::string& path) {
    std::ofstream file;
    if (!path.empty())
        file.open(path, std::ios::binary);
    if (!file)
        throw std::runtime_error(path + " cannot be written");
    return file;
}

void closeWritten(std::ofstream& file, const std::string& path) {
    if (file.is_open() && (file.close(), !file))
        throw std::runtime_error(path + " could not be written to its end");
}

Endpoints endpointsOf(const Run& run, const Arguments& w,
                      const std::vector<std::string>& satellites) {
    Endpoints endpoints;
    for (std::size_t i = 0; i < static_cast<std::size_t>(w.stations) * run.answers.size(); ++i)
        endpoints.push_back(std::make_unique<Endpoint>(w.host, w.port + static_cast<int>(i),
                                                       expectationOf(run, satellites, i),
                                                       FaultPlan(w.faults, w.seed + i), run.split));
    return endpoints;
}

void sayWhatIsThere(const Run& run, const Arguments& w, const std::vector<std::string>& satellites,
                    Progress& progress) {
    warnOfClocks(run, w, progress);
    if (w.play.empty() && run.station.msm == 0)
        progress.say("note: legacy messages carry GPS and GLONASS alone");
    if (w.deployment.empty())
        return;
    const auto paths = writeDeployment(
        w.deployment,
        {w.host, w.port, w.stations * static_cast<int>(run.answers.size()), run.station.siteM,
         satellites, run.clock, run.station.start, run.answers, run.output, run.offsetM});
    for (std::size_t i = 0; i < run.answers.size(); ++i)
        progress.say("deployment written; start the service with: Kestrune -mode vrs " +
                     paths[i].string());
}

} // namespace

int runSimulate(const Arguments& w) {
    Run run;
    plan(run, w);
    const int ports = w.stations * static_cast<int>(run.answers.size());
    if (w.port + ports - 1 > 65535)
        refuse("--stations", std::to_string(w.stations), "the ports end at 65535");
    if (run.rovers && w.rovers.size() != static_cast<std::size_t>(ports))
        refuse("--rover", w.rovers.back(), text("one for each of the %d endpoints", ports));
    const auto kind = w.json                       ? Progress::Kind::none
                      : isatty(STDOUT_FILENO) != 0 ? Progress::Kind::moving
                                                   : Progress::Kind::lines;
    const std::unique_ptr<Source> source = sourceOf(run, w);
    Progress progress(std::cout, kind, run.known);
    const std::vector<std::string> satellites = satellitesOf(run, w);
    Endpoints endpoints = endpointsOf(run, w, satellites); // listening before anyone is told
    sayWhatIsThere(run, w, satellites, progress);
    std::ofstream record = opened(w.record);
    std::ofstream replies = opened(w.replies);
    std::ofstream page = opened(w.report);
    report::Report drawing(run.station.siteM, run.offsetM);
    Endpoint& first = *endpoints.front();
    first.record = w.record.empty() ? nullptr : &record;
    first.replies = w.replies.empty() ? nullptr : &replies;
    first.judge.onEpoch = [&](const ref::EpochResult& r) {
        progress.epoch(r, first.judge.verdict());
        if (page.is_open())
            drawing.epoch(r);
    };
    for (std::size_t i = 0; i < w.rovers.size(); ++i)
        endpoints[i]->hearRover(w.rovers[i]);
    Simulator simulator(*source, endpoints, run.pace, run.faults);
    simulator.onWaiting = [&] {
        progress.say(ports == 1 ? text("waiting for a service on %s:%d", w.host.c_str(), w.port)
                                : text("waiting for services on %s:%d to %d", w.host.c_str(),
                                       w.port, w.port + ports - 1));
    };
    for (const int signal : {SIGINT, SIGTERM})
        std::signal(signal, [](int) { stopAsked = 1; });
    simulator.run(stopAsked);
    progress.end();
    Totals totals = totalsOf(endpoints, simulator.faults, simulator.epochs(), run.known);
    totals.answers = run.answers;
    totals.rovers = run.rovers;
    if (page.is_open())
        page << drawing.page(totals);
    closeWritten(page, w.report);
    closeWritten(record, w.record);
    closeWritten(replies, w.replies);
    std::cout << (w.json ? summaryJson(totals) : summaryText(totals)) << std::flush;
    if (!std::cout)
        throw std::runtime_error("standard output could not be written to its end");
    return exitStatus(judgementOf(totals).answer);
}

} // namespace ctl::simulate
