#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// LineWriter: whole lines to a descriptor whose reader is not waited for. They are collected, and
/// go out together. What does not fit then is dropped by whole lines; their number is told in front
/// of the next line that fits. Of a line that the descriptor took in part the rest is kept, and
/// goes first.

class LineWriter {
public:
    /// `mark` begins the line that tells of dropped ones.
    LineWriter(int fd, std::string_view mark);
    ~LineWriter();
    LineWriter(const LineWriter&) = delete;
    LineWriter& operator=(const LineWriter&) = delete;

    /// A line with its end; where there is no room for it the collected ones go out.
    void write(std::string_view line);
    /// Lets the collected lines out. It is called by a handler of signals, too: it takes no memory
    /// and calls only what is safe there.
    void flush();
    /// From now on lines may wait for room, that long in all.
    void waitFor(std::chrono::milliseconds limit);
    /// Lines dropped since the start.
    std::uint64_t dropped() const { return droppedInAll_; }

private:
    bool tellDropped(std::size_t at);
    std::size_t pieceOf(std::string_view text) const;
    std::size_t writeNow(std::string_view piece) const;
    bool waitForRoom() const;

    int fd_;
    bool owned_ = false;
    bool socket_ = false;
    bool datagrams_ = false; // one for each line
    bool asksFirst_ = false; // whether it has room: a write might wait
    std::string mark_;
    std::string lines_;
    bool rest_ = false;         // the first of the lines was taken in part
    std::uint64_t dropped_ = 0; // since it was told last
    std::uint64_t droppedInAll_ = 0;
    std::chrono::nanoseconds waitsUntil_{}; // of the monotonic clock; zero: no waiting
};
