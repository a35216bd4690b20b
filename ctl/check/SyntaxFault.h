#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// SyntaxFault: where and why a text is no JSON document.

namespace ctl::check {

struct SyntaxFault {
    int line; // 1-based
    std::string advice;
};

/// The fault of a text of which the library read up to `end`.
SyntaxFault syntaxFault(std::string_view content, std::size_t end);
/// 1-based line of a place in a text.
int lineOf(std::string_view content, std::size_t at);

} // namespace ctl::check
