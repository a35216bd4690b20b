#pragma once

#include "ctl/check/Remarks.h"

#include <string>

/// Advice: the findings of the service in the words of `kestrunectl check`.

namespace ctl::check {

/// The finding without what its place says already, and what to write instead.
Remark remarkOn(const Finding& finding, const Remarks& seen);
/// What to write instead, whatever its place; empty where there is nothing to say.
std::string_view adviceOn(FindingId id);
/// The reason, and for a relative path the folder that it is taken from.
std::string reasonWith(const std::string& path, std::string reason);

} // namespace ctl::check
