#include "gateway/net/Attempts.h"

#include <algorithm>

namespace gateway {

using namespace std::chrono_literals;

awaitable<Ending> endOf(awaitable<void> conversation) {
    Ending out;
    try {
        co_await std::move(conversation);
    } catch (const ConversationEnd& e) {
        out = {e.what(), e.manner()};
    } catch (const std::exception& e) {
        out.why = reasonOf(e);
    }
    co_return out;
}

std::string inSeconds(Duration d) {
    return std::to_string(std::chrono::ceil<std::chrono::seconds>(d).count()) + " s";
}

Backoff::Backoff(Scheme scheme) {
    const bool caster =
        scheme == Scheme::ntrip || scheme == Scheme::ntrips || scheme == Scheme::ntripSource;
    first_ = caster ? Duration(10s) : Duration(3s);
    most_ = caster ? Duration(5min) : Duration(30s);
}

Duration Backoff::afterFailure(Manner manner) {
    const Duration plain = manner == Manner::refused
                               ? Duration(5min)
                               : std::min(most_, first_ * (1 << std::min(failures_++, 6U)));
    const double more = std::uniform_real_distribution(0.0, 0.2)(random_);
    return plain + std::chrono::duration_cast<Duration>(plain * more);
}

} // namespace gateway
