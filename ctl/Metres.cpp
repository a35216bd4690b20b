#include "ctl/Metres.h"

#include "base/Findings.h"

#include <charconv>
#include <stdexcept>

namespace ctl {

namespace {

constexpr double kLongestM = 1e8;

} // namespace

Vector3 threeMetres(const char* option, const std::string& value) {
    Vector3 out{};
    const char* at = value.data();
    const char* const end = at + value.size();
    for (std::size_t i = 0; i < out.size(); ++i) {
        const auto read = std::from_chars(at, end, out[i]);
        const bool comma = read.ptr < end && *read.ptr == ',';
        if (read.ec != std::errc() || !(std::fabs(out[i]) < kLongestM) ||
            (i < 2 ? !comma : read.ptr != end))
            throw std::runtime_error(
                text("%s %s: three numbers of metres with commas between", option, value.c_str()));
        at = read.ptr + 1;
    }
    return out;
}

} // namespace ctl
