#pragma once

#include <filesystem>

/// StateFolder: the folder of what the gateway writes for itself. One process has it at a time.

namespace gateway {

class StateFolder {
public:
    /// Makes it where it is missing, and takes it until this or the process ends, however that
    /// happens. std::runtime_error where that cannot be, or another process has it.
    explicit StateFolder(const std::filesystem::path& path);
    ~StateFolder();
    StateFolder(const StateFolder&) = delete;
    StateFolder& operator=(const StateFolder&) = delete;

    /// Whether the path leads to it.
    bool is(const std::filesystem::path& path) const;

private:
    std::filesystem::path path_;
    int lock_ = -1; // descriptor
};

} // namespace gateway
