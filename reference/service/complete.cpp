#include "complete.h"

#include "reference/standard/kinds.h"

#include <algorithm>

namespace ref {

namespace {

using Looks = std::map<std::string, Answerable::Look>;

// The satellites of a legacy message that are kept, in order: as many in each message as fit.
std::vector<ReceivedMessage> parts(ReceivedMessage m, std::set<int> kept) {
    if (!m.legacy)
        return {std::move(m)};
    std::vector<ReceivedMessage> out;
    while (!kept.empty()) {
        std::set<int> signals;
        for (const RawMsm::Cell& c : m.raw.cells)
            if (kept.contains(c.id))
                signals.insert(c.signal);
        ReceivedMessage part = m;
        part.raw.satellites.clear();
        part.raw.cells.clear();
        part.whole.clear();
        for (std::size_t room = kMostPairs / signals.size(); room > 0 && !kept.empty(); --room) {
            const int id = kept.extract(kept.begin()).value();
            part.raw.satellites.push_back(m.raw.satellite(id));
            for (std::size_t i = 0; i < m.raw.cells.size(); ++i)
                if (m.raw.cells[i].id == id) {
                    part.raw.cells.push_back(m.raw.cells[i]);
                    part.whole.push_back(m.whole[i]);
                }
        }
        out.push_back(std::move(part));
    }
    return out;
}

bool mayCome(const Answerable::Look& l) {
    return l.fate == Fate::answered || l.uncertain;
}

} // namespace

CompletePredictor::CompletePredictor(Expectation e)
    : Predictor(std::move(e)), runs_(expectation.near) {}

void CompletePredictor::message(const Frame& f, std::vector<Expected>& out) {
    if (isEphemeris(f.type)) {
        const std::string sat = answerable_.take(f);
        forward(f, out);
        out.back().sat = sat;
    } else if (isStation(f.type)) {
        const int id = static_cast<int>(BitSource(f.body).u(24) & 0xFFF);
        if (runs_.refuses(id))
            return;
        if (!runs_.pinned())
            spoke_ = id;
        note(f);
        forward(f, out);
    } else if (isMsm(f.type) || isLegacy(f.type)) {
        std::vector<Run> ended = runs_.take(f);
        for (Run& run : ended) {
            // Before the stream had a station, another one may have spoken of itself.
            if (spoke_.value_or(run.station) != run.station)
                forgetStation();
            out.push_back(answer(std::move(run)));
        }
        if (runs_.pinned())
            spoke_.reset();
        if (runs_.stationChanged())
            forgetStation();
    }
}

Expected CompletePredictor::answer(Run run) {
    Expected e = answerAt(run.time);
    e.finished = run.finished;
    e.certain = false;
    Looks looks;
    for (ReceivedMessage& m : run.messages) {
        const char system = m.raw.system();
        Brought& brought = e.brought[system];
        brought.received += m.cells;
        std::map<int, DueMessage::Satellite> due;
        const bool rates = msmForm(m.raw.type % 10).rates;
        for (const RawMsm::Cell& c : m.raw.cells) {
            const std::string sat = satName(system, c.id);
            if (!expectation.satellites.contains(sat))
                continue;
            const auto [held, fresh] = looks.try_emplace(sat);
            if (fresh && expectation.values)
                held->second = look(sat, run.time);
            const Answerable::Look& l = held->second;
            brought.answerable += l.fate == Fate::answered ? 1 : 0;
            if (!mayCome(l) && expectation.values)
                continue;
            const double rate = rates && mayCome(l) && !l.unknown && !due.contains(c.id)
                                    ? answerable_.changeRateMps(sat, run.time)
                                    : 0;
            due.try_emplace(c.id, DueMessage::Satellite{c.id, l.uncertain || !expectation.values,
                                                        l.unknown, l.changeM, rate});
            e.certain = e.certain || (expectation.values && !l.uncertain);
        }
        std::set<int> ids;
        for (const auto& [id, s] : due)
            ids.insert(id);
        if (due.empty())
            continue;
        for (ReceivedMessage& part : parts(std::move(m), ids)) {
            DueMessage& d = e.messages.emplace_back();
            for (const auto& [id, s] : due)
                if (std::any_of(part.raw.satellites.begin(), part.raw.satellites.end(),
                                [id = id](const auto& r) { return r.id == id; }))
                    d.satellites.push_back(s);
            d.from = std::move(part);
        }
    }
    if (expectation.values)
        for (const auto& [sat, look] : looks)
            e.satellites.push_back({look, sat, {}});
    return e;
}

} // namespace ref
