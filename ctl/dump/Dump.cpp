#include "ctl/dump/Dump.h"

#include "ctl/dump/ByteSource.h"
#include "ctl/dump/Describe.h"
#include "rtcm/layouts/ReplyFrame.h"

#include <array>
#include <cstdio>
#include <iostream>
#include <stdexcept>

namespace ctl::dump {

Dump::Dump(DumpOptions options, std::ostream& out)
    : report_(options.json ? jsonReport(out, options.verbose) : textReport(out, options.verbose)) {}

void Dump::take(std::span<const std::uint8_t> bytes) {
    scanner_.feed(bytes);
    tell();
}

void Dump::finish() {
    scanner_.end();
    tell();
    report_->summary(counts_);
}

int Dump::status() const {
    return counts_.faults > 0 || !anyGood(counts_) ? 1 : 0;
}

void Dump::tell() {
    while (const auto found = scanner_.next()) {
        if (found->kind == Found::kMessage)
            tellMessage(*found, Depth::kStream);
        else if (found->kind == Found::kReply)
            tellReply(*found);
        else
            tellSkipped(*found, Depth::kStream);
    }
}

void Dump::tellMessage(const Found& found, Depth depth) {
    Description d;
    if (found.good) {
        d = describe(found.bytes);
        ++counts_.messages[d.type];
        counts_.epochs += d.more == false ? 1U : 0U;
        counts_.tooShort += d.tooShort ? 1U : 0U;
    } else { // what it says cannot be believed; its number is a hint
        d.type = messageType(found.bytes);
        d.name = messageName(d.type);
        countBad(found);
    }
    report_->message(found, d, depth);
}

void Dump::tellReply(const Found& found) {
    if (found.good)
        ++counts_.replies;
    else
        countBad(found);
    ReplyHead head;
    BitReader in(found.bytes);
    layoutReplyHead(in, head);
    report_->reply(found, head.requestWord, head.kind);
    if (!found.good)
        return;
    FrameScanner inside(FrameScanner::Replies::kIgnore, found.offset + kReplyHeadBytes);
    inside.feed(found.bytes.subspan(kReplyHeadBytes,
                                    found.bytes.size() - kReplyHeadBytes - kReplyCheckBytes));
    inside.end();
    while (const auto piece = inside.next()) {
        if (piece->kind == Found::kMessage)
            tellMessage(*piece, Depth::kReply);
        else
            tellSkipped(*piece, Depth::kReply);
    }
}

void Dump::tellSkipped(const Found& found, Depth depth) {
    counts_.skippedBytes += found.bytes.size();
    if (found.cut && depth == Depth::kStream)
        counts_.cutBytes += found.bytes.size();
    else
        countFault(found);
    report_->skipped(found, depth);
}

void Dump::countBad(const Found& found) {
    ++counts_.badFrames;
    countFault(found);
}

void Dump::countFault(const Found& found) {
    if (anyGood(counts_))
        ++counts_.faults;
    else
        counts_.leadingBytes += found.bytes.size();
}

int runDump(const std::string& name, DumpOptions options) {
    try {
        ByteSource source(name);
        Dump dump(options, std::cout);
        std::array<std::uint8_t, 16384> block;
        while (const std::size_t n = source.read(block)) {
            dump.take(std::span(block).first(n));
            std::cout.flush();
        }
        dump.finish();
        if (!std::cout.flush())
            throw std::runtime_error("standard output could not be written to its end");
        return dump.status();
    } catch (const std::runtime_error& e) {
        std::cout.flush();
        std::cerr << "kestrunectl dump: " << e.what() << '\n';
        return 2;
    }
}

} // namespace ctl::dump
