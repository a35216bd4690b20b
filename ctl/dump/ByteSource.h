#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace ctl::dump {

/// ByteSource: bytes of a file, of standard input ("-"), or of a TCP connection (HOST:PORT); a file
/// of that name wins. Failures are std::runtime_error that names the source; a peer that does not
/// take the connection within 10 s is one.
class ByteSource {
public:
    explicit ByteSource(const std::string& name);
    ~ByteSource();
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;

    /// Why there are no more bytes.
    enum class End { none, end, interrupt, time };

    /// Waits for bytes, where an instant is given until then (monotonicNow); 0 at the end, after an
    /// interrupt (SIGINT, SIGTERM) or at that instant.
    std::size_t read(std::span<std::uint8_t> block,
                     std::optional<std::chrono::nanoseconds> until = std::nullopt);
    End end() const { return end_; }
    /// Whether it is no file, whose bytes are all there.
    bool live() const { return live_; }

private:
    std::size_t none(End why) {
        end_ = why;
        return 0;
    }

    End end_ = End::none;
    bool live_ = true;
    std::string name_;
    int fd_ = -1;
};

} // namespace ctl::dump
