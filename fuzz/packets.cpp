#include "fuzz/support.h"

#include "beside/datapack.h"
#include "tests/packets.h"

// Command packets: those of any bytes are the ones that the rules of the protocol find, and a
// packet that is built is found again.

namespace {

/// The first line is the channel, the rest the body.
void requireRoundTrip(std::string_view input) {
    const std::string_view channel = input.substr(0, input.find('\n'));
    const std::string_view body = input.substr(std::min(channel.size() + 1, input.size()));
    constexpr int kPub = 2;
    PackState state;
    // Deliberate: the first "len:" counts, and an empty line ends the header.
    if (body.empty() || channel.find("len:") != std::string_view::npos ||
        channel.find("\r\n") != std::string_view::npos || channel.ends_with('\r') ||
        splicingcommand(state, kPub, channel, body) != 0)
        return;
    const Events events = parse(state.output, require);
    require(events.size() == 1 && events[0].text == body, "a packet that is built is found");
}

Printed printed;
std::string lines;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string stream(textOf({data, size}));
    require(parse(stream, require) == predict(stream), "the packets that the rules find");
    requireRoundTrip(stream);
    printed.take(lines);
    return 0;
}
