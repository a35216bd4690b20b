#pragma once

#include <cstddef>
#include <string_view>

namespace ctl::check {

/// Characters to insert, take out or change until one text is the other (Levenshtein).
std::size_t editDistance(std::string_view a, std::string_view b);

} // namespace ctl::check
