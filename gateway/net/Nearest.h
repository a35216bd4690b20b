#pragma once

#include <span>
#include <string>
#include <string_view>

namespace gateway {

/// The known word that is likely meant by another one; empty where none is like it.
std::string_view nearest(std::string_view word, std::span<const std::string_view> known);
/// "is WORD meant?", or else what is known.
std::string meantOrKnown(std::string_view word, std::span<const std::string_view> known);

} // namespace gateway
