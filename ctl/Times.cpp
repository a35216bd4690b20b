#include "ctl/Times.h"

#include "base/Findings.h"

#include <cmath>

namespace ctl {

std::string dateTimeText(GTime t) {
    const CalendarTime c = time2epoch(t);
    return text("%04.0f-%02.0f-%02.0f %02.0f:%02.0f:%02.0f", c[0], c[1], c[2], c[3], c[4],
                std::floor(c[5]));
}

} // namespace ctl
