#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <sys/stat.h>

/// FileTime: when a file was written.

namespace gateway {

/// Since 1970; nothing where there is none. By stat, because the file times of <filesystem> have 32
/// bits of seconds on 32-bit ARM.
inline std::optional<std::chrono::nanoseconds> writtenAt(const std::filesystem::path& file) {
    struct stat is {};
    if (stat(file.c_str(), &is) != 0)
        return std::nullopt;
    return std::chrono::seconds(is.st_mtim.tv_sec) + std::chrono::nanoseconds(is.st_mtim.tv_nsec);
}

} // namespace gateway
