/// Which frames of a stream the service accepts, and the reply frame that carries its messages.
#pragma once

#include "reference/standard/frame.h"

namespace ref {

/// The frames the service accepts: bytes before a preamble are skipped; a frame with a wrong check
/// word is dropped as a whole, without a search inside it; an unfinished one at the end is not
/// seen.
std::vector<Frame> goodFrames(std::span<const std::uint8_t> stream);

/// The same from a stream that comes in pieces.
class FrameCutter {
public:
    std::vector<Frame> take(std::span<const std::uint8_t> piece);
    void forget(); ///< what is held of an unfinished frame; offsets go on

private:
    Bytes held_;
    std::size_t before_ = 0; // bytes of the stream before those held
};

struct Reply {
    std::uint32_t word = 0; ///< request word
    std::uint16_t kind = 0;
    std::vector<Frame> messages;
};

/// Opens one reply frame; std::runtime_error says what is wrong with it.
Reply openReply(std::span<const std::uint8_t> bytes);

} // namespace ref
