#include "gateway/ntrip/Head.h"

#include "ctl/dump/Fields.h"
#include "gateway/net/Characters.h"

#include <openssl/evp.h>

#include <algorithm>

namespace gateway::ntrip {

namespace {

bool isPrintableByte(char c) {
    return c >= ' ' && c <= '~';
}

const unsigned char* octets(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

unsigned char* octets(std::string& text) {
    return reinterpret_cast<unsigned char*>(text.data());
}

} // namespace

std::string_view product() {
    return "NTRIP kestrune-gateway/" KESTRUNE_VERSION;
}

std::string withCrLf(std::string_view head) {
    std::string out;
    out.reserve(head.size() + head.size() / 8);
    while (!head.empty()) {
        const std::size_t end = std::min(head.find('\n'), head.size());
        std::string_view line = head.substr(0, end);
        head.remove_prefix(std::min(end + 1, head.size()));
        while (line.ends_with('\r'))
            line.remove_suffix(1);
        out.append(line).append("\r\n");
    }
    return out;
}

bool isPrintable(std::string_view text) {
    return std::all_of(text.begin(), text.end(), isPrintableByte);
}

std::string printable(std::string_view text, std::size_t most) {
    std::string out(text.substr(0, most));
    std::replace_if(
        out.begin(), out.end(), [](char c) { return !isPrintableByte(c); }, '?');
    return out;
}

std::string readable(std::string_view text, std::size_t most) {
    std::string out = ctl::dump::clean(text);
    if (out.size() > most) {
        while (most > 0 && (out[most] & 0xC0) == 0x80) // no half character
            --most;
        out.resize(most);
    }
    return out;
}

std::string base64(std::string_view bytes) {
    const std::string in(bytes);
    std::string out((in.size() + 2) / 3 * 4 + 1, '\0'); // OpenSSL writes a zero behind it
    const int length = EVP_EncodeBlock(octets(out), octets(in), static_cast<int>(in.size()));
    out.resize(static_cast<std::size_t>(length));
    return out;
}

std::optional<std::string> fromBase64(std::string_view text) {
    const std::string in(text);
    if (in.size() % 4 != 0)
        return std::nullopt;
    std::string out(in.size() / 4 * 3, '\0');
    if (EVP_DecodeBlock(octets(out), octets(in), static_cast<int>(in.size())) < 0)
        return std::nullopt;
    // OpenSSL passes over blanks around it, takes '=' for a zero everywhere and counts the padding.
    const std::size_t padding = in.ends_with("==") ? 2 : in.ends_with('=') ? 1 : 0;
    out.resize(out.size() - padding);
    if (base64(out) != in)
        return std::nullopt;
    return out;
}

std::optional<std::pair<std::string, Secret>> basicCredentials(std::string_view field) {
    constexpr std::string_view kBasic = "Basic ";
    if (!istartsWith(field, kBasic))
        return std::nullopt;
    const auto pair = fromBase64(trimmed(field.substr(kBasic.size())));
    const std::size_t colon = pair ? pair->find(':') : std::string::npos;
    if (colon == std::string::npos || !isPrintable(pair->substr(0, colon)) ||
        pair->find('\0') != std::string::npos) // at which a hash would end
        return std::nullopt;
    return std::pair(pair->substr(0, colon), Secret(pair->substr(colon + 1)));
}

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

} // namespace gateway::ntrip
