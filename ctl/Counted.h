#pragma once

#include <concepts>
#include <string>

namespace ctl {

/// "1 epoch", "3 epochs"; `several` is for what does not only take an s.
template <std::integral N>
std::string counted(N n, const std::string& one, const std::string& several = {}) {
    return std::to_string(n) + " " + (n == 1 ? one : several.empty() ? one + "s" : several);
}

} // namespace ctl
