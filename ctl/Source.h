#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

/// Source: bytes of a file, of standard input ("-"), or of a TCP connection (HOST:PORT); a file of
/// that name wins. Failures are std::runtime_error that names the source.
class Source {
public:
    explicit Source(const std::string& name);
    ~Source();
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    /// Waits for bytes; 0 at the end, or after an interrupt (SIGINT, SIGTERM).
    std::size_t read(std::span<std::uint8_t> block);

private:
    std::string name_;
    int fd_ = -1;
};
