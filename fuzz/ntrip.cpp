#include "fuzz/support.h"

#include "gateway/ntrip/Answer.h"
#include "gateway/ntrip/Gga.h"
#include "gateway/ntrip/Request.h"
#include "gateway/ntrip/SourceTable.h"

#include <algorithm>
#include <cmath>

// The protocol of casters; the first byte says which part of it reads the rest.

namespace {

using namespace gateway;
using namespace gateway::ntrip;

bool printableText(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

AnswerReader::State stateOf(const std::string& answer, AnswerReader::Asked asked) {
    AnswerReader reader(Address{}, asked);
    std::vector<std::uint8_t> data;
    reader.take(Bytes(reinterpret_cast<const std::uint8_t*>(answer.data()), answer.size()), data);
    return reader.state();
}

void requirePushInPieces(const Request& request, Bytes body) {
    PushReader whole(request), pieces(request);
    std::vector<std::uint8_t> data, collected;
    const BodyState state = whole.take(body, data);
    BodyState last = state;
    inPieces(body, [&](Bytes piece) { last = pieces.take(piece, collected); });
    require(last == state && collected == data, "a push in pieces is the same");
}

void readRequest(Bytes bytes) {
    const std::string_view text = textOf(bytes);
    const std::optional<std::size_t> length = headLength(text);
    const auto [request, refusal] = parseRequest(text.substr(0, length.value_or(text.size())));
    for (const std::string* shown : {&request.mount, &request.user, &request.agent, &request.gga})
        require(printableText(*shown), "texts of a client are printable");
    const bool push = request.kind == Request::Kind::push;
    const auto asked = push ? AnswerReader::Asked::push : AnswerReader::Asked::stream;
    using State = AnswerReader::State;
    require(stateOf(grantText(request, "today"), asked) == State::stream, "a grant is understood");
    require(stateOf(refusalText(request, Refusal::unauthorized, "today"), asked) == State::refused,
            "a refusal is understood");
    if (!push)
        require(stateOf(tableAnswer(request, "ENDSOURCETABLE\r\n", "today"), asked) == State::table,
                "a source table is understood");
    if (push && !refusal && length)
        requirePushInPieces(request, bytes.subspan(*length));
}

void readAnswer(Bytes bytes) {
    Address address;
    address.password = Secret("hidden");
    const auto asked =
        bytes.size() % 2 == 0 ? AnswerReader::Asked::stream : AnswerReader::Asked::push;
    AnswerReader whole(address, asked), pieces(address, asked);
    std::vector<std::uint8_t> data, collected;
    whole.take(bytes, data);
    inPieces(bytes, [&](Bytes piece) { pieces.take(piece, collected); });
    for (int closed = 0; closed < 2; ++closed) {
        require(whole.state() == pieces.state() && whole.status() == pieces.status() &&
                    whole.what() == pieces.what() && data == collected,
                "an answer in pieces is the same");
        require(printableText(whole.what()) && whole.what().find("hidden") == std::string::npos,
                "what is told is printable and has no secret");
        whole.close();
        pieces.close();
    }
    require(whole.state() != AnswerReader::State::head, "a closed answer is judged");
}

void readTable(std::string_view text) {
    StreamEntry entry;
    entry.mountpoint = entry.identifier = entry.misc = text;
    std::string line = streamLine(entry);
    require(line.find_first_of("\r\n") == line.npos, "an entry is one line");
    constexpr std::string_view quoted = "\";\"";
    std::size_t inside = 0; // fields
    for (std::size_t at = 0; (at = line.find(quoted, at)) != line.npos; ++inside)
        line.erase(at, quoted.size());
    require(inside == 3U * static_cast<std::size_t>(std::count(text.begin(), text.end(), ';')),
            "a semicolon inside a field is quoted");
    require(std::count(line.begin(), line.end(), ';') == 17, "the others are between 18 fields");
    require(line.find('"') == line.npos, "nothing else is in quotation marks");
}

void readGga(std::string_view text) {
    GgaReader whole, pieces;
    const std::optional<Gga> last = whole.take(text);
    std::optional<Gga> other;
    for (const char c : text)
        if (const auto place = pieces.take({&c, 1}))
            other = place;
    require(last.has_value() == other.has_value(), "positions in pieces are the same");
    if (!last)
        return;
    require(std::abs(last->latitudeDeg) <= 90.0 && std::abs(last->longitudeDeg) <= 180.0,
            "a position is on the earth");
    const std::optional<Gga> again = parseGga(ggaText(*last, 0.0));
    require(again && std::abs(again->latitudeDeg - last->latitudeDeg) < 1e-6 &&
                std::abs(again->longitudeDeg - last->longitudeDeg) < 1e-6 &&
                std::abs(again->heightM - last->heightM) < 1e-3 &&
                again->quality == last->quality && again->satellites == last->satellites,
            "a position that is written is read again");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const Bytes rest = Bytes(data, size).subspan(1);
    switch (data[0]) {
    case 'r':
        readRequest(rest);
        break;
    case 'a':
        readAnswer(rest);
        break;
    case 't':
        readTable(textOf(rest));
        break;
    case 'g':
        readGga(textOf(rest));
        break;
    default:
        break;
    }
    return 0;
}
