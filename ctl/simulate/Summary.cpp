#include "ctl/simulate/Summary.h"

#include "base/Findings.h"
#include "ctl/Counted.h"
#include "ctl/simulate/Calendar.h"
#include "ctl/simulate/Judgement.h"

#include <algorithm>
#include <cjson/cJSON.h>
#include <cmath>
#include <sys/ioctl.h>
#include <unistd.h>

namespace ctl::simulate {

namespace {

constexpr std::size_t kMostFaultsShown = 20;
constexpr std::size_t kMostGapsShown = 200;
constexpr std::size_t kDateLength = 11; // "2026-03-01 "

template <class Map> void addCounts(Map& sum, const Map& counts) {
    for (const auto& [key, n] : counts)
        sum[key] += n;
}

void addSatellite(ref::SatelliteTally& sum, const ref::SatelliteTally& s) {
    sum.due += s.due;
    for (const auto& [what, w] : s.wrong) {
        ref::SatelliteTally::Wrong& to = sum.wrong[what];
        to.epochs += w.epochs;
        to.rangeM = std::max(to.rangeM, w.rangeM);
        to.phaseM = std::max(to.phaseM, w.phaseM);
        to.rateMps = std::max(to.rateMps, w.rateMps);
    }
}

void addPosition(ref::PositionTally& sum, const ref::PositionTally& p) {
    const int wrong = sum.wrong + p.wrong;
    if (p.awayM >= sum.awayM)
        sum = p;
    sum.wrong = wrong;
}

void addWorst(std::map<char, ref::Worst>& sum, const std::map<char, ref::Worst>& worst) {
    for (const auto& [system, w] : worst) {
        ref::Worst& s = sum[system];
        s.rangeM = std::max(s.rangeM, w.rangeM);
        s.phaseM = std::max(s.phaseM, w.phaseM);
        s.rateMps = std::max(s.rateMps, w.rateMps);
        s.bounds = {std::max(s.bounds.rangeHalfStepM, w.bounds.rangeHalfStepM),
                    std::max(s.bounds.phaseHalfStepM, w.bounds.phaseHalfStepM),
                    std::max(s.bounds.rangeM, w.bounds.rangeM),
                    std::max(s.bounds.phaseM, w.bounds.phaseM)};
        s.cells += w.cells;
    }
}

void addVerdict(ref::Verdict& sum, const ref::Verdict& v) {
    sum.stream.ended += v.stream.ended;
    sum.stream.unended += v.stream.unended;
    sum.stream.ephemerides += v.stream.ephemerides;
    sum.stream.timely += v.stream.timely;
    addCounts(sum.stream.cells, v.stream.cells);
    sum.ended += v.ended;
    sum.taken += v.taken;
    sum.others += v.others;
    sum.due += v.due;
    sum.unfinished += v.unfinished;
    sum.replies += v.replies;
    sum.forwarded += v.forwarded;
    sum.missing += v.missing;
    sum.gaps.insert(sum.gaps.end(), v.gaps.begin(), v.gaps.end());
    sum.cells += v.cells;
    sum.wrong += v.wrong;
    addCounts(sum.signals, v.signals);
    addCounts(sum.fates, v.fates);
    addCounts(sum.bytes, v.bytes);
    addCounts(sum.troubles, v.troubles);
    addCounts(sum.missingTypes, v.missingTypes);
    for (const auto& [type, e] : v.otherEpoch)
        sum.otherEpoch[type] = {sum.otherEpoch[type].first + e.first, e.second};
    addPosition(sum.position, v.position);
    for (const auto& [sat, tally] : v.satellites)
        addSatellite(sum.satellites[sat], tally);
    addWorst(sum.worst, v.worst);
    sum.delaysS.insert(sum.delaysS.end(), v.delaysS.begin(), v.delaysS.end());
    sum.faults.insert(sum.faults.end(), v.faults.begin(), v.faults.end());
}

long observationsSent(const ref::Verdict& v) {
    long sum = 0;
    for (const auto& [signal, n] : v.stream.cells)
        sum += n;
    return sum;
}

/// Signals of the stream that no reply has, and what is missing of the others.
std::string lostSignals(const ref::Verdict& v) {
    std::string whole;
    long others = 0;
    for (const char system : kStreamSystems) {
        std::string mine;
        for (const auto& [signal, sent] : v.stream.cells) {
            const auto came = v.signals.find(signal);
            if (signal[0] != system)
                continue;
            if (came == v.signals.end())
                mine += (mine.empty() ? std::string(systemName(system)) + " " : ", ") +
                        codeOf(signal) + text(" %ld", sent);
            else
                others += std::max(0L, sent - came->second);
        }
        whole += mine.empty() ? "" : mine + "; ";
    }
    return (whole.empty() ? "none; " : whole) + text("%ld observations of others", others);
}

/// What each answer kept of the stream, by system.
std::string keptText(const Totals& t) {
    std::string out;
    for (const auto& [answer, kept] : t.kept)
        for (const char system : kStreamSystems) {
            const auto it = kept.systems.find(system);
            if (it == kept.systems.end())
                continue;
            const ref::CellTally& c = it->second;
            out += text("  %-12s %-8s %ld observations received, %ld of satellites that can be "
                        "answered, %ld kept\n",
                        name(answer), systemName(system), c.received, c.answerable, c.kept);
        }
    return out;
}

/// The largest differences from the truth; the complete answer's messages have steps of their own.
std::string worstText(const std::map<char, ref::Worst>& worst, ref::Answer answer,
                      const std::string& whose) {
    std::string out;
    for (const char system : kSimulatedSystems) {
        const auto it = worst.find(system);
        if (it == worst.end())
            continue;
        const ref::Worst& w = it->second;
        out +=
            text("  %-12s %d cells; at most %.2f mm of range and %.3f mm of phase from the truth",
                 (systemName(system) + whose).c_str(), w.cells, w.rangeM * 1e3, w.phaseM * 1e3);
        if (answer == ref::Answer::complete)
            out += text(" (of %.2f and %.3f); %.2f mm/s of rate (of %.1f)", w.bounds.rangeM * 1e3,
                        w.bounds.phaseM * 1e3, w.rateMps * 1e3, ref::kRateBoundMps * 1e3);
        out += "\n";
    }
    return out;
}

bool answeredBy(const Totals& t, ref::Answer answer) {
    return std::find(t.answers.begin(), t.answers.end(), answer) != t.answers.end();
}

/// How often they connected, and what they missed.
std::string roversText(const Totals& t) {
    std::string out =
        text("  rovers       %s\n", counted(t.roverConnections, "connection").c_str());
    const std::vector<ref::Gap>& gaps = t.verdict.gaps;
    const std::size_t shown = std::min(gaps.size(), kMostGapsShown);
    for (std::size_t i = 0; i < shown; ++i)
        out +=
            text("  missed       %s  %s\n", utcText(gaps[i].from, Fraction::milliseconds).c_str(),
                 missedText(gaps[i]).c_str());
    if (gaps.size() > shown)
        out += text("  missed       in %zu more gaps\n", gaps.size() - shown);
    return out;
}

std::uint64_t bytesReceived(const ref::Verdict& v) {
    std::uint64_t sum = 0;
    for (const auto& [type, n] : v.bytes)
        sum += n;
    return sum;
}

/// Columns of the terminal that standard output is.
std::size_t terminalWidth() {
    winsize size{};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
    return known ? size.ws_col : 80;
}

std::string milliseconds(double s) {
    return text("%.2f ms", s * 1e3);
}

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

cJSON* child(cJSON* parent, const char* name) {
    return cJSON_AddObjectToObject(parent, name);
}

} // namespace

const char* systemName(char system) {
    switch (system) {
    case 'G':
        return "GPS";
    case 'R':
        return "GLONASS";
    case 'E':
        return "Galileo";
    case 'C':
        return "BeiDou";
    case 'J':
        return "QZSS";
    case 'S':
        return "SBAS";
    case 'I':
        return "NavIC";
    default:
        return "?";
    }
}

const char* name(ref::Answer answer) {
    return answer == ref::Answer::complete ? "complete" : "specified";
}

std::string codeOf(const std::string& signal) {
    return signal.size() > 1 ? signal.substr(1) : "unassigned";
}

std::string missedText(const ref::Gap& gap) {
    return counted(gap.epochs, "epoch") +
           (gap.frames > 0 ? " and " + counted(gap.frames, "forwarded frame") : "");
}

double delayAt(std::vector<float> delaysS, double part) {
    if (delaysS.empty())
        return 0;
    const auto at =
        std::min(delaysS.size() - 1,
                 static_cast<std::size_t>(std::floor(part * static_cast<double>(delaysS.size()))));
    std::nth_element(delaysS.begin(), delaysS.begin() + static_cast<std::ptrdiff_t>(at),
                     delaysS.end());
    return static_cast<double>(delaysS[at]);
}

void Progress::epoch(const ref::EpochResult& result, const ref::Verdict& soFar) {
    if (kind_ == Kind::none)
        return;
    std::map<char, int> answered;
    for (const auto& s : result.satellites)
        if (s.expected.fate == ref::Fate::answered)
            ++answered[s.expected.sat[0]];
    std::string systems;
    for (const char system : kSimulatedSystems)
        if (answered.contains(system))
            systems += text(" %c%d", system, answered[system]);
    const std::string delay = milliseconds(result.delayS);
    std::string line;
    if (kind_ == Kind::lines) {
        line = text("%s %s  reply %zu bytes after %s",
                    utcText(result.time, Fraction::milliseconds)
                        .substr(known_.day ? 0 : kDateLength)
                        .c_str(),
                    systems.c_str(), result.bytes, delay.c_str());
        if (known_.values)
            line += text("  worst so far %.1f mm range, %.2f mm phase", soFar.worstRangeM() * 1e3,
                         soFar.worstPhaseM() * 1e3);
        out_ << line << (soFar.wrong > 0 ? "  WRONG" : "") << "\n";
        return;
    }
    line = text("%s%s  %zu B after %s",
                utcText(result.time, Fraction::none).substr(kDateLength).c_str(), systems.c_str(),
                result.bytes, delay.c_str());
    if (known_.values)
        line +=
            text("  worst %.1f mm, %.2f mm", soFar.worstRangeM() * 1e3, soFar.worstPhaseM() * 1e3);
    if (soFar.wrong > 0)
        line += text("  %d WRONG", soFar.wrong);
    out_ << "\r\033[K" << line.substr(0, terminalWidth() - 1) << std::flush;
    open_ = true;
}

void Progress::say(const std::string& line) {
    if (kind_ == Kind::none)
        return;
    end();
    out_ << line << std::endl;
}

void Progress::end() {
    if (open_)
        out_ << "\n";
    open_ = false;
}

Totals totalsOf(const std::vector<std::unique_ptr<Endpoint>>& endpoints, const FaultPlan& station,
                long epochs, Known known) {
    Totals t;
    t.epochs = epochs;
    t.known = known;
    t.endpoints = static_cast<int>(endpoints.size());
    t.faults = station.done;
    for (const auto& e : endpoints) {
        t.given += e->epochs;
        t.connections += e->connections;
        t.roverConnections += e->roverConnections;
        t.bytesSent += e->bytesSent;
        const ref::Verdict& v = e->judge.verdict();
        addVerdict(t.verdict, v);
        Kept& kept = t.kept[e->judge.answer()];
        for (const auto& [system, tally] : v.tally) {
            ref::CellTally& sum = kept.systems[system];
            sum.received += tally.received;
            sum.answerable += tally.answerable;
            sum.kept += tally.kept;
        }
        addCounts(kept.sent, v.stream.cells);
        addCounts(kept.signals, v.signals);
        addWorst(kept.worst, v.worst);
        t.silent += v.observations() == 0 ? 1 : 0;
        for (const auto& [fault, n] : e->plan.done)
            t.faults[fault] += n;
    }
    return t;
}

std::string summaryText(const Totals& t) {
    const ref::Verdict& v = t.verdict;
    const Judgement judgement = judgementOf(t);
    std::string out = text("\n%ld epochs made, %ld sent on %d connection%s, %llu bytes\n", t.epochs,
                           t.given, t.connections, t.connections == 1 ? "" : "s",
                           static_cast<unsigned long long>(t.bytesSent));
    out += text("  %s    %d replies and %d forwarded frames, %llu bytes; %d missing\n",
                t.rovers ? "at rovers" : "came back", v.replies, v.forwarded,
                static_cast<unsigned long long>(bytesReceived(v)), v.missing);
    if (t.rovers)
        out += roversText(t);
    out += text("  stream       %ld epochs, %ld observations; %d observations in the replies\n",
                v.stream.ended + v.stream.unended, observationsSent(v), v.observations());
    if (v.observations() > 0)
        out += "  lost signals " + lostSignals(v) + "\n";
    if (t.known.values) {
        out += "  satellites  ";
        for (const auto& [fate, n] : v.fates)
            out +=
                text("%s %s %d", &fate == &v.fates.begin()->first ? "" : ",", ref::name(fate), n);
        out += "\n";
        out += keptText(t);
        if (t.answers.size() == 1)
            out += worstText(v.worst, t.answers.front(), "");
        else
            for (const auto& [answer, kept] : t.kept)
                out += worstText(kept.worst, answer, std::string(", ") + name(answer));
        if (answeredBy(t, ref::Answer::specified))
            out += text("  bounds       %.2f mm of range, %.3f mm of phase (half a step of the "
                        "message, and 0.1 mm)\n",
                        ref::rangeBoundM('G') * 1e3, ref::phaseBoundM('G') * 1e3);
        if (answeredBy(t, ref::Answer::specified) && v.worst.contains('J'))
            out += text(
                "               QZSS %.1f mm more per 300 m, for its specified rotation rate\n",
                ref::kQzssMoreM * 1e3);
    } else {
        out += "  checked      form, order and completeness; values are not known\n";
    }
    if (!v.delaysS.empty())
        out += text("  delay        median %s, 99 of 100 within %s, worst %s\n",
                    milliseconds(delayAt(v.delaysS, 0.5)).c_str(),
                    milliseconds(delayAt(v.delaysS, 0.99)).c_str(),
                    milliseconds(delayAt(v.delaysS, 1.0)).c_str());
    if (!t.faults.empty()) {
        out += "  made wrong  ";
        for (const auto& [fault, n] : t.faults)
            out += text(" %s %d", std::string(name(fault)).c_str(), n);
        out += "\n";
    }
    for (const std::string& remark : judgement.remarks)
        out += "  note: " + remark + "\n";
    for (const std::string& cause : judgement.causes)
        out += "  CAUSE: " + cause + "\n";
    const std::size_t shown = std::min(v.faults.size(), kMostFaultsShown);
    for (std::size_t i = 0; i < shown; ++i)
        out += "  WRONG: " + v.faults[i] + "\n";
    if (v.wrong > static_cast<int>(shown))
        out += text("  and %d more\n", v.wrong - static_cast<int>(shown));
    return out + judgement.words + "\n";
}

std::string summaryJson(const Totals& t) {
    const ref::Verdict& v = t.verdict;
    const Judgement judgement = judgementOf(t);
    const Json root(cJSON_CreateObject(), cJSON_Delete);
    cJSON* const o = root.get();
    const auto lines = [o](const char* key, const std::vector<std::string>& words) {
        cJSON* const list = cJSON_AddArrayToObject(o, key);
        for (const std::string& w : words)
            cJSON_AddItemToArray(list, cJSON_CreateString(w.c_str()));
    };
    cJSON_AddStringToObject(o, "answer", name(judgement.answer));
    cJSON_AddStringToObject(o, "words", judgement.words.c_str());
    lines("causes", judgement.causes);
    lines("remarks", judgement.remarks);
    const auto number = [](cJSON* to, const std::string& key, double value) {
        cJSON_AddNumberToObject(to, key.c_str(), value);
    };
    number(o, "epochs", static_cast<double>(t.epochs));
    number(o, "epochsSent", static_cast<double>(t.given));
    number(o, "connections", t.connections);
    number(o, "bytesSent", static_cast<double>(t.bytesSent));
    number(o, "bytesReceived", static_cast<double>(bytesReceived(v)));
    number(o, "replies", v.replies);
    number(o, "forwarded", v.forwarded);
    number(o, "missing", v.missing);
    cJSON* const gaps = cJSON_AddArrayToObject(o, "gaps");
    for (const ref::Gap& g : v.gaps) {
        cJSON* const gap = cJSON_CreateObject();
        cJSON_AddItemToArray(gaps, gap);
        cJSON_AddStringToObject(gap, "from", utcText(g.from, Fraction::milliseconds).c_str());
        number(gap, "epochs", g.epochs);
        number(gap, "frames", g.frames);
    }
    number(o, "roverConnections", t.roverConnections);
    number(o, "wrong", static_cast<double>(judgement.wrong));
    cJSON_AddBoolToObject(o, "valuesChecked", t.known.values);
    cJSON* const stream = child(o, "stream");
    number(stream, "epochs", static_cast<double>(v.stream.ended + v.stream.unended));
    number(stream, "epochsWithoutEnd", static_cast<double>(v.stream.unended));
    number(stream, "repliesDue", static_cast<double>(v.due));
    number(stream, "ephemerides", static_cast<double>(v.stream.ephemerides));
    number(stream, "observations", static_cast<double>(observationsSent(v)));
    cJSON* const sent = child(stream, "cells");
    for (const auto& [signal, n] : v.stream.cells)
        number(sent, signal, static_cast<double>(n));
    number(o, "observations", v.observations());
    cJSON* const systems = child(o, "systems");
    for (const auto& [system, w] : v.worst) {
        cJSON* const s = child(systems, systemName(system));
        number(s, "cells", w.cells);
        number(s, "worstRangeMm", w.rangeM * 1e3);
        number(s, "worstPhaseMm", w.phaseM * 1e3);
        number(s, "worstRateMmps", w.rateMps * 1e3);
    }
    cJSON* const kept = child(o, "kept");
    for (const auto& [answer, k] : t.kept) {
        cJSON* const byAnswer = child(kept, name(answer));
        for (const auto& [system, c] : k.systems) {
            cJSON* const s = child(byAnswer, systemName(system));
            number(s, "received", static_cast<double>(c.received));
            number(s, "answerable", static_cast<double>(c.answerable));
            number(s, "kept", static_cast<double>(c.kept));
        }
    }
    cJSON* const signals = child(o, "cells");
    for (const auto& [signal, n] : v.signals)
        number(signals, signal, n);
    cJSON* const fates = child(o, "satellites");
    for (const auto& [fate, n] : v.fates)
        number(fates, ref::name(fate), n);
    cJSON* const types = child(o, "bytesByType");
    for (const auto& [type, n] : v.bytes)
        number(types, type == 0 ? "replyFrame" : std::to_string(type), static_cast<double>(n));
    cJSON* const delay = child(o, "delayMs");
    number(delay, "median", delayAt(v.delaysS, 0.5) * 1e3);
    number(delay, "p99", delayAt(v.delaysS, 0.99) * 1e3);
    number(delay, "worst", delayAt(v.delaysS, 1.0) * 1e3);
    cJSON* const faults = child(o, "faultsMade");
    for (const auto& [fault, n] : t.faults)
        number(faults, std::string(name(fault)), n);
    lines("faultsFound", v.faults);
    const std::unique_ptr<char, decltype(&cJSON_free)> printed(cJSON_PrintUnformatted(o),
                                                               cJSON_free);
    return printed ? std::string(printed.get()) + "\n" : "";
}

} // namespace ctl::simulate
