#pragma once

#include <csignal>

/// Signals: how SIGTERM and SIGINT end the process, and what they must not interrupt.

/// Makes both end the process at once, also as process 1 of a PID namespace: there a
/// signal without a handler is ignored (pid_namespaces(7)). Elsewhere its parent still sees a death
/// by the signal; process 1 ends with status 128 and the signal's number. Before these and those of
/// a crash end it, the lines that were printed get out.
void endOnSignals();

/// What the handler calls besides, in this order, when the process ends by such a signal. Functions
/// are async-signal-safe, or the process ends in waits only. There is room for two.
void callBeforeEnd(void (*function)());

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

/// Their handler does nothing during its lifetime, and the end comes with that of the last one.
/// Unlike SignalsHeld it costs no system call, and does not keep them from a call that waits.
class SignalsDeferred {
public:
    SignalsDeferred();
    ~SignalsDeferred();
    SignalsDeferred(const SignalsDeferred&) = delete;
    SignalsDeferred& operator=(const SignalsDeferred&) = delete;
};

/// From now on SIGTERM and SIGINT end the process only where it waits.
void endInWaitsOnly();

/// Around a call that waits.
class SignalsAwaited {
public:
    SignalsAwaited();
    ~SignalsAwaited();
    SignalsAwaited(const SignalsAwaited&) = delete;
    SignalsAwaited& operator=(const SignalsAwaited&) = delete;
};
