#include "ctl/status/StatusFile.h"

#include "ctl/dump/Fields.h"
#include "gnss/Clock.h"

#include <cjson/cJSON.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace ctl::status {

namespace {

constexpr std::size_t kLargest = std::size_t{1} << 20; // bytes
constexpr std::string_view kFormat = "kestrune-status-1";

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error(path + ": " + std::strerror(errno));
    std::string content;
    for (std::array<char, 16384> block{}; content.size() <= kLargest;) {
        file.read(block.data(), block.size());
        if (file.gcount() == 0)
            break;
        content.append(block.data(), static_cast<std::size_t>(file.gcount()));
    }
    return content;
}

/// The member of an object by its exact name, or null.
const cJSON* member(const cJSON* object, std::string_view name) {
    return cJSON_IsObject(object)
               ? cJSON_GetObjectItemCaseSensitive(object, std::string(name).c_str())
               : nullptr;
}

void descend(const cJSON* at, std::string_view path, std::vector<std::string>& names,
             const StatusFile::Take& take) {
    if (!at)
        return;
    if (path.empty())
        return take(names, *at);
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string_view rest = path.substr(std::min(end + 1, path.size()));
    if (path.substr(0, end) != "*")
        return descend(member(at, path.substr(0, end)), rest, names, take);
    const cJSON* child = nullptr;
    if (cJSON_IsObject(at))
        cJSON_ArrayForEach(child, at) {
            names.push_back(dump::clean(child->string));
            descend(child, rest, names, take);
            names.pop_back();
        }
}

} // namespace

StatusFile::StatusFile(const std::string& path) : StatusFile(path, contentOf(path)) {}

StatusFile::StatusFile(std::string name, std::string_view content)
    : name_(std::move(name)),
      root_(content.size() > kLargest ? nullptr
                                      : cJSON_ParseWithLength(content.data(), content.size()),
            cJSON_Delete) {
    const cJSON* const format = member(root_.get(), "format");
    if (!cJSON_IsString(format) || format->valuestring != kFormat)
        throw std::runtime_error(name_ + ": is no status of a service (" + std::string(kFormat) +
                                 ")");
}

const cJSON* StatusFile::find(std::string_view path) const {
    const cJSON* at = root_.get();
    for (std::size_t from = 0; at && from <= path.size();) {
        const std::size_t end = std::min(path.find('/', from), path.size());
        at = member(at, path.substr(from, end - from));
        from = end + 1;
    }
    return at;
}

std::optional<double> StatusFile::number(std::string_view path) const {
    const cJSON* const at = find(path);
    return cJSON_IsNumber(at) && std::isfinite(at->valuedouble) ? std::optional(at->valuedouble)
                                                                : std::nullopt;
}

std::uint64_t StatusFile::count(std::string_view path) const {
    constexpr double most = 1e18;
    const double n = number(path).value_or(0.0);
    return n > 0.0 && n < most ? static_cast<std::uint64_t>(n) : 0;
}

std::string StatusFile::text(std::string_view path) const {
    const cJSON* const at = find(path);
    return cJSON_IsString(at) ? dump::clean(at->valuestring) : std::string();
}

bool StatusFile::isTrue(std::string_view path) const {
    return cJSON_IsTrue(find(path));
}

void StatusFile::forEach(std::string_view path, const Take& take) const {
    std::vector<std::string> names;
    descend(root_.get(), path, names, take);
}

std::optional<double> lastEpochAgeS(const StatusFile& status, double nowUnixS) {
    const auto received = status.number("epochs/last/received_unix_s");
    return received ? std::optional(nowUnixS - *received) : std::nullopt;
}

double nowUnixS() {
    const GTime now = utcNow();
    return static_cast<double>(now.time) + now.sec;
}

} // namespace ctl::status
