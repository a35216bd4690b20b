#include "gateway/station/Audit.h"

#include "base/Findings.h"
#include "gateway/station/Heard.h"
#include "rtcm/Frame.h"

#include <algorithm>
#include <cmath>
#include <tuple>
#include <utility>

namespace gateway {

using namespace std::chrono_literals;

namespace {

constexpr std::size_t kMostUnread = std::size_t{512} * 1024; // bytes
constexpr std::size_t kHeldEpochs = 20, kHeldItems = 1000;   // predicted
constexpr std::size_t kMostStation = 8;                      // messages
constexpr Duration kCalm = 10s;     // without anything wrong; then trouble is over
constexpr Duration kUnproven = 60s; // without a value that was compared; then it is told

/// Messages that the virtual station says of itself.
bool introduces(int type) {
    return type == 1005 || type == 1006 || type == 1033;
}

/// Whether a satellite is one of those whose values cannot be computed: then it may come, with any.
template <class Satellite> void makeUnknown(Satellite& s) {
    s.uncertain = s.unknown = true;
}

} // namespace

ref::Frame frameOf(std::span<const std::uint8_t> bytes) {
    const std::span body = bytes.subspan(kHeaderBytes, bytes.size() - kHeaderBytes - 3);
    return {0, {bytes.begin(), bytes.end()}, messageType(bytes), {body.begin(), body.end()}};
}

Audit::Audit(ref::Expectation terms, Say say) : terms_(std::move(terms)), say_(std::move(say)) {
    terms_.output = ref::Output::rtcm3;
    terms_.warm = true; // an engine keeps ephemerides from one start to the next
}

void Audit::connected(Engine::Process process, ref::GpsTime clock) {
    if (!owes_ || process == Engine::Process::started) {
        terms_.near = clock;
        owes_ = ref::predictorFor(terms_);
        notTaken_.clear();
    } else {
        while (predictNext()) {
        }
        skip(owed_.size());
        owes_->restart();
    }
    unread_.clear();
    readTo_ = 0;
    owed_.clear();
    owedEpochs_ = 0;
    forgotten_ = false;
    station_.clear();
}

void Audit::sent(std::span<const std::uint8_t> frames) {
    if (!owes_)
        return;
    unread_.insert(unread_.end(), frames.begin(), frames.end());
    while (unread_.size() - readTo_ > kMostUnread && predictNext()) {
    }
    if (readTo_ > kMostUnread) {
        unread_.erase(unread_.begin(), unread_.begin() + static_cast<std::ptrdiff_t>(readTo_));
        readTo_ = 0;
    }
}

/// What the next frame asks for; false where there is none. Not before an answer needs it: the
/// engine computes meanwhile, and bytes are smaller than what is predicted of them.
bool Audit::predictNext() {
    const std::span rest = std::span(unread_).subspan(readTo_);
    const std::size_t size = wholeFrame(rest);
    if (size == 0) {
        unread_.clear();
        readTo_ = 0;
        return false;
    }
    std::vector<ref::Expected> more;
    owes_->take(frameOf(rest.first(size)), more);
    readTo_ += size;
    for (ref::Expected& e : more) {
        owedEpochs_ += e.type == 0 ? 1 : 0;
        owed_.push_back(std::move(e));
    }
    bound();
    return true;
}

/// The first of what is owed that matches, as far ahead as need be.
template <class Match> std::deque<ref::Expected>::iterator Audit::find(const Match& match) {
    auto found = std::ranges::find_if(owed_, match);
    while (found == owed_.end() && predictNext())
        found = std::ranges::find_if(owed_, match);
    return found;
}

void Audit::bound() {
    while (owedEpochs_ > kHeldEpochs || owed_.size() > kHeldItems) {
        forgotten_ = true;
        skip(1);
    }
}

/// The first of what is owed has not come. That is no error here: an engine without ephemerides, or
/// one that its peer does not read, sends less.
void Audit::skip(std::size_t count) {
    for (; count > 0; --count) {
        const ref::Expected& e = owed_.front();
        owedEpochs_ -= e.type == 0 ? 1 : 0;
        if (!e.sat.empty())
            notTaken_.insert(e.sat);
        owed_.pop_front();
    }
}

std::vector<Block> Audit::take(const Block& block, Instant at) {
    std::vector<Block> out;
    if (!owes_)
        return out;
    if (block.kind == Block::Kind::between) {
        Bytes passed;
        forEachFrame(block.bytes, [&](std::span<const std::uint8_t> frame) {
            if (introduces(messageType(frame))) {
                if (station_.size() == kMostStation)
                    station_.erase(station_.begin());
                station_.emplace_back(frame.begin(), frame.end());
            } else if (forwarded(frame, at) == Finding::right) {
                passed.insert(passed.end(), frame.begin(), frame.end());
            }
        });
        if (!passed.empty())
            out.push_back({std::move(passed)});
        return out;
    }
    const std::vector<Bytes> station = std::exchange(station_, {});
    std::vector<ref::Frame> came;
    Bytes introduction;
    for (const Bytes& frame : station) {
        came.push_back(frameOf(frame));
        introduction.insert(introduction.end(), frame.begin(), frame.end());
    }
    forEachFrame(block.bytes,
                 [&](std::span<const std::uint8_t> frame) { came.push_back(frameOf(frame)); });
    if (answer(came, at) == Finding::wrong)
        return out;
    if (!introduction.empty())
        out.push_back({std::move(introduction)});
    out.push_back(block);
    return out;
}

Audit::Finding Audit::forwarded(std::span<const std::uint8_t> frame, Instant at) {
    const auto same = find(
        [&](const ref::Expected& e) { return e.type != 0 && std::ranges::equal(frame, e.frame); });
    if (same == owed_.end()) {
        if (forgotten_)
            return Finding::right;
        ++counts_.wrongMessages;
        wrong("a message " + std::to_string(messageType(frame)) +
                  " comes that is none of the stream's",
              at);
        return Finding::wrong;
    }
    if (forgotten_) // it may be the same as one that is no longer held
        return Finding::right;
    const std::string sat = same->sat;
    skip(static_cast<std::size_t>(same - owed_.begin()));
    notTaken_.erase(sat);
    owed_.pop_front();
    return Finding::right;
}

Audit::Finding Audit::answer(const std::vector<ref::Frame>& came, Instant at) {
    std::optional<ref::Msm> head;
    for (auto f = came.begin(); f != came.end() && !head; ++f)
        head = ref::headOf(*f);
    const auto due = find([&](const ref::Expected& e) {
        return e.type == 0 && head && ref::answersEpoch(*head, e, terms_);
    });
    if (due == owed_.end()) {
        if (forgotten_) {
            ++counts_.notAudited;
            return Finding::right;
        }
        ++counts_.wrongEpochs;
        const auto next = std::ranges::find_if(owed_, [](const auto& e) { return e.type == 0; });
        wrong("an epoch comes that the stream has not asked for" +
                  (head && next != owed_.end()
                       ? ": it is " + ref::secondsText(ref::lateS(*head, next->time)) +
                             " s later than the one that is due"
                       : std::string()),
              at);
        return Finding::wrong;
    }
    skip(static_cast<std::size_t>(due - owed_.begin()));
    ref::Expected expected = std::move(owed_.front());
    owed_.pop_front();
    --owedEpochs_;
    forgotten_ = false;
    blur(expected);
    const ref::ComparedAnswer compared =
        ref::compareAnswer(came, expected, *owes_, ref::StationPart::mayCome);
    if (compared.differences.empty()) {
        count(compared, at);
        right(at);
        return Finding::right;
    }
    ++counts_.wrongEpochs;
    const ref::Difference& d = *std::ranges::max_element(
        compared.differences, std::less(), [](const ref::Difference& x) { // what tells most
            return std::tuple(!x.words.empty(), x.what == ref::Trouble::cellValues, !x.sat.empty());
        });
    const std::size_t more =
        static_cast<std::size_t>(std::ranges::count_if(
            compared.differences, [](const ref::Difference& x) { return !x.words.empty(); })) -
        1;
    wrong("epoch " + std::to_string(expected.time.week) + "/" +
              ref::secondsText(expected.time.sow) + ": " + d.words +
              (more > 0 ? text(", and %zu more", more) : std::string()),
          at);
    return Finding::wrong;
}

void Audit::tellCounts() const {
    const auto number = [](std::uint64_t n) { return std::to_string(n); };
    say_(Level::notice, "audit: " + number(counts_.epochs) + " epochs audited, " +
                            number(counts_.values) + " observations compared, " +
                            number(counts_.notCompared) + " not; " + number(counts_.notAudited) +
                            " epochs not audited; not sent: " + number(counts_.wrongEpochs) +
                            " epochs, " + number(counts_.wrongMessages) + " messages");
}

/// Satellites whose ephemeris the engine has not taken, as its echo shows.
void Audit::blur(ref::Expected& expected) const {
    if (notTaken_.empty())
        return;
    for (ref::ExpectedSatellite& s : expected.satellites)
        if (notTaken_.contains(s.sat))
            makeUnknown(s);
    for (ref::DueMessage& m : expected.messages)
        for (ref::DueMessage::Satellite& s : m.satellites)
            if (notTaken_.contains(ref::satName(m.from.raw.system(), s.id)))
                makeUnknown(s);
}

void Audit::measure(const std::vector<ref::ComparedCell>& cells) {
    worst_.clear();
    for (const ref::ComparedCell& c : cells) {
        if (!c.known)
            continue;
        const char system = c.sat.front();
        auto of = std::ranges::find(worst_, system, &AuditLook::Worst::system);
        if (of == worst_.end())
            of = worst_.insert(of, {system, 0, 0, 0, 0});
        of->rangeM = std::max(of->rangeM, std::abs(c.error.rangeM));
        of->phaseM = std::max(of->phaseM, std::abs(c.error.phaseM));
        of->rangeBoundM = std::max(of->rangeBoundM, c.bounds.rangeM);
        of->phaseBoundM = std::max(of->phaseBoundM, c.bounds.phaseM);
    }
}

void Audit::count(const ref::ComparedAnswer& compared, Instant at) {
    const auto known = static_cast<std::uint64_t>(
        std::ranges::count_if(compared.cells, [](const auto& c) { return c.known; }));
    counts_.values += known;
    counts_.notCompared += compared.cells.size() - known;
    ++(known > 0 ? counts_.epochs : counts_.notAudited);
    if (known > 0) {
        measure(compared.cells);
        unprovenSince_.reset();
        if (std::exchange(toldUnproven_, false))
            say_(Level::notice, "audit: epochs are audited again");
        return;
    }
    unprovenSince_ = unprovenSince_.value_or(at);
    if (at - *unprovenSince_ > kUnproven && !std::exchange(toldUnproven_, true))
        say_(Level::warning, "audit: epochs go to rovers that are not audited: no ephemerides have "
                             "come since the engine was started");
}

void Audit::wrong(const std::string& what, Instant at) {
    ++troubles_;
    trouble_ = what + "; what is wrong is not sent" +
               (troubles_ > 1 ? " (" + std::to_string(troubles_) + " so far)" : "");
    lastTrouble_ = at;
}

void Audit::right(Instant at) {
    if (at - lastTrouble_ < kCalm)
        return;
    trouble_.clear();
    troubles_ = 0;
}

} // namespace gateway
