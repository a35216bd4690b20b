#pragma once

#include "base/Print.h"
#include "net/LastingWarnings.h"
#include "net/LineWriter.h"

#include <string>
#include <string_view>

/// Log: what the service prints, by whole lines, to a descriptor that it never waits for. Where
/// that is the journal's (JOURNAL_STREAM, systemd.exec(5)) each line begins with its level
/// (sd-daemon(3)), and a warning that lasted is told once more when it has ended. Everywhere else
/// the lines are as they were printed.

class Log final : public PrintTarget {
public:
    Log(int fd, const char* journalStream);
    void take(Level level, std::string_view text) override;
    void take(const Lasting& what, std::string_view text) override;
    void epochEnd() override;
    void ended(Cause cause) override;
    void flush() override;
    void lastLine() override;
    std::uint64_t droppedLines() const override { return writer_.dropped(); }

private:
    void tellEnded(std::string_view line);

    bool leveled_;
    LineWriter writer_;
    LastingWarnings lasting_;
    std::string line_; // that has no end yet
};

/// Opens those of the descriptors 0 to 2 that are closed on /dev/null, so that no other file or
/// connection becomes standard output.
void openStandardDescriptors();
