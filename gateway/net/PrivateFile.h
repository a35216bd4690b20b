#pragma once

#include <filesystem>
#include <string_view>

namespace gateway {

/// Replaces a file as a whole: a reader finds the old one or the new one. A new file is its owner's
/// alone (mode 0600). One that is there keeps owner and group, and the right of the group to read;
/// others lose theirs. A link stays, and what it leads to is replaced. Throws std::system_error;
/// then the file is as it was.
void writePrivateFile(const std::filesystem::path& path, std::string_view content);

} // namespace gateway
