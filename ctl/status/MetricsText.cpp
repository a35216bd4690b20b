#include "ctl/status/MetricsText.h"

#include <array>
#include <charconv>

namespace ctl::status {

namespace {

std::string numberText(double value) {
    std::array<char, 32> out{};
    const auto end = std::to_chars(out.data(), out.data() + out.size(), value);
    return {out.data(), end.ptr};
}

} // namespace

std::string label(std::string_view name, std::string_view value) {
    std::string out(name);
    out += "=\"";
    for (const char c : value) {
        if (c == '\\' || c == '"')
            out += '\\';
        out += c;
    }
    return out + "\"";
}

std::string head(std::string_view name, std::string_view type, std::string_view help) {
    std::string out = "# HELP kestrune_";
    out.append(name).append(" ").append(help).append("\n# TYPE kestrune_");
    return out.append(name).append(" ").append(type).append("\n");
}

std::string sample(std::string_view name, const std::string& labels, double value) {
    std::string out = "kestrune_";
    out.append(name);
    if (!labels.empty())
        out.append("{").append(labels).append("}");
    return out + " " + numberText(value) + "\n";
}

} // namespace ctl::status
