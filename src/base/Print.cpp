#include "base/Print.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

PrintTarget* printTarget = nullptr;
TraceHook traceHook = nullptr;

namespace {

/// Formats for the target, or for stdio where there is none. `what` is a Level or a Lasting.
template <class What> void vprint(const What& what, const char* format, std::va_list args) {
    if (!printTarget) {
        std::vprintf(format, args);
        return;
    }
    std::array<char, 512> line; // filled below
    std::va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(line.data(), line.size(), format, args);
    const auto size = static_cast<std::size_t>(length > 0 ? length : 0);
    if (size < line.size()) {
        printTarget->take(what, {line.data(), size});
    } else { // values of a configuration may be of any length
        std::string longer(size, '\0');
        std::vsnprintf(longer.data(), size + 1, format, again);
        printTarget->take(what, longer);
    }
    va_end(again);
}

} // namespace

void print(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    vprint(Level::info, format, args);
    va_end(args);
}

void print(Level level, const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    vprint(level, format, args);
    va_end(args);
}

void print(const Lasting& what, const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    vprint(what, format, args);
    va_end(args);
}

void printEpochEnd() {
    if (printTarget)
        printTarget->epochEnd();
}

void printEnded(Cause cause) {
    if (printTarget)
        printTarget->ended(cause);
}

void printFlush() {
    if (printTarget)
        printTarget->flush();
}

void fatal(const char* format, ...) {
    if (printTarget)
        printTarget->lastLine();
    std::va_list args;
    va_start(args, format);
    vprint(Level::error, format, args);
    va_end(args);
    print(Level::error, "\n");
    printFlush();
    std::fflush(stdout);
    std::exit(EXIT_FAILURE);
}

void trace(int level, const char* format, ...) {
    if (!traceHook)
        return;
    std::array<char, 512> line{};
    std::va_list args;
    va_start(args, format);
    std::vsnprintf(line.data(), line.size(), format, args);
    va_end(args);
    traceHook(level, line.data());
}
