#pragma once

#include "gnss/ComCoord.h"

#include <string>

namespace ctl {

/// Three numbers of metres, "X,Y,Z". std::runtime_error, with the option, for another text.
Vector3 threeMetres(const char* option, const std::string& value);

} // namespace ctl
