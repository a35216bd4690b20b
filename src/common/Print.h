#pragma once

/// Print: the one way to standard output and the one way out of an unusable configuration.
/// Lines carry their own line end where `print` is used; `fatal` adds one.

/// Formats to standard output, printf style.
[[gnu::format(printf, 1, 2)]] void print(const char* format, ...);

/// Prints the line and ends the process with status 1.
[[noreturn, gnu::format(printf, 1, 2)]] void fatal(const char* format, ...);

/// Receives the decoder's and encoder's traces (levels 2 to 5); null, as in the service, discards.
using TraceHook = void (*)(int level, const char* line);
extern TraceHook traceHook;

/// Formats a trace line for the hook; costs one comparison while there is none.
[[gnu::format(printf, 2, 3)]] void trace(int level, const char* format, ...);
