#pragma once

#include <csignal>

/// Signals: how SIGTERM and SIGINT end the process, and what they must not interrupt.

/// Makes both end the process at once, also as process 1 of a PID namespace: there a
/// signal without a handler is ignored (pid_namespaces(7)). Elsewhere its parent still sees a death
/// by the signal; process 1 ends with status 128 and the signal's number.
void endOnSignals();

/// Holds both back during its lifetime.
class SignalsHeld {
public:
    SignalsHeld();
    ~SignalsHeld();
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

private:
    sigset_t before_{};
};
