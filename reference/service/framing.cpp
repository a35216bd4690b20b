#include "framing.h"

namespace ref {

std::vector<Frame> goodFrames(std::span<const std::uint8_t> stream) {
    return FrameCutter().take(stream);
}

std::vector<Frame> FrameCutter::take(std::span<const std::uint8_t> piece) {
    held_.insert(held_.end(), piece.begin(), piece.end());
    std::vector<Frame> frames;
    std::size_t at = 0;
    while (at < held_.size()) {
        if (held_[at] != 0xD3) {
            ++at;
            continue;
        }
        if (at + 3 > held_.size())
            break;
        const std::size_t length = (held_[at + 1] & 3u) * 256u + held_[at + 2] + 6u;
        if (at + length > held_.size())
            break;
        const std::span whole(held_.data() + at, length);
        // a frame divided together with its check word leaves nothing
        if (crc24q(whole) == 0) {
            Frame f{before_ + at, Bytes(whole.begin(), whole.end()), 0,
                    Bytes(whole.begin() + 3, whole.end() - 3)};
            f.type = f.body.size() < 2 ? 0 : static_cast<int>(BitSource(f.body).u(12));
            frames.push_back(std::move(f));
        }
        at += length;
    }
    held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(at));
    before_ += at;
    return frames;
}

void FrameCutter::forget() {
    before_ += held_.size();
    held_.clear();
}

Reply openReply(std::span<const std::uint8_t> bytes) {
    const auto need = [](bool holds, const std::string& what) {
        if (!holds)
            throw std::runtime_error("reply frame: " + what);
    };
    need(bytes.size() >= 14, "shorter than header and check word");
    BitSource in(bytes);
    need(in.u(8) == 0xDA, "start byte is not 0xDA");
    const auto n = static_cast<std::size_t>(in.u(16)) + 3;
    need(bytes.size() >= n + 4 && n >= 10, "cut short");
    need(bytes.size() == n + 4, "bytes after the check word");
    need(in.u(8) == 0x68, "byte 3 is not 0x68");
    Reply reply;
    reply.word = static_cast<std::uint32_t>(in.u(32));
    reply.kind = static_cast<std::uint16_t>(in.u(16));
    need(reply.kind == 6, "bytes 8-9 are not 6");
    need(BitSource(bytes.subspan(n)).u(32) == crc24q(bytes.first(n)), "wrong check word");
    reply.messages = goodFrames(bytes.subspan(10, n - 10));
    std::size_t at = 10;
    for (const Frame& f : reply.messages)
        at += f.bytes.size();
    need(at == n, std::to_string(n - at) + " bytes that are no good message");
    return reply;
}

} // namespace ref
