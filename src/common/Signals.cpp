#include "common/Signals.h"

#include <array>
#include <unistd.h>

namespace {

constexpr std::array kEnding{SIGTERM, SIGINT};

/// Nothing but async-signal-safe calls: lines are flushed as they are printed. The default action,
/// which SA_RESETHAND has put back, ends every process but process 1.
void end(int signal) {
    static_cast<void>(raise(signal));
    _exit(128 + signal);
}

} // namespace

void endOnSignals() {
    struct sigaction action {};
    action.sa_handler = end;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
    for (const int signal : kEnding)
        static_cast<void>(sigaction(signal, &action, nullptr));
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
