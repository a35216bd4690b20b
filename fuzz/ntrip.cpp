#include "fuzz/support.h"

#include "gateway/ntrip/Answer.h"
#include "gateway/ntrip/Gga.h"
#include "gateway/ntrip/Request.h"
#include "gateway/ntrip/SourceTable.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>

// The protocol of casters; the first byte says which part of it reads the rest.

namespace {

using namespace gateway;
using namespace gateway::ntrip;

bool printableText(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

bool isUtf8(const std::string& text) {
    try {
        return !nlohmann::json(text).dump().empty();
    } catch (const nlohmann::json::exception&) {
        return false;
    }
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
    for (const std::string* shown : {&request.mount, &request.user, &request.gga})
        require(printableText(*shown), "texts of a client are printable");
    for (const char c : request.agent)
        require(static_cast<unsigned char>(c) >= ' ' && c != 0x7F, "an agent has no controls");
    require(isUtf8(request.agent), "an agent is UTF-8");
    const bool push = request.kind == Request::Kind::push;
    const auto asked = push ? AnswerReader::Asked::push : AnswerReader::Asked::stream;
    using State = AnswerReader::State;
    require(stateOf(grantText(request, "today"), asked) == State::stream, "a grant is understood");
    for (const Refusal why :
         {Refusal::malformed, Refusal::method, Refusal::unauthorized, Refusal::notFound,
          Refusal::taken, Refusal::tooMany, Refusal::lockedOut})
        require(stateOf(refusalText(request, why, "today"), asked) == State::refused,
                "a refusal is understood");
    if (!push)
        require(stateOf(tableAnswer(request, sourceTable({}, {}), httpDate(0)), asked) ==
                    State::table,
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

/// Data that goes out in chunks comes in as it was.
void sendInChunks(std::string_view data) {
    Request push;
    push.chunked = true;
    PushReader reader(push);
    std::vector<std::uint8_t> got;
    const std::string sent = chunk(data) + chunk(data);
    const auto state =
        reader.take(Bytes(reinterpret_cast<const std::uint8_t*>(sent.data()), sent.size()), got);
    const std::string twice = std::string(data) + std::string(data);
    require(
        state == BodyState::flows &&
            std::equal(got.begin(), got.end(), twice.begin(), twice.end(),
                       [](std::uint8_t a, char b) { return a == static_cast<std::uint8_t>(b); }),
        "chunks hold what was sent");
}

/// What the gateway asks of a caster, one that reads as ours does understands.
void askCaster(std::string_view text) {
    for (const Use use : {Use::source, Use::output}) {
        Address address;
        try {
            address = parseAddress(text, use);
        } catch (const AddressError&) {
            continue;
        }
        const bool push = address.scheme == Scheme::ntripSource;
        if (!push && address.scheme != Scheme::ntrip && address.scheme != Scheme::ntrips)
            continue;
        // What is not printable a caster of ours refuses.
        const std::string secrets = address.user + address.password.reveal();
        if (!std::ranges::all_of(secrets, [](char c) { return c >= ' ' && c < 0x7F; }) ||
            address.user.find(':') != std::string::npos)
            continue;
        const std::string gga = address.gga ? ggaText({1, 2, 3, 1, 12}, 0.0) : "";
        const std::string head = push ? pushRequest(address, "M;x") : streamRequest(address, gga);
        const auto [request, refusal] = parseRequest(head);
        require(headLength(head) == head.size() && !refusal, "our own request is one");
        require(request.kind == (push ? Request::Kind::push : Request::Kind::stream),
                "it asks for what is wanted");
        require(request.mount == address.mount &&
                    request.user == (push && address.version == 1 ? "" : address.user) &&
                    request.password.reveal() == address.password.reveal(),
                "it names mountpoint, user and password");
    }
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
    case 'c':
        sendInChunks(textOf(rest));
        break;
    case 'w':
        askCaster(textOf(rest));
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
