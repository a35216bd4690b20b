#include "fuzz/support.h"

#include "ctl/dump/Dump.h"

#include <cjson/cJSON.h>

#include <memory>
#include <sstream>

// `kestrunectl dump`: the same text for a stream in blocks and in pieces, and a JSON object a line.

namespace {

using namespace ctl::dump;

struct Dumped {
    std::string text;
    int status = 0;
    bool operator==(const Dumped&) const = default;
};

template <class Feed> Dumped dumped(DumpOptions options, const Feed& feed) {
    std::ostringstream out;
    Dump dump(options, out);
    feed(dump);
    dump.finish();
    return {out.str(), dump.status()};
}

Dumped dumpTwice(DumpOptions options, Bytes stream) {
    Dumped block = dumped(options, [&](Dump& dump) { dump.take(stream); });
    const Dumped pieces = dumped(
        options, [&](Dump& dump) { inPieces(stream, [&](Bytes piece) { dump.take(piece); }); });
    require(block == pieces, "the same text for a block and for pieces");
    return block;
}

void requireText(std::string_view text) {
    for (const char c : text)
        require(c == '\n' || (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F),
                "no byte that a terminal obeys");
}

void requireJsonLines(const std::string& text) {
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        const std::unique_ptr<cJSON, void (*)(cJSON*)> object(cJSON_Parse(line.c_str()),
                                                              cJSON_Delete);
        require(cJSON_IsObject(object.get()), "a JSON object a line");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<std::uint8_t> stream = withCheckWords({data, size});
    const Dumped text = dumpTwice({.verbose = true}, stream);
    const Dumped json = dumpTwice({.verbose = true, .json = true}, stream);
    require(text.status == json.status, "the same status for text and JSON");
    requireText(text.text);
    requireJsonLines(json.text);
    return 0;
}
