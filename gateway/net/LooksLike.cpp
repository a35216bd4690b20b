#include "gateway/net/LooksLike.h"

#include <string_view>

namespace gateway {

std::string looksLike(std::span<const std::uint8_t> bytes) {
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    const auto has = [&](std::string_view what) { return text.find(what) != text.npos; };
    struct Kind {
        std::string_view begins;
        const char* name;
    };
    constexpr Kind kinds[] = {
        {"\xB5\x62", "UBX"},
        {"$@", "SBF"},
        {"\xAA\x44\x12", "the binary log of a receiver"},
        {"$GP", "NMEA"},
        {"$GN", "NMEA"},
        {"<!DOCTYPE", "HTML"},
        {"<html", "HTML"},
        {"HTTP/1.", "HTTP"},
        {"SOURCETABLE", "a source table"},
        {"ICY 200", "NTRIP without a request"},
    };
    for (const Kind& kind : kinds)
        if (has(kind.begins))
            return kind.name;
    return {};
}

} // namespace gateway
