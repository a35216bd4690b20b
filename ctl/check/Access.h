#pragma once

#include "ctl/check/Remarks.h"

#include <optional>
#include <string>

/// Access: whether the user of the unit, who is made up at its start and is no one's group, can
/// read what a configuration names. Root can read everything and does not notice.

namespace ctl::check {

/// A file or a folder whose mode keeps others out.
struct Closed {
    std::string path;
    bool folder = false;
    unsigned mode = 0;
};
/// The first on the way to a file, also where links lead; nothing where others can read it.
std::optional<Closed> closedToOthers(const std::string& path);

/// Remarks on what others cannot read.
void examineAccess(Severity severity, Reading& reading);
/// Remarks on what the unit does not see wherever it lies.
void examineHidden(Reading& reading);

} // namespace ctl::check
