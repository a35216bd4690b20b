#include "common/Print.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

TraceHook traceHook = nullptr;

void print(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
}

void fatal(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
    std::putchar('\n');
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
