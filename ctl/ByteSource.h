#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace ctl::dump {

/// ByteSource: bytes of a file, of standard input ("-"), or of a TCP connection (HOST:PORT); a file
/// of that name wins. Failures are std::runtime_error that names the source.
class ByteSource {
public:
    explicit ByteSource(const std::string& name);
    ~ByteSource();
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;

    /// Waits for bytes; 0 at the end, or after an interrupt (SIGINT, SIGTERM).
    std::size_t read(std::span<std::uint8_t> block);

private:
    std::string name_;
    int fd_ = -1;
};

} // namespace ctl::dump
