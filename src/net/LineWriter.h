#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// LineWriter: whole lines to a descriptor whose reader is not waited for. What does not fit is
/// dropped by whole lines; their number is told in front of the next line that fits. Of a line that
/// the descriptor took in part the rest is kept, and goes first.

class LineWriter {
public:
    /// `mark` begins the line that tells of dropped ones.
    LineWriter(int fd, std::string_view mark);
    ~LineWriter();
    LineWriter(const LineWriter&) = delete;
    LineWriter& operator=(const LineWriter&) = delete;

    /// A line with its end.
    void write(std::string_view line);
    /// From now on lines may wait for room, that long in all.
    void waitFor(std::chrono::milliseconds limit);

private:
    void tellDropped();
    bool finishLast();
    bool offer(std::string_view text);
    std::size_t writeNow(std::string_view text) const;
    bool waitForRoom() const;

    int fd_;
    bool owned_ = false;
    bool socket_ = false;
    std::string mark_;
    std::string rest_; // of the line that was taken in part
    std::uint64_t dropped_ = 0;
    std::chrono::nanoseconds waitsUntil_{}; // of the monotonic clock; zero: no waiting
};
