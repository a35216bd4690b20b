#include "fuzz/fatal.h"

#include <array>
#include <cstdarg>
#include <cstdio>

/// In the place of `void fatal(const char*, ...)`.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the linker wants this name
extern "C" [[noreturn]] void __wrap__Z5fatalPKcz(const char* format, ...);

void __wrap__Z5fatalPKcz(const char* format, ...) {
    std::array<char, 1000> line{};
    std::va_list args;
    va_start(args, format);
    std::vsnprintf(line.data(), line.size(), format, args);
    va_end(args);
    throw FatalLine{line.data()};
}
