#pragma once

#include "base/Print.h"

#include <functional>
#include <string>

/// Say: lines for the operator, each at once and with its level.

namespace gateway {

/// Prints "NAME: text", or the text alone where the name is empty.
inline void say(Level level, const std::string& name, const std::string& text) {
    print(level, "%s%s%s\n", name.c_str(), name.empty() ? "" : ": ", text.c_str());
    printFlush();
}

/// Says it of one thing, such as a station.
using Say = std::function<void(Level, const std::string&)>;

} // namespace gateway
