#include "net/LastingWarnings.h"

#include <algorithm>

namespace {

constexpr std::chrono::minutes kAbsence{1};

/// Whether the warning comes with epochs; the others last until a connection is made.
bool comesWithEpochs(Cause cause) {
    return cause != Cause::noConnection && cause != Cause::outputLost;
}

} // namespace

Level LastingWarnings::levelOf(const Lasting& what, std::string_view line, Instant now) {
    const auto end = entries_.begin() + static_cast<std::ptrdiff_t>(count_);
    const auto known =
        std::find_if(entries_.begin(), end, [&](const Entry& e) { return e.what == what; });
    if (known != end)
        known->last = now;
    if (known != end || count_ == entries_.size())
        return Level::debug;
    Entry& entry = entries_[count_++];
    entry.what = what;
    entry.last = now;
    entry.length = line.substr(0, line.find('\n')).copy(entry.line.data(), entry.line.size());
    return Level::warning;
}

void LastingWarnings::epochEnd(Instant now, const Told& told) {
    forget(
        [now](const Entry& e) { return comesWithEpochs(e.what.cause) && now - e.last > kAbsence; },
        told);
}

void LastingWarnings::ended(Cause cause, const Told& told) {
    forget([cause](const Entry& e) { return e.what.cause == cause; }, told);
}

void LastingWarnings::forget(const HasEnded& hasEnded, const Told& told) {
    for (std::size_t i = 0; i < count_;) {
        if (!hasEnded(entries_[i])) {
            ++i;
            continue;
        }
        told({entries_[i].line.data(), entries_[i].length});
        std::copy(entries_.begin() + static_cast<std::ptrdiff_t>(i + 1),
                  entries_.begin() + static_cast<std::ptrdiff_t>(count_),
                  entries_.begin() + static_cast<std::ptrdiff_t>(i));
        --count_;
    }
}
