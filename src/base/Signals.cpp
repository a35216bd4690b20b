#include "base/Signals.h"

#include "base/Print.h"

#include <algorithm>
#include <array>
#include <unistd.h>

namespace {

constexpr std::array kEnding{SIGTERM, SIGINT};
constexpr std::array kCrashing{SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGQUIT};

std::array<void (*)(), 2> beforeEnd{};
volatile std::sig_atomic_t deferring = 0; // how many SignalsDeferred there are
volatile std::sig_atomic_t deferred = 0;  // the signal that came meanwhile
volatile std::sig_atomic_t inWaitsOnly = 0, waiting = 0;

bool isEnding(int signal) {
    return std::ranges::find(kEnding, signal) != kEnding.end();
}

bool mayEnd(int signal) {
    return deferring == 0 && (inWaitsOnly == 0 || waiting != 0 || !isEnding(signal));
}

/// Nothing but async-signal-safe calls, also in the flush. The default action, which SA_RESETHAND
/// has put back, ends every process but process 1.
void end(int signal) {
    if (!mayEnd(signal)) {
        deferred = signal;
        return;
    }
    deferring = deferring + 1; // one end is enough: another signal changes nothing in between
    printFlush();
    if (isEnding(signal))
        for (void (*const function)() : beforeEnd)
            if (function)
                function();
    static_cast<void>(raise(signal));
    _exit(128 + signal);
}

void endIfDeferred() {
    if (deferred == 0 || !mayEnd(deferred))
        return;
    const int signal = deferred;
    deferred = 0;
    end(signal);
}

} // namespace

void endOnSignals() {
    struct sigaction action {};
    action.sa_handler = end;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
    for (const int signal : kEnding)
        static_cast<void>(sigaction(signal, &action, nullptr));
    for (const int signal : kCrashing) {
        struct sigaction present {};
        if (sigaction(signal, nullptr, &present) == 0 && present.sa_handler == SIG_DFL)
            static_cast<void>(sigaction(signal, &action, nullptr)); // a sanitizer may have its own
    }
}

void callBeforeEnd(void (*function)()) {
    const auto room = std::ranges::find_if(
        beforeEnd, [=](const auto& held) { return !held || held == function; });
    if (room != beforeEnd.end())
        *room = function;
}

SignalsHeld::SignalsHeld() {
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signal : kEnding)
        sigaddset(&ending, signal);
    static_cast<void>(pthread_sigmask(SIG_BLOCK, &ending, &before_));
}

SignalsHeld::~SignalsHeld() {
    static_cast<void>(pthread_sigmask(SIG_SETMASK, &before_, nullptr));
}

SignalsDeferred::SignalsDeferred() {
    deferring = deferring + 1;
}

SignalsDeferred::~SignalsDeferred() {
    deferring = deferring - 1;
    endIfDeferred();
}

void endInWaitsOnly() {
    inWaitsOnly = 1;
}

SignalsAwaited::SignalsAwaited() {
    waiting = 1;
    endIfDeferred();
}

SignalsAwaited::~SignalsAwaited() {
    waiting = 0;
}
