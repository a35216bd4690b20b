#include "ctl/check/SyntaxFault.h"

#include "base/ComText.h"

#include <algorithm>

namespace ctl::check {

namespace {

/// The line around a place, without its indent and at most some 80 characters of it.
std::string_view lineAround(std::string_view content, std::size_t at) {
    constexpr std::size_t reach = 40; // to either side
    const std::size_t before = at == 0 ? std::string_view::npos : content.rfind('\n', at - 1);
    const std::size_t begin = std::max(before + 1, at - std::min(at, reach)); // npos + 1 is 0
    const std::size_t end = std::min({content.find('\n', at), content.size(), at + reach});
    const std::string_view line = content.substr(begin, end - begin);
    const std::size_t first = std::min(line.find_first_not_of(kWhiteSpace), line.size());
    return line.substr(first, line.find_last_not_of(kWhiteSpace) + 1 - first);
}

/// That line, and where it holds brackets alone also the one above.
std::string surroundings(std::string_view content, std::size_t at) {
    std::string line(lineAround(content, at));
    if (line.find_first_not_of(" \t{}[],") != std::string::npos)
        return line;
    const std::size_t start = at == 0 ? std::string_view::npos : content.rfind('\n', at - 1);
    const std::size_t above = content.find_last_not_of(" \t\v\f\r\n{}[],", std::min(at, start));
    if (start == std::string_view::npos || above == std::string_view::npos)
        return line;
    return std::string(lineAround(content, above)) + " " + line;
}

/// Where a comma stands in front of the closing bracket at a place or just before it, which is
/// where the library stops; npos where there is none.
std::size_t commaBeforeBracket(std::string_view content, std::size_t at) {
    const auto closes = [&](std::size_t i) {
        return i < content.size() && (content[i] == '}' || content[i] == ']');
    };
    const std::size_t bracket = closes(at) || at == 0 ? at : at - 1;
    if (!closes(bracket) || bracket == 0)
        return std::string_view::npos;
    const std::size_t last = content.find_last_not_of(kWhiteSpace, bracket - 1);
    return last != std::string_view::npos && content[last] == ',' ? last : std::string_view::npos;
}

} // namespace

int lineOf(std::string_view content, std::size_t at) {
    const std::string_view before = content.substr(0, std::min(at, content.size()));
    return 1 + static_cast<int>(std::count(before.begin(), before.end(), '\n'));
}

SyntaxFault syntaxFault(std::string_view content, std::size_t end) {
    const auto at = [&](std::size_t place, std::string advice) {
        return SyntaxFault{lineOf(content, place), std::move(advice)};
    };
    if (content.starts_with("\xFF\xFE") || content.starts_with("\xFE\xFF"))
        return at(0, "the file is UTF-16: save it as UTF-8");
    if (end >= content.size())
        return at(
            end,
            "the file ends too early: is it empty, or a bracket or quotation mark not closed?");
    if (content[end] == '\0')
        return at(end, "a zero byte ends the text: remove it, or save the file as UTF-8");
    if (const std::size_t comma = commaBeforeBracket(content, end); comma != std::string_view::npos)
        return at(comma, "no comma may stand before a closing bracket: remove it from: " +
                             surroundings(content, comma));
    return at(end, "the fault is just before or at: " + surroundings(content, end));
}

} // namespace ctl::check
