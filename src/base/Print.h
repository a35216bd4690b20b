#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Print: the one way to standard output and the one way out of an unusable configuration.
/// Lines carry their own line end where `print` is used; `fatal` adds one. Every line has a level,
/// which only a service manager gets to see (net/Log).

/// How much a line matters, with the numbers of sd-daemon(3). Notice and above is what an operator
/// wants to know of a service that does its work: warnings and changes of state.
enum class Level : std::uint8_t { error = 3, warning, notice, info, debug };

/// Warnings that are printed again with every epoch or every attempt for as long as their cause
/// lasts.
enum class Cause : std::uint8_t {
    noRecord,           // of a satellite in the ephemeris store
    noEphemeris,        // of a satellite
    oldEphemeris,       // of a satellite
    noOrbit,            // of a satellite
    noConvergence,      // of a satellite
    bdsNotConfigured,   // a satellite
    ephemerisNotStored, // of a satellite
    messageRefused,     // of a message number
    epochLost,          // to a refused message number
    noCoordinates,
    farOffset,
    longReply,
    savingSwitches,
    recordNotWritten,
    noConnection,
    outputLost
};

/// A warning that lasts; two of one cause differ by their subject, such as a satellite's index.
struct Lasting {
    Cause cause;
    std::size_t subject = 0;
    bool operator==(const Lasting&) const = default;
};

/// Formats to standard output, printf style; at level info where no other one is named.
[[gnu::format(printf, 1, 2)]] void print(const char* format, ...);
[[gnu::format(printf, 2, 3)]] void print(Level level, const char* format, ...);
/// A warning where it begins; as long as it lasts its lines are for the level debug.
[[gnu::format(printf, 2, 3)]] void print(const Lasting& what, const char* format, ...);
/// An epoch is over: what it did not bring again may have ended.
void printEpochEnd();
/// Whatever lasted for this cause has ended.
void printEnded(Cause cause);

/// Lets out what the target has kept back: before the process waits or ends.
void printFlush();

/// Prints the line and ends the process with status 1.
[[noreturn, gnu::format(printf, 1, 2)]] void fatal(const char* format, ...);

/// Takes what is printed, instead of stdio. Text comes in lines or in parts of them.
class PrintTarget {
public:
    virtual void take(Level level, std::string_view text) = 0;
    virtual void take(const Lasting& what, std::string_view text) = 0;
    virtual void epochEnd() = 0;
    virtual void ended(Cause cause) = 0;
    /// Whole lines may wait until this; the handler of a signal calls it, too.
    virtual void flush() = 0;
    /// The process ends behind the next line.
    virtual void lastLine() = 0;
    /// Lines that nobody read in time, since the start.
    virtual std::uint64_t droppedLines() const { return 0; }

protected:
    ~PrintTarget() = default;
};
/// Set by the service; null in other programs, which print through stdio.
extern PrintTarget* printTarget;

/// Receives the decoder's and encoder's traces (levels 2 to 5); null, as in the service, discards.
using TraceHook = void (*)(int level, const char* line);
extern TraceHook traceHook;

/// Formats a trace line for the hook; costs one comparison while there is none.
[[gnu::format(printf, 2, 3)]] void trace(int level, const char* format, ...);
