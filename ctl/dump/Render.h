#pragma once

#include "ctl/dump/Describe.h"
#include "ctl/dump/FrameScanner.h"

#include <cstdint>
#include <iosfwd>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// Render: the pieces of a dumped stream as lines of text or of JSON.

namespace ctl::dump {

struct Counts {
    std::map<int, std::uint64_t> messages; // with a right check word, by type
    std::uint64_t replies = 0;
    std::uint64_t badFrames = 0;
    std::uint64_t skippedBytes = 0;
    std::uint64_t leadingBytes = 0; // of those skipped, and of bad frames, before any good frame
    std::uint64_t cutBytes = 0;     // of those skipped: of a frame that the end cuts off
    std::uint64_t faults = 0;       // bad frames and pieces skipped elsewhere
    std::uint64_t tooShort = 0;     // messages that end before their fields do
    std::uint64_t epochs = 0; // observation messages that say they are the last of their epoch
};

/// Whether a good frame has come.
bool anyGood(const Counts& counts);
/// What a receiver behind this stream would miss, and where the stream was joined and left.
std::vector<std::string> remarks(const Counts& counts);

enum class Depth { kStream, kReply };

class Report {
public:
    virtual ~Report() = default;
    virtual void message(const Found& found, const Description& d, Depth depth) = 0;
    virtual void reply(const Found& found, std::uint32_t word, int kind) = 0;
    virtual void skipped(const Found& found, Depth depth) = 0;
    virtual void summary(const Counts& counts) = 0;
};

std::unique_ptr<Report> textReport(std::ostream& out, bool verbose);
std::unique_ptr<Report> jsonReport(std::ostream& out, bool verbose);

} // namespace ctl::dump
