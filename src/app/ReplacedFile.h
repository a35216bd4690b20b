#pragma once

#include <cstdint>
#include <span>
#include <string>

/// ReplacedFile: a file of which a reader always finds a whole one: a new file takes its place.
class ReplacedFile {
public:
    /// A path, or empty: no file.
    void open(const std::string& path);
    const std::string& path() const { return path_; }

    enum class Disk : bool { mayWait, isWaitedFor };
    /// 0 or the error number; then the file is as it was. Nothing but async-signal-safe calls: also
    /// the handler of a signal that came meanwhile can do it.
    int write(std::span<const std::uint8_t> content, Disk disk) const;
    /// Tells of a failure when it begins and when it has ended.
    void tell(int error);

private:
    std::string path_, fresh_;
    bool failing_ = false;
};
