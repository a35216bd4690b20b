#pragma once

#include "gateway/net/Secret.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

/// Head: what the heads of requests and answers have in common: lines, texts, credentials.

namespace gateway::ntrip {

/// To who comes from an address of which too many wrong passwords have come.
inline constexpr std::string_view kLockedOut =
    "ten wrong passwords in a minute have come from your address: try again in a minute";

/// "NTRIP kestrune-gateway/2.5": what the gateway calls itself towards both sides.
std::string_view product();

/// A head whose lines end with CR LF, whatever they ended with.
std::string withCrLf(std::string_view head);

/// Whether all of it is printable ASCII.
bool isPrintable(std::string_view text);
/// What a peer wrote, fit for a log: '?' for all that is not printable ASCII, cut where it is long.
std::string printable(std::string_view text, std::size_t most);
/// The same of UTF-8: what people can read stays; at most so many bytes.
std::string readable(std::string_view text, std::size_t most);

std::string base64(std::string_view bytes);
/// Nothing for text that no encoder writes: other characters, padding that is missing or misplaced.
std::optional<std::string> fromBase64(std::string_view text);

/// User and password of an Authorization of the scheme Basic (RFC 7617); nothing where it is none.
std::optional<std::pair<std::string, Secret>> basicCredentials(std::string_view field);

/// Blanks, tabs and ends of lines taken off at both ends.
std::string_view trimmed(std::string_view text);

} // namespace gateway::ntrip
