#pragma once

#include <array>
#include <string_view>

/// Switches of the command line. They are found as parts of any argument.
inline constexpr std::array<std::string_view, 5> kSwitches{"-post", "-rawsav", "-vrssav",
                                                           "-pthread", "-debug"};
