#include "net/Log.h"

#include "base/Findings.h"
#include "gnss/Clock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t kLongLine = 4096; // room that is there from the start
constexpr std::chrono::seconds kLastLine{1};

/// Whether JOURNAL_STREAM, device and inode in decimal, names the descriptor: the process that set
/// it may have had another standard output.
bool isJournal(int fd, const char* journalStream) {
    struct stat is {};
    return journalStream && fstat(fd, &is) == 0 &&
           journalStream == text("%llu:%llu", static_cast<unsigned long long>(is.st_dev),
                                 static_cast<unsigned long long>(is.st_ino));
}

std::string mark(Level level) {
    return {'<', static_cast<char>('0' + static_cast<int>(level)), '>'};
}

} // namespace

Log::Log(int fd, const char* journalStream)
    : leveled_(isJournal(fd, journalStream)), writer_(fd, leveled_ ? mark(Level::warning) : "") {
    line_.reserve(kLongLine);
}

void Log::take(Level level, std::string_view text) {
    while (!text.empty()) {
        if (leveled_ && line_.empty())
            line_ += mark(level);
        const std::size_t end = text.find('\n');
        const std::string_view piece = text.substr(0, end == text.npos ? end : end + 1);
        line_ += piece;
        text.remove_prefix(piece.size());
        if (end == text.npos)
            continue; // its end comes with a later text
        writer_.write(line_);
        line_.clear();
    }
}

void Log::take(const Lasting& what, std::string_view text) {
    take(leveled_ ? lasting_.levelOf(what, text, monotonicNow()) : Level::warning, text);
}

void Log::epochEnd() {
    if (leveled_)
        lasting_.epochEnd(monotonicNow(), [this](std::string_view line) { tellEnded(line); });
}

void Log::ended(Cause cause) {
    lasting_.ended(cause, [this](std::string_view line) { tellEnded(line); });
}

void Log::tellEnded(std::string_view line) {
    take(Level::notice, "***INFO: Ended: ");
    take(Level::notice, line);
    take(Level::notice, "\n");
}

void Log::flush() {
    writer_.flush();
}

void Log::lastLine() {
    writer_.waitFor(kLastLine);
}

void openStandardDescriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd)
        if (fcntl(fd, F_GETFD) == -1) // the lowest free one is taken
            static_cast<void>(open("/dev/null", O_RDWR));
}
