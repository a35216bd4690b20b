#include "common/Findings.h"

#include <cstdarg>
#include <cstdio>

std::string text(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    std::va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    std::string out(static_cast<std::size_t>(length > 0 ? length : 0), '\0');
    std::vsnprintf(out.data(), out.size() + 1, format, again);
    va_end(again);
    return out;
}
