#pragma once

#include <boost/algorithm/string/predicate.hpp>

#include <locale>
#include <string_view>

/// Characters: ASCII alone, whatever the locale and the sign of char.

namespace gateway {

inline bool isControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
}

inline bool isLetterOrDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

/// Not Boost.Beast's, which reads a character too many.
inline bool iequals(std::string_view a, std::string_view b) {
    return boost::algorithm::iequals(a, b, std::locale::classic());
}
inline bool istartsWith(std::string_view text, std::string_view start) {
    return boost::algorithm::istarts_with(text, start, std::locale::classic());
}

} // namespace gateway
