/// Bit fields of RTCM 3 messages, written and read one bit at a time, most significant bit first.
#pragma once

#include <cmath>
#include <concepts>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace ref {

using Bytes = std::vector<std::uint8_t>;

/// Appends fields; a value that does not fit its width throws std::out_of_range. This and BitSource
/// run over one list of fields: with a unit the value is a double, with an origin raw = v - origin.
class BitString {
public:
    template <std::integral T> BitString& u(int width, T v, int origin = 0) {
        const auto raw = static_cast<std::uint64_t>(v) - static_cast<std::uint64_t>(origin);
        if (width < 64 && raw >> width != 0)
            throw std::out_of_range("value wider than its field");
        for (int i = width - 1; i >= 0; --i)
            bits_.push_back(((raw >> i) & 1) != 0);
        return *this;
    }
    BitString& s(int width, std::int64_t v) {
        const std::int64_t half = std::int64_t{1} << (width - 1);
        if (v < -half || v >= half)
            throw std::out_of_range("signed value wider than its field");
        return u(width, v < 0 ? v + 2 * half : v);
    }
    /// Sign bit, then magnitude.
    BitString& sm(int width, std::int64_t v) { return flag(v < 0).u(width - 1, std::abs(v)); }
    /// 8-bit count, then the characters.
    BitString& text(std::string_view v) {
        u(8, v.size());
        for (const char c : v)
            u(8, static_cast<unsigned char>(c));
        return *this;
    }
    BitString& flag(bool v) { return u(1, v ? 1 : 0); }
    void fixed(int width, int v) { u(width, v); }
    void i(int width, int v) { s(width, std::int64_t{v}); }
    void u(int width, double v, double unit) { u(width, std::llround(v / unit)); }
    void s(int width, double v, double unit) { s(width, std::llround(v / unit)); }
    void sm(int width, double v, double unit) {
        flag(std::signbit(v)).u(width - 1, std::llround(std::abs(v) / unit)); // keeps a minus zero
    }
    /// The most negative value says "none".
    void orNone(int width, const std::optional<double>& v, double unit) {
        s(width, v ? std::llround(*v / unit) : -(std::int64_t{1} << (width - 1)));
    }
    /// Padded with zero bits to whole bytes.
    Bytes bytes() const {
        Bytes out((bits_.size() + 7) / 8);
        for (std::size_t i = 0; i < bits_.size(); ++i)
            out[i / 8] = static_cast<std::uint8_t>(out[i / 8] | ((bits_[i] ? 0x80 : 0) >> (i % 8)));
        return out;
    }

private:
    std::vector<bool> bits_;
};

/// Takes fields in order; std::out_of_range past the end.
class BitSource {
public:
    explicit BitSource(std::span<const std::uint8_t> bytes) : bytes_(bytes.begin(), bytes.end()) {}
    std::uint64_t u(int width) {
        std::uint64_t v = 0;
        for (; width > 0; --width, ++at_)
            v = 2 * v + ((unsigned{bytes_.at(at_ / 8)} >> (7 - at_ % 8)) & 1u);
        return v;
    }
    std::int64_t s(int width) {
        const auto v = static_cast<std::int64_t>(u(width));
        const std::int64_t half = std::int64_t{1} << (width - 1);
        return v < half ? v : v - 2 * half;
    }
    std::int64_t sm(int width) {
        const std::int64_t sign = u(1) == 1 ? -1 : 1;
        return sign * static_cast<std::int64_t>(u(width - 1));
    }
    void text(std::string& v) {
        v.resize(static_cast<std::size_t>(u(8)));
        for (char& c : v)
            c = static_cast<char>(u(8));
    }
    void flag(bool& v) { v = u(1) == 1; }
    void fixed(int width, int v) { asFixed_ &= u(width) == static_cast<std::uint64_t>(v); }
    template <std::integral T> void u(int width, T& v, int origin = 0) {
        v = static_cast<T>(static_cast<std::int64_t>(u(width)) + origin);
    }
    void i(int width, int& v) { v = static_cast<int>(s(width)); }
    void u(int width, double& v, double unit) { v = static_cast<double>(u(width)) * unit; }
    void s(int width, double& v, double unit) { v = static_cast<double>(s(width)) * unit; }
    void sm(int width, double& v, double unit) {
        const double sign = u(1) == 1 ? -1 : 1;
        v = sign * (static_cast<double>(u(width - 1)) * unit);
    }
    void orNone(int width, std::optional<double>& v, double unit) {
        const std::int64_t raw = s(width);
        const bool none = raw == -(std::int64_t{1} << (width - 1));
        v = none ? std::nullopt : std::optional(static_cast<double>(raw) * unit);
    }
    std::size_t at() const { return at_; }
    std::size_t left() const { return 8 * bytes_.size() - at_; }
    /// Fixed fields had their values, and nothing but zero bits to the next byte follows.
    bool exact() const {
        BitSource rest = *this;
        return asFixed_ && left() < 8 && rest.u(static_cast<int>(left())) == 0;
    }

private:
    Bytes bytes_;
    std::size_t at_ = 0;
    bool asFixed_ = true;
};

/// A message body from a layout, called as layout(cursor, record).
template <class Record> Record readBody(const Bytes& body, auto layout) {
    BitSource io(body);
    Record record;
    layout(io, record);
    return record;
}

Bytes writeBody(const auto& record, auto layout) {
    BitString io;
    layout(io, record);
    return io.bytes();
}

} // namespace ref
