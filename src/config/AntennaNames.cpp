#include "config/AntennaNames.h"

#include "base/ComText.h"
#include "config/ModelFile.h"

#include <algorithm>

namespace {

/// What stands behind the keyword field of a line.
std::string_view nameOf(std::string_view line) {
    constexpr std::size_t keywordLength = 5;
    return line.substr(std::min(keywordLength, line.size()));
}

} // namespace

bool Antatx_s_antnam(const std::string& siteName, const std::string& antenna,
                     std::string& canonical, const std::string& path, Findings& findings) {
    LineReader file(path);
    if (!opened(file, path, findings))
        return false;

    const std::string_view wanted = withoutTrailingSpace(antenna);
    std::string current; // empty in front of the first "MAIN": nothing there names an antenna
    std::string_view line;
    while (!wanted.empty() && file.next(line)) {
        if (contains(line, "MAIN"))
            current = nameOf(line);
        if (!current.empty() && contains(nameOf(line), wanted)) {
            canonical = current;
            return true;
        }
    }
    findings.add(FindingId::antennaNameUnknown, path, file.lineNumber(), {antenna, siteName});
    return false;
}
