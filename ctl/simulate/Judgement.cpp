#include "ctl/simulate/Judgement.h"

#include "base/Findings.h"
#include "ctl/Counted.h"

#include <algorithm>
#include <cmath>

namespace ctl::simulate {

namespace {

using ref::Trouble;

constexpr std::size_t kMostNames = 6;     // of satellites in a line
constexpr double kOtherPlaceM = 5;        // the antenna's reference point may be another one
constexpr std::size_t kLeastOfSystem = 2; // satellites that stand for their whole system

// With three digits or so.
std::string lengthText(double m) {
    return m >= 1000  ? text("%.1f km", m / 1000)
           : m >= 0.1 ? text("%.2f m", m)
                      : text("%.1f mm", m * 1000);
}

std::string xyzText(const ref::Vec3& m) {
    return text("%.4f %.4f %.4f", m[0], m[1], m[2]);
}

/// Satellites that share a trouble.
struct Group {
    std::vector<std::string> satellites;
    bool always = true; // in every epoch that was to carry them
    int most = 0;       // epochs of the one that has it most
    int of = 0;         // the epochs that were to carry that one
    double rangeM = 0, phaseM = 0, rateMps = 0;
};

Group groupOf(const ref::Verdict& v, Trouble what) {
    Group g;
    for (const auto& [sat, tally] : v.satellites) {
        const auto it = tally.wrong.find(what);
        if (it == tally.wrong.end())
            continue;
        const ref::SatelliteTally::Wrong& w = it->second;
        const int of = what == Trouble::cellUnasked ? v.replies : tally.due;
        g.satellites.push_back(sat);
        g.always = g.always && w.epochs >= of;
        if (w.epochs > g.most) {
            g.most = w.epochs;
            g.of = of;
        }
        g.rangeM = std::max(g.rangeM, w.rangeM);
        g.phaseM = std::max(g.phaseM, w.phaseM);
        g.rateMps = std::max(g.rateMps, w.rateMps);
    }
    return g;
}

std::vector<std::string> dueSatellites(const ref::Verdict& v) {
    std::vector<std::string> all;
    for (const auto& [sat, tally] : v.satellites)
        if (tally.due > 0)
            all.push_back(sat);
    return all;
}

// "all 49 satellites", "all 8 of GLONASS", "G05, G07".
std::string who(const std::vector<std::string>& some, const std::vector<std::string>& all) {
    if (some.size() > 1 && std::includes(some.begin(), some.end(), all.begin(), all.end()))
        return text("all %zu satellites", some.size());
    const auto ofSystem = [](const std::vector<std::string>& from, char system) {
        std::vector<std::string> out;
        std::copy_if(from.begin(), from.end(), std::back_inserter(out),
                     [system](const std::string& sat) { return sat[0] == system; });
        return out;
    };
    std::string out;
    std::size_t names = 0;
    const auto add = [&out](const std::string& words) { out += (out.empty() ? "" : ", ") + words; };
    for (const char system : kSimulatedSystems) {
        const std::vector<std::string> mine = ofSystem(some, system);
        if (mine.size() >= kLeastOfSystem && mine == ofSystem(all, system)) {
            add(text("all %zu of %s", mine.size(), systemName(system)));
            continue;
        }
        for (const std::string& sat : mine)
            if (++names <= kMostNames)
                add(sat);
    }
    return out + (names > kMostNames ? text(" and %zu more", names - kMostNames) : "");
}

std::string whoAndWhen(const ref::Verdict& v, const Group& g) {
    std::string out = who(g.satellites, dueSatellites(v));
    if (g.always)
        return out + ", all epochs";
    return out + text(", %s%d of %d epochs", g.satellites.size() > 1 ? "up to " : "", g.most, g.of);
}

std::string placeText(const ref::PositionTally& p) {
    return "1005 is " + lengthText(p.awayM) + " away";
}

std::string placeValues(const ref::PositionTally& p) {
    return "1005 says " + xyzText(p.cameM) + ", where " + xyzText(p.dueM) +
           " is due (X, Y, Z in m)";
}

void addCells(const ref::Verdict& v, std::vector<std::string>& out) {
    const bool elsewhere = v.position.wrong > 0;
    const Group off = groupOf(v, Trouble::cellValues);
    if (!off.satellites.empty())
        out.push_back(
            whoAndWhen(v, off) +
            (off.rangeM > 0    ? ": ranges off by up to " + lengthText(off.rangeM)
             : off.phaseM > 0  ? ": phases off by up to " + lengthText(off.phaseM)
             : off.rateMps > 0 ? ": rates off by up to " + lengthText(off.rateMps) + "/s"
                               : ": values lost, or changed where none is known") +
            (elsewhere ? ", " + placeText(v.position) + ": is this the station's position?" : ""));
    else if (elsewhere)
        out.push_back(placeText(v.position) +
                      text(" in %d of %d replies", v.position.wrong, v.replies) +
                      ": is this the station's position?");
    if (elsewhere)
        out.push_back(placeValues(v.position));
    const Group missing = groupOf(v, Trouble::cellMissing);
    if (!missing.satellites.empty()) {
        const bool none = v.observations() == 0;
        out.push_back(whoAndWhen(v, missing) + ": missing" +
                      (none ? "; no reply carries an observation: is the service's clock that of "
                              "the stream, and are the satellites in its object file?"
                       : !missing.always                ? ""
                       : missing.satellites.size() == 1 ? ": is it in the configuration?"
                                                        : ": are they in the configuration?"));
    }
    const Group unasked = groupOf(v, Trouble::cellUnasked);
    if (!unasked.satellites.empty())
        out.push_back(whoAndWhen(v, unasked) + ": must not be there");
    const Group qualities = groupOf(v, Trouble::cellQualities);
    if (!qualities.satellites.empty())
        out.push_back(whoAndWhen(v, qualities) +
                      ": wrong lock time, half-cycle flag or signal strength");
}

int count(const ref::Verdict& v, Trouble what) {
    const auto it = v.troubles.find(what);
    return it == v.troubles.end() ? 0 : it->second;
}

void addFrames(const ref::Verdict& v, std::vector<std::string>& out) {
    if (const int n = count(v, Trouble::missingReply); n > 0)
        out.push_back(n == v.due ? text("none of %d epochs was answered", n)
                                 : text("%d of %ld epochs were not answered", n, v.due));
    if (const int n = count(v, Trouble::unaskedReply); n > 0)
        out.push_back(text("%d of %d replies are for an epoch that was not due", n, v.replies));
    if (const int n = count(v, Trouble::brokenReply); n > 0)
        out.push_back(text("%d of %d replies cannot be read", n, v.replies));
    for (const auto& [type, other] : v.otherEpoch)
        out.push_back(text("%d, %d times: its epoch is %.3f s %s that of the reply", type,
                           other.first, std::abs(other.second),
                           other.second < 0 ? "before" : "after"));
    if (const int n = count(v, Trouble::noPosition); n > 0)
        out.push_back(text("%d of %d replies: 1005 is missing", n, v.replies));
    if (const int n = count(v, Trouble::descriptors); n > 0)
        out.push_back(text("%d of %d replies: 1033 is wrong or missing", n, v.replies));
    std::string types;
    for (const auto& [type, n] : v.missingTypes)
        types += text("%s%d of %d", types.empty() ? "" : ", ", n, type);
    if (!types.empty())
        out.push_back("forwarded frames missing: " + types);
}

// Last: what is missing or too much in a reply shows here, too.
void addMessages(const ref::Verdict& v, std::vector<std::string>& out) {
    if (const int n = count(v, Trouble::messages); n > 0 && v.otherEpoch.empty())
        out.push_back(counted(n, "fault") + " of heads, order or reserved bits of messages");
}

std::string nothingWords(const Totals& t) {
    const ref::Verdict& v = t.verdict;
    return std::string("nothing to judge: ") +
           (t.connections == 0    ? "no service connected"
            : v.stream.ended == 0 ? "no epoch was sent"
            : v.replies == 0      ? "no reply came, and none was due"
            : t.silent > 0 && t.silent < t.endpoints
                ? text("no reply of %d of %d services carried an observation", t.silent,
                       t.endpoints)
                : "no reply carried an observation");
}

ref::Gap sumOf(const std::vector<ref::Gap>& gaps) {
    ref::Gap sum;
    for (const ref::Gap& g : gaps) {
        sum.epochs += g.epochs;
        sum.frames += g.frames;
    }
    return sum;
}

std::string missedWords(const ref::Verdict& v) {
    return (v.replies == 0 ? "no epoch came: " : "what came was right: ") +
           missedText(sumOf(v.gaps)) + " missed in " + counted(v.gaps.size(), "gap");
}

// A fault that this run makes: an end of an epoch that the service must refuse.
bool refusedOnPurpose(const Totals& t) {
    const auto it = t.faults.find(Fault::refusedMessage);
    return it != t.faults.end() && it->second > 0;
}

bool complete(const Totals& t) {
    return t.answers == std::vector{ref::Answer::complete};
}

std::vector<std::string> remarksOf(const Totals& t, long swallowed, long refused) {
    const ref::Verdict& v = t.verdict;
    std::vector<std::string> out;
    if (refused > 0 && refusedOnPurpose(t))
        out.push_back(text("%ld of %ld epochs of the stream lost to the fault refused-message: no "
                           "reply is due",
                           refused, v.ended));
    for (const auto& [fault, n] : t.faults)
        if (n == 0)
            out.push_back(std::string(name(fault)) +
                          " never happened in this run: nothing is known of it");
    if (v.stream.unended > 0 && !complete(t))
        out.push_back(counted(v.stream.unended, "epoch") +
                      " of the stream without an end: no reply is due");
    if (v.others > 0)
        out.push_back(counted(v.others, "epoch") +
                      " of another station in the stream: no answer is due");
    if (v.unfinished > 0)
        out.push_back(counted(v.unfinished, "epoch") +
                      " without an end: what came is answered when the next epoch begins");
    if (swallowed > 0)
        out.push_back(counted(swallowed, "epoch") +
                      " of the stream within damaged frames, or bytes that only begin like a "
                      "frame: they are dropped whole, no reply is due");
    if (!t.known.values && v.position.awayM > kOtherPlaceM) {
        out.push_back(placeText(v.position) + " from 300 m north of the stream's own position: "
                                              "is this the station's position?");
        out.push_back(placeValues(v.position));
    }
    const bool answered = v.replies > 0 || (v.due == 0 && v.stream.ended > 0);
    if (answered && v.observations() == 0) {
        if (v.stream.ephemerides == 0)
            out.push_back("the stream brings no ephemerides: no satellite can be answered");
        else if (v.stream.timely == 0)
            out.push_back("the ephemerides of the stream come behind its last epoch: no satellite "
                          "can be answered");
        else if (!t.known.values && t.known.day)
            out.push_back("is --start the time of the recording, and the service's clock, too? "
                          "Are the satellites in the object file?");
        else if (!t.known.values)
            out.push_back("is the service's clock that of the recording? Ephemerides of another "
                          "day are of no use: give --start");
    }
    return out;
}

} // namespace

const char* name(Answer answer) {
    switch (answer) {
    case Answer::right:
        return "right";
    case Answer::formRight:
        return "form right";
    case Answer::missed:
        return "missed";
    case Answer::nothing:
        return "nothing to judge";
    case Answer::wrong:
        break;
    }
    return "wrong";
}

int exitStatus(Answer answer) {
    return answer == Answer::right || answer == Answer::formRight ? 0 : 1;
}

Judgement judgementOf(const Totals& t) {
    const ref::Verdict& v = t.verdict;
    Judgement j;
    const long refused = std::max(0L, v.ended - v.taken - v.others);
    const long unanswered = refusedOnPurpose(t) ? 0 : refused;
    j.wrong = v.wrong + unanswered;
    j.remarks = remarksOf(t, std::max(0L, v.stream.ended - v.ended), refused);
    if (j.wrong > 0) {
        j.answer = Answer::wrong;
        j.words = text("%ld WRONG", j.wrong) + (v.replies == 0 ? ": no reply came" : "");
        if (unanswered > 0)
            j.causes.push_back(
                text("%ld of %ld epochs in the stream have an end and no reply: does it hold two "
                     "stations, or messages that the service refuses?",
                     unanswered, v.ended));
        addFrames(v, j.causes);
        addCells(v, j.causes);
        addMessages(v, j.causes);
        return j;
    }
    if (!v.gaps.empty()) {
        j.answer = Answer::missed;
        j.words = missedWords(v);
        return j;
    }
    if (v.replies == 0 || v.observations() == 0 || t.silent > 0 ||
        (t.known.values && v.cells == 0)) {
        j.words = nothingWords(t);
        return j;
    }
    j.answer = t.known.values ? Answer::right : Answer::formRight;
    j.words =
        t.known.values ? "everything was right" : "the form was right; the values are not known";
    return j;
}

} // namespace ctl::simulate
