#pragma once

#include "gateway/net/Secret.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Request: what a client asks of a caster, NTRIP version 1 (RTCM 10410.0), version 2 (RTCM
/// 10410.1) or plain HTTP, and what the caster says to it. Bytes in, bytes out; no sockets.
/// Texts of a client are printable here, names in ASCII: they are fit for a log.

namespace gateway::ntrip {

inline constexpr std::size_t kLongestHead = 8192; // bytes

/// How the client wants to be answered.
enum class Dialect {
    icy,    // version 1: ICY 200 OK, SOURCETABLE 200 OK
    ntrip2, // version 2: HTTP with Ntrip-Version
    http,   // a browser, curl: HTTP without NTRIP
};

struct Request {
    enum class Kind { table, stream, push };
    Kind kind = Kind::table;
    Dialect dialect = Dialect::icy;
    bool head = false;                   // HEAD: no body is wanted
    bool chunked = false;                // a push: it comes in chunks. else: chunks are understood
    std::optional<std::uint64_t> length; // bytes of a push that tells them
    bool waits = false;                  // Expect: 100-continue; grantText says it
    std::string mount;                   // without '/', percent signs resolved
    bool named = false;                  // credentials were sent
    std::string user;                    // empty: SOURCE has none
    Secret password;
    std::string agent; // User-Agent or Source-Agent, UTF-8; of at most 128 bytes
    std::string gga;   // Ntrip-GGA, where a rover says its position; at most 128 characters
};

/// Bytes of the head with its end; nothing while it is not whole. Lines end with CR LF or LF, and
/// empty ones may stand before it.
std::optional<std::size_t> headLength(std::string_view received);

/// Why a request is refused; the answer is refusalText.
enum class Refusal { malformed, method, unauthorized, notFound, taken, tooMany, lockedOut };

struct Parsed {
    Request request;                // as far as it was understood, so that it can be answered
    std::optional<Refusal> refusal; // malformed or method
};
/// Reads a whole head.
Parsed parseRequest(std::string_view head);

/// "Sun, 22 Nov 2026 20:00:00 GMT".
std::string httpDate(std::int64_t unixS);

/// The answers, heads with bodies where they have one. `date` as httpDate.
std::string grantText(const Request& request, const std::string& date);
std::string tableAnswer(const Request& request, const std::string& table, const std::string& date);
std::string refusalText(const Request& request, Refusal refusal, const std::string& date);

/// Whether the body of a granted stream goes out in chunks.
bool sendsChunks(const Request& request);
/// The data as one chunk; nothing for none, since an empty chunk is the last one.
std::string chunk(std::string_view data);

enum class BodyState { flows, ended, malformed };

/// Reads what a client pushes, after the head, in pieces of any size.
class PushReader {
public:
    explicit PushReader(const Request& push);
    ~PushReader();

    /// The data is appended to `data`, without chunks.
    BodyState take(std::span<const std::uint8_t> bytes, std::vector<std::uint8_t>& data);

private:
    class Reader;
    std::unique_ptr<Reader> reader_;
};

} // namespace gateway::ntrip
