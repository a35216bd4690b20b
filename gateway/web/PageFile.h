#pragma once

#include <span>
#include <string_view>

/// PageFile: the files of the page, as they stand in gateway/web/page, and the description of the
/// API; in the program.

namespace gateway {

struct PageFile {
    std::string_view path; // "app.css"
    std::string_view content;
};
std::span<const PageFile> pageFiles();

/// By its ending; null for one that is not for browsers.
const char* mediaTypeOf(std::string_view path);

} // namespace gateway
