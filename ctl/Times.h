#pragma once

#include "gnss/GTime.h"

#include <string>

namespace ctl {

/// "2024-02-29 23:59:59"; parts of a second are cut.
std::string dateTimeText(GTime t);

} // namespace ctl
