#pragma once

#include <cstddef>
#include <string_view>

/// Characters to insert, take out or change until one text is the other (Levenshtein).
std::size_t editDistance(std::string_view a, std::string_view b);
