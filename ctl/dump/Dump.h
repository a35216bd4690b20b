#pragma once

#include "ctl/dump/FrameScanner.h"
#include "ctl/dump/Render.h"

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <span>
#include <string>

/// Dump: `kestrunectl dump`, a stream of RTCM 3 messages and reply frames in readable form.

namespace ctl::dump {

struct DumpOptions {
    bool verbose = false; // every field
    bool json = false;    // one object a line
};

class Dump {
public:
    Dump(DumpOptions options, std::ostream& out);

    void take(std::span<const std::uint8_t> bytes);
    /// The rest, and the counts.
    void finish();
    /// 1 where a check word was wrong or bytes were skipped behind the first good frame, but for a
    /// frame that the end cuts off, and where there was no good frame; else 0.
    int status() const;

private:
    void tell();
    void tellMessage(const Found& found, Depth depth);
    void tellReply(const Found& found);
    void tellSkipped(const Found& found, Depth depth);
    void countBad(const Found& found);
    void countFault(const Found& found);

    FrameScanner scanner_;
    std::unique_ptr<Report> report_;
    Counts counts_;
};

/// Dumps a file, standard input ("-") or what HOST:PORT sends to standard output; the exit status:
/// 0, 1 as Dump::status, 2 unreadable.
int runDump(const std::string& name, DumpOptions options);

} // namespace ctl::dump
