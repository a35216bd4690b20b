#include "ctl/dump/FrameScanner.h"

#include "base/bits.h"
#include "rtcm/Frame.h"
#include "rtcm/layouts/ReplyFrame.h"

namespace ctl::dump {

namespace {

bool checks(std::span<const std::uint8_t> frame, std::size_t checkBytes) {
    const std::size_t n = frame.size() - checkBytes;
    return crc24q(frame.first(n)) == getbitu(frame, 8 * n, static_cast<int>(8 * checkBytes));
}

} // namespace

void FrameScanner::feed(std::span<const std::uint8_t> bytes) {
    buff_.erase(buff_.begin(), buff_.begin() + static_cast<std::ptrdiff_t>(first_));
    offset_ += first_;
    at_ -= first_;
    first_ = 0;
    buff_.insert(buff_.end(), bytes.begin(), bytes.end());
}

bool FrameScanner::startByte(std::uint8_t byte) const {
    return byte == kPreamble || (byte == kReplyStart && replies_ == Replies::kLookFor);
}

std::optional<std::size_t> FrameScanner::frameAt(std::size_t at) const {
    const std::size_t left = buff_.size() - at;
    if (!startByte(buff_[at]))
        return 0;
    if (buff_[at] == kPreamble) {
        if (left < kHeaderBytes)
            return std::nullopt;
        return getbitu(buff_, 8 * at + 14, 10) + kHeaderBytes + kCheckBytes;
    }
    if (left < 4)
        return std::nullopt;
    ReplyHead head;
    BitReader in{std::span(buff_).subspan(at)};
    layoutReplyHead(in, head);
    return head.begins() ? head.frameBytes() : 0;
}

Found FrameScanner::take(Found::Kind kind, std::size_t length, bool good) {
    const Found found{kind, offset_ + first_, std::span(buff_).subspan(first_, length), good,
                      false};
    first_ += length;
    return found;
}

std::optional<Found> FrameScanner::next() {
    for (;; ++at_) {
        const std::size_t skipped = at_ - first_;
        const bool exhausted = at_ == buff_.size();
        if (skipped == kMaxSkipped || (exhausted && ended_ && skipped > 0)) {
            const auto announced = frameAt(first_);
            Found found = take(Found::kSkipped, skipped, false);
            found.cut =
                exhausted && ended_ && (inCutReply_ || announced.value_or(kReplyBytes) > skipped);
            return found;
        }
        if (exhausted)
            return std::nullopt;
        const std::optional<std::size_t> length = frameAt(at_);
        if (length && *length == 0)
            continue;
        const std::size_t left = buff_.size() - at_;
        if (!length || *length > left) {
            if (!ended_)
                return std::nullopt;
            behindCut_ = true; // a whole frame may hide in it
            continue;
        }
        const auto frame = std::span(buff_).subspan(at_, *length);
        const Found::Kind kind = buff_[at_] == kPreamble ? Found::kMessage : Found::kReply;
        const bool good = checks(frame, kind == Found::kMessage ? kCheckBytes : kReplyCheckBytes);
        if (!good) {
            // What follows decides whether this was a frame at all.
            if (*length == left && !ended_)
                return std::nullopt;
            if (behindCut_ || (*length < left && !startByte(buff_[at_ + *length])))
                continue;
        }
        if (skipped > 0) {
            const bool reply = buff_[first_] == kReplyStart;
            const auto announced = frameAt(first_);
            Found found = take(Found::kSkipped, skipped, false);
            // The messages of a reply whose end is missing are whole frames.
            inCutReply_ = inCutReply_ || (behindCut_ && reply && announced > skipped + left);
            found.cut = inCutReply_;
            return found;
        }
        at_ += *length;
        return take(kind, *length, good);
    }
}

} // namespace ctl::dump
