#include "base/LineReader.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

LineReader::LineReader(const std::string& path, std::size_t longest)
    : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC)), longest_(longest) {
    // A directory opens, but cannot be read.
    if (fd_ >= 0 && !fill() && errno == EISDIR) {
        close(fd_);
        fd_ = -1;
    }
}

LineReader::~LineReader() {
    if (fd_ >= 0)
        close(fd_);
}

bool LineReader::fill() {
    ssize_t n = -1;
    do {
        errno = 0;
        n = read(fd_, block_.data(), block_.size());
    } while (n < 0 && errno == EINTR);
    at_ = 0;
    held_ = n > 0 && taken_ < longest_ ? static_cast<std::size_t>(n) : 0;
    taken_ += held_;
    return held_ > 0;
}

bool LineReader::next(std::string_view& line) {
    if (fd_ < 0 || (at_ == held_ && !fill()))
        return false;
    std::size_t length = 0;
    cut_ = false;
    while (at_ < held_ || fill()) {
        const char c = block_[at_++];
        if (c == '\n')
            break;
        if (length < line_.size())
            line_[length++] = c;
        else
            cut_ = true;
    }
    if (!cut_ && length > 0 && line_[length - 1] == '\r')
        --length;
    if (length > kLongestLine) {
        length = kLongestLine;
        cut_ = true;
    }
    ++lineNumber_;
    line = {line_.data(), length};
    return true;
}
