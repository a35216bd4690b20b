#include "ctl/dump/Fields.h"

#include "base/Findings.h"

#include <utility>

namespace ctl::dump {

std::string textOf(const Value& value) {
    struct Visitor {
        std::string operator()(std::monostate) const { return "-"; }
        std::string operator()(std::int64_t v) const { return std::to_string(v); }
        std::string operator()(double v) const { return ::text("%.15g", v); }
        std::string operator()(const std::string& v) const { return v; }
    };
    return std::visit(Visitor{}, value);
}

void FieldReader::add(const DataField& name, Value value) {
    fields_.push_back({name, std::move(value)});
}

void FieldReader::addText(const DataField& name, std::string_view said) {
    add(name, clean(said));
}

void FieldReader::addMask(const DataField& name, int width, std::uint64_t bits) {
    add(name, ::text("0x%0*llX", width / 4, static_cast<unsigned long long>(bits)));
}

namespace {

/// Characters that turn the direction of a line, or break it.
bool directional(unsigned point) {
    return point == 0x061C || point == 0x200E || point == 0x200F ||
           (point >= 0x2028 && point <= 0x202E) || (point >= 0x2066 && point <= 0x2069);
}

} // namespace

std::string clean(std::string_view in) {
    std::string out;
    for (std::size_t i = 0; i < in.size();) {
        const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(in[k]); };
        const unsigned lead = byte(i);
        // Length by the lead byte and smallest code point of that length (RFC 3629).
        const std::size_t n = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
        constexpr unsigned least[] = {0, 0x20, 0xA0, 0x800, 0x10000}; // no control characters
        unsigned point = n == 1 ? lead : lead & (0x7FU >> n);
        bool good = lead < 0x80 || (lead >= 0xC2 && lead <= 0xF4 && i + n <= in.size());
        for (std::size_t k = 1; good && k < n; ++k) {
            good = (byte(i + k) & 0xC0) == 0x80;
            point = point << 6 | (byte(i + k) & 0x3F);
        }
        good = good && point >= least[n] && point != 0x7F && point <= 0x10FFFF &&
               (point < 0xD800 || point > 0xDFFF);
        if (!good)
            out += '?';
        else if (directional(point))
            out += ::text("\\u%04X", point);
        else
            out += in.substr(i, n);
        i += good ? n : 1;
    }
    return out;
}

} // namespace ctl::dump
