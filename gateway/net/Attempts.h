#pragma once

#include "gateway/net/Address.h"
#include "gateway/net/Within.h"

#include <random>
#include <stdexcept>
#include <string>

/// Attempts: how conversations with peers end, and when they are tried again.

namespace gateway {

/// How a peer may be tried again.
enum class Manner { soon, refused };

/// A conversation that failed or ended; what() for the operator.
class ConversationEnd : public std::runtime_error {
public:
    explicit ConversationEnd(const std::string& what, Manner manner = Manner::soon)
        : std::runtime_error(what), manner_(manner) {}
    Manner manner() const { return manner_; }

private:
    Manner manner_;
};

struct Ending {
    std::string why;
    Manner manner = Manner::soon;
};
/// Waits for the end of a conversation, whatever exception says it.
awaitable<Ending> endOf(awaitable<void> conversation);

/// "12 s", rounded up.
std::string inSeconds(Duration d);

/// Waits between attempts, as casters in the field want it: 10 s after a failure, twice as long
/// after each further one up to 5 min, a little at random; 5 min after a refusal. Peers that are
/// the operator's own are tried sooner.
class Backoff {
public:
    explicit Backoff(Scheme scheme);
    Duration afterFailure(Manner manner);
    /// Data has come for a minute.
    void reset() { failures_ = 0; }

private:
    Duration first_, most_;
    unsigned failures_ = 0;
    std::minstd_rand random_{std::random_device{}()};
};

} // namespace gateway
