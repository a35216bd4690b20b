#pragma once

#include "common/bits.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <span>
#include <string_view>

/// BitCursor: the three cursors that a message layout runs over. A layout is written once, as the
/// standard's list of fields; BitReader fills a record from it, BitWriter writes one, BitCounter
/// counts its bits. Field kinds: fixed (constant, skipped in reading), u (unsigned), s (two's
/// complement), sm (sign and magnitude), sOrNone (s whose most negative value means "none"),
/// text (8-bit count and characters). A cursor's kReads tells a layout whether the record is being
/// filled; fail() then says that the message contradicts itself.

/// What sOrNone holds for "none".
inline constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
inline bool isNone(double value) {
    return std::isnan(value);
}

/// A text field of a message; ends with NUL.
using Descriptor = std::array<char, 64>;
inline std::string_view view(const Descriptor& d) {
    return {d.data(), strnlen(d.data(), d.size())};
}
/// Longest text that a message carries by the standard.
inline constexpr std::size_t kMaxText = 31;

/// One millisecond of range, m.
inline constexpr double kRangeMs = 299792.458;

constexpr double pow2(int exponent) {
    double value = 1.0;
    for (int i = 0; i < (exponent < 0 ? -exponent : exponent); ++i)
        value = exponent < 0 ? value / 2.0 : value * 2.0;
    return value;
}

/// Rounds half up, as the standard's encoders do.
inline double roundHalfUp(double x) {
    return std::floor(x + 0.5);
}

class BitReader {
public:
    static constexpr bool kReads = true;

    /// Reads from firstBit; what lies at or past endBit reads as 0 and makes ok() false.
    BitReader(std::span<const std::uint8_t> buff, std::size_t firstBit, std::size_t endBit)
        : buff_(buff), at_(firstBit), end_(endBit) {}

    bool ok() const { return at_ <= end_; }
    std::size_t left() const { return ok() ? end_ - at_ : 0; }
    void fail() { at_ = end_ + 1; }

    void fixed(int width, std::uint32_t) { at_ += static_cast<std::size_t>(width); }
    template <std::integral T> void u(int width, T& value) { value = static_cast<T>(take(width)); }
    void u(int width, double& value, double unit) {
        value = static_cast<double>(take(width)) * unit;
    }
    template <std::integral T> void s(int width, T& value) {
        value = static_cast<T>(takeSigned(width));
    }
    void s(int width, double& value, double unit) {
        value = static_cast<double>(takeSigned(width)) * unit;
    }
    void sm(int width, double& value, double unit) {
        const bool negative = take(1) != 0;
        const auto magnitude = static_cast<double>(take(width - 1));
        value = (negative ? -magnitude : magnitude) * unit;
    }
    void sOrNone(int width, double& value, double unit) {
        const std::int64_t raw = takeSigned(width);
        value = raw == -(std::int64_t{1} << (width - 1)) ? kNone : static_cast<double>(raw) * unit;
    }
    /// Keeps what fits and skips the rest of a longer text.
    void text(Descriptor& value) {
        value.fill('\0');
        const auto n = static_cast<std::size_t>(take(8));
        for (std::size_t i = 0; i < n; ++i) {
            const auto c = static_cast<char>(take(8));
            if (i + 1 < value.size())
                value[i] = c;
        }
    }

private:
    std::uint64_t take(int width) {
        const std::size_t at = at_;
        at_ += static_cast<std::size_t>(width);
        if (at_ > end_)
            return 0;
        if (width <= 32)
            return getbitu(buff_, at, width);
        return std::uint64_t{getbitu(buff_, at, width - 32)} << 32 |
               getbitu(buff_, at + static_cast<std::size_t>(width - 32), 32);
    }
    std::int64_t takeSigned(int width) {
        const int unused = 64 - width;
        return static_cast<std::int64_t>(take(width) << unused) >> unused;
    }

    std::span<const std::uint8_t> buff_;
    std::size_t at_;
    std::size_t end_;
};

class BitWriter {
public:
    static constexpr bool kReads = false;

    BitWriter(std::span<std::uint8_t> buff, std::size_t firstBit) : buff_(buff), at_(firstBit) {}

    std::size_t at() const { return at_; }

    void fixed(int width, std::uint32_t value) { put(width, value); }
    template <std::integral T> void u(int width, const T& value) {
        put(width, static_cast<std::uint64_t>(value));
    }
    /// Values outside the field take its nearest end.
    void u(int width, const double& value, double unit) {
        const double most = std::ldexp(1.0, width) - 1.0;
        put(width, static_cast<std::uint64_t>(std::clamp(roundHalfUp(value / unit), 0.0, most)));
    }
    template <std::integral T> void s(int width, const T& value) {
        put(width, static_cast<std::uint64_t>(static_cast<std::int64_t>(value)));
    }
    void s(int width, const double& value, double unit) {
        const double most = std::ldexp(1.0, width - 1);
        const double steps = std::clamp(roundHalfUp(value / unit), -most, most - 1.0);
        put(width, static_cast<std::uint64_t>(static_cast<std::int64_t>(steps)));
    }
    void sm(int width, const double& value, double unit) {
        const double most = std::ldexp(1.0, width - 1) - 1.0;
        put(1, std::signbit(value) ? 1 : 0); // keeps a minus zero
        put(width - 1,
            static_cast<std::uint64_t>(std::min(roundHalfUp(std::fabs(value) / unit), most)));
    }
    void sOrNone(int width, const double& value, double unit) {
        if (isNone(value))
            put(width, std::uint64_t{1} << (width - 1));
        else
            s(width, value, unit);
    }
    void text(const Descriptor& value) {
        const std::string_view v = view(value).substr(0, kMaxText);
        put(8, v.size());
        for (const char c : v)
            put(8, static_cast<std::uint8_t>(c));
    }

private:
    void put(int width, std::uint64_t value) {
        if (width > 32) {
            put(width - 32, value >> 32);
            width = 32;
        }
        setbitu(buff_, at_, width, static_cast<std::uint32_t>(value));
        at_ += static_cast<std::size_t>(width);
    }

    std::span<std::uint8_t> buff_;
    std::size_t at_;
};

/// Counts the bits of a layout without texts.
class BitCounter {
public:
    static constexpr bool kReads = false;

    constexpr void fixed(int width, std::uint32_t) { bits_ += width; }
    template <class T> constexpr void u(int width, const T&, double = 1.0) { bits_ += width; }
    template <class T> constexpr void s(int width, const T&, double = 1.0) { bits_ += width; }
    constexpr void sm(int width, const double&, double) { bits_ += width; }
    constexpr void sOrNone(int width, const double&, double) { bits_ += width; }
    constexpr int bits() const { return bits_; }

private:
    int bits_ = 0;
};

template <class Record, class Layout> constexpr int bitsOf(const Layout& layout) {
    BitCounter counter;
    const Record record{};
    layout(counter, record);
    return counter.bits();
}
