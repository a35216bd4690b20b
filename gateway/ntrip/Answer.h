#pragma once

#include "gateway/net/Address.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

/// Answer: what the gateway asks of other people's casters, and what they say. Bytes in, bytes out;
/// no sockets.

namespace gateway::ntrip {

/// The request for the stream of an ntrip or ntrips address; gga: a sentence for the head of
/// version 2, empty = none. Through a proxy an ntrip address is asked for by its whole name.
std::string streamRequest(const Address& address, const std::string& gga);
/// The request to push a stream to an ntripSource address, version 1 or 2; of version 2 the body
/// comes in chunks. `str`: an STR line, as streamLine writes it, or empty.
std::string pushRequest(const Address& address, const std::string& str);

/// Reads an answer as it comes, in pieces of any size: version 1 or 2, whatever was asked for.
class AnswerReader {
public:
    enum class Asked { stream, push };
    /// The password of the address, should the peer write it back, does not appear in what().
    AnswerReader(const Address& address, Asked asked);
    ~AnswerReader();

    enum class State {
        head,      // not whole yet
        stream,    // granted; what follows is data
        table,     // a source table came instead of the stream: no such mountpoint
        refused,   // any other status
        ended,     // the body has ended (last chunk, Content-Length), or the peer closed
        malformed, // no answer of a caster, or one without end
    };
    /// Takes what came; the data of the stream is appended to `data`, without chunks. Of a push
    /// there is none.
    State take(std::span<const std::uint8_t> bytes, std::vector<std::uint8_t>& data);
    /// The peer has closed: a refusal may have come without an end of line.
    State close();
    State state() const;
    int status() const; // 200, 401...; 0 = not known
    /// What went wrong, for the operator: "401 Unauthorized", "302 Found, moved to ...", "ERROR -
    /// Bad Password", "no such mountpoint (source table received)", "endless header"... Printable
    /// ASCII, not long.
    std::string what() const;

private:
    class Reader;
    std::unique_ptr<Reader> reader_;
};

} // namespace gateway::ntrip
