#include "app/Tally.h"

#include "rtcm/Frame.h"
#include "rtcm/Msm4.h"
#include "vrs/VrsEncoder.h"

#include <algorithm>
#include <bit>
#include <string>

namespace {

/// Of a system in an epoch. What a stream without ends sends beyond them is not counted.
constexpr std::size_t kMostMasks = 512;

std::uint64_t bitsIn(std::uint64_t mask) {
    return static_cast<std::uint64_t>(std::popcount(mask));
}

} // namespace

Tally::Tally(const Session& session) {
    if (session.answering.complete)
        return; // no signal is left out for what it is
    for (std::size_t system = 0; system < kMsmSystems.size(); ++system)
        for (std::size_t id = 1; id <= kMsmSignals; ++id) {
            const std::uint8_t code = kMsmSystems[system].codes[id];
            const std::size_t row = systemIndex(kMsmLetters[system]);
            Signal& signal = signals_[system][id];
            signal.slot = session.slotOf[row][code];
            if (code2obs(code).empty())
                signal.always = Dropped::unknown;
            else if (index_mask(row, "C" + std::string(code2obs(code))) < 0)
                signal.always = Dropped::notInList;
            else if (signal.slot < 0)
                signal.always = Dropped::noCarrier;
        }
}

void Tally::add(Epochs& to, Side side, std::span<const std::uint8_t> frame) {
    forEachCellMasks(frame, [&](std::size_t system, const CellMasks& m) {
        Masks& masks = to[system].*side;
        if (masks.size() < kMostMasks)
            masks.push_back(m);
    });
}

void Tally::received(std::span<const std::uint8_t> frame) {
    add(now_, &Epoch::in, frame);
}

void Tally::answered(std::span<const std::uint8_t> frame) {
    add(now_, &Epoch::out, frame);
}

bool Tally::answeredNone() const {
    return std::ranges::all_of(now_, [](const Epoch& e) { return e.out.empty(); });
}

bool Tally::empty() const {
    return answeredNone() && std::ranges::all_of(now_, [](const Epoch& e) { return e.in.empty(); });
}

void Tally::endEpoch(Answer answer) {
    for (std::size_t system = 0; system < now_.size(); ++system) {
        Epoch& epoch = now_[system];
        epoch.answer = answer;
        if (epoch != last_[system]) {
            settle(system);
            std::swap(epoch, last_[system]);
        }
        ++times_[system];
        epoch.in.clear();
        epoch.out.clear();
    }
}

void Tally::settle() {
    for (std::size_t system = 0; system < last_.size(); ++system)
        settle(system);
}

/// From the last satellite to the first, of which most have every signal.
void Tally::expand(const Masks& messages, Rows& rows) {
    rows.clear();
    for (const CellMasks& m : messages) {
        const std::size_t first = rows.size();
        for (std::uint32_t left = m.signals; left != 0; left &= left - 1)
            rows.push_back(
                {kMsmSignals - static_cast<std::size_t>(std::countr_zero(left)), m.satellites});
        const std::size_t signals = rows.size() - first;
        const std::uint64_t all = ~std::uint64_t{0} >> (kMsmCells - signals);
        std::uint64_t cells = m.cells;
        for (std::uint64_t left = m.satellites; left != 0; left &= left - 1, cells >>= signals)
            if ((cells & all) != all)
                for (std::size_t i = 0; i < signals; ++i)
                    if ((cells >> i & 1U) == 0)
                        rows[first + i].satellites &= ~(left & -left);
    }
}

void Tally::settle(std::size_t system) {
    const std::uint64_t times = times_[system];
    if (times == 0)
        return;
    expand(last_[system].in, inRows_);
    expand(last_[system].out, outRows_);
    auto& sums = sums_[system];
    for (const Row& row : outRows_)
        sums[row.signal].answered += times * bitsIn(row.satellites);
    for (const Row& row : inRows_) {
        std::uint64_t answered = 0;
        for (const Row& out : outRows_)
            answered |= out.signal == row.signal ? out.satellites : 0;
        const std::uint64_t lacking = row.satellites & ~answered;
        sums[row.signal].received += times * bitsIn(row.satellites);
        sums[row.signal].found += times * bitsIn(row.satellites & answered);
        if (lacking != 0)
            settleLacking(system, row, lacking);
    }
    times_[system] = 0;
}

void Tally::settleLacking(std::size_t system, const Row& row, std::uint64_t lacking) {
    const Signal& signal = signals_[system][row.signal];
    const auto drop = [&](Dropped why, std::uint64_t satellites) {
        sums_[system][row.signal].dropped[static_cast<std::size_t>(why)] +=
            times_[system] * bitsIn(satellites);
    };
    if (signal.always)
        return drop(*signal.always, lacking);
    if (last_[system].answer == Answer::none)
        return drop(Dropped::epoch, lacking);
    std::uint64_t answered = 0;
    for (const Row& out : outRows_)
        answered |= out.satellites;
    std::uint64_t others = 0; // satellites that have another signal of its carrier
    for (const Row& in : inRows_)
        if (in.signal != row.signal && signal.slot >= 0 &&
            signals_[system][in.signal].slot == signal.slot)
            others |= in.satellites;
    drop(Dropped::satellite, lacking & ~answered);
    drop(Dropped::otherSignal, lacking & answered & others);
    drop(Dropped::value, lacking & answered & ~others);
}

SignalCount Tally::count(std::size_t system, std::size_t signal) const {
    const Sums& sums = sums_[system][signal];
    SignalCount out = sums;
    out.dropped[static_cast<std::size_t>(Dropped::twice)] =
        sums.found - std::min(sums.found, sums.answered);
    return out;
}

Satellites Tally::satellitesOf(const Epochs& epochs, Side side) {
    Satellites out{};
    for (std::size_t system = 0; system < epochs.size(); ++system)
        for (const CellMasks& m : epochs[system].*side)
            out[system] |= m.satellites;
    return out;
}

Satellites Tally::seen() const {
    return satellitesOf(last_, &Epoch::in);
}

Satellites Tally::answered() const {
    return satellitesOf(last_, &Epoch::out);
}

int satelliteOf(std::size_t system, int id) {
    const MsmSystem& s = kMsmSystems[system];
    return satno(s.system, s.firstPrn + id - 1);
}
