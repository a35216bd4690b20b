#include "beside/RinexText.h"

#include "base/ComText.h"

namespace {

constexpr std::size_t kEphemerisFields = 4;
constexpr std::size_t kEphemerisWidth = 19;

/// The line, padded or cut, with a "0" in the second place of each field whose first `judged`
/// characters are blank.
std::string filled(std::string_view line, std::size_t start, std::size_t n, std::size_t width,
                   std::size_t judged) {
    std::string out(line.substr(0, len_trim(line)));
    out.resize(start + n * width, ' ');
    for (std::size_t at = start; width >= 2 && at < out.size(); at += width)
        if (std::string_view(out).substr(at, judged).find_first_not_of(' ') ==
            std::string_view::npos)
            out[at + 1] = '0';
    return out;
}

} // namespace

std::string fillobs(std::string_view line, std::size_t n, std::size_t width, double version) {
    // Deliberate: 3.00 itself is taken for a version without the satellite's name in front.
    const std::size_t start = version > 3.0 ? 3 : 0;
    return filled(line, start, n, width, width - 1);
}

std::string filleph(std::string_view line, double version) {
    return filled(line, version < 3.0 ? 3 : 4, kEphemerisFields, kEphemerisWidth, kEphemerisWidth);
}
