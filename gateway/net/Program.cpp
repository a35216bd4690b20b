#include "gateway/net/Program.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>
#include <unistd.h>

namespace gateway {

namespace fs = std::filesystem;

namespace {

bool canRun(const fs::path& path) {
    std::error_code none;
    return fs::is_regular_file(path, none) && access(path.c_str(), X_OK) == 0;
}

} // namespace

fs::path findProgram(const fs::path& name) {
    if (name.string().find('/') != std::string::npos)
        return canRun(name) ? name : fs::path();
    const char* const variable = std::getenv("PATH");
    std::string_view folders = variable ? variable : "";
    while (!folders.empty()) {
        const std::string_view folder = folders.substr(0, folders.find(':'));
        if (fs::path path = fs::path(folder) / name; canRun(path))
            return path;
        folders.remove_prefix(std::min(folder.size() + 1, folders.size()));
    }
    std::error_code none;
    for (const fs::path& folder :
         {fs::read_symlink("/proc/self/exe", none).parent_path(), fs::path("/usr/sbin")})
        if (fs::path path = folder / name; canRun(path))
            return path;
    return {};
}

} // namespace gateway
