#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

/// LineReader: the lines of a file, one after another, without heap memory. A line is given
/// without its end (LF or CR LF) and cut at kLongestLine bytes; the rest of it is ignored.
/// Reading stops at `longest` bytes, so that it ends on a device, too.
class LineReader {
public:
    static constexpr std::size_t kLongestLine = 1024;
    static constexpr std::size_t kLongestFile = std::size_t{256} << 20;

    explicit LineReader(const std::string& path, std::size_t longest = kLongestFile);
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    bool isOpen() const { return fd_ >= 0; }
    /// Next line into `line` (valid until the next call); false at the end of the file.
    bool next(std::string_view& line);
    /// 1-based number of the line given last.
    int lineNumber() const { return lineNumber_; }
    /// The line given last was longer than kLongestLine.
    bool cut() const { return cut_; }

private:
    bool fill();

    int fd_ = -1;
    const std::size_t longest_;
    int lineNumber_ = 0;
    bool cut_ = false;
    std::size_t at_ = 0;
    std::size_t held_ = 0;
    std::size_t taken_ = 0; // of the file
    std::array<char, 4096> block_{};
    std::array<char, kLongestLine + 1> line_{}; // with room for a carriage return
};
