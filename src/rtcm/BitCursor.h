#pragma once

#include "base/bits.h"

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
/// text (8-bit count and characters), chars (characters counted elsewhere). Fields have 32 bits at
/// most, but u of a 64-bit integer and s of a double have up to 64. Every field says what it is
/// (df), for those who show it: these three do not look at it. A cursor's kReads tells a layout
/// whether the record is being filled; fail() then says that the message contradicts itself.

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
    const double up = x + 0.5;
    constexpr double inInt = 2147483647.0;
    if (!(up > -inInt && up < inInt))
        return std::floor(up);
    const double whole = static_cast<int>(up); // towards 0
    return whole > up ? whole - 1.0 : whole;
}

/// A data field of the standard.
struct DataField {
    int df; // number; 0 = none of its own
    const char* name;
    const char* unit = ""; // of a value that is not a bare number
    double held = 1.0;     // what the record holds for one such unit
    int origin = 0;        // added to the number sent
};
constexpr DataField df(int number, const char* name, const char* unit = "", double held = 1.0) {
    return {number, name, unit, held};
}

/// The fields of a layout, for a cursor that moves bits: what they are costs nothing there.
template <class Cursor> class BitFields {
public:
    [[gnu::always_inline]] constexpr void fixed(int width, std::uint32_t value, const DataField&) {
        self().fixed(width, value);
    }
    template <class T>
    [[gnu::always_inline]] constexpr void u(int width, T& value, const DataField&) {
        self().u(width, value);
    }
    template <class T>
    [[gnu::always_inline]] constexpr void u(int width, T& value, double unit, const DataField&) {
        self().u(width, value, unit);
    }
    template <class T>
    [[gnu::always_inline]] constexpr void s(int width, T& value, double unit, const DataField&) {
        self().s(width, value, unit);
    }
    template <class T>
    [[gnu::always_inline]] constexpr void sm(int width, T& value, double unit, const DataField&) {
        self().sm(width, value, unit);
    }
    template <class T>
    [[gnu::always_inline]] constexpr void sOrNone(int width, T& value, double unit,
                                                  const DataField&) {
        self().sOrNone(width, value, unit);
    }
    template <class T> [[gnu::always_inline]] constexpr void text(T& value, const DataField&) {
        self().text(value);
    }
    template <class T> [[gnu::always_inline]] constexpr void chars(T value, const DataField&) {
        self().chars(value);
    }

private:
    constexpr Cursor& self() { return static_cast<Cursor&>(*this); }
};

class BitReader : public BitFields<BitReader> {
public:
    static constexpr bool kReads = true;
    using BitFields::chars, BitFields::fixed, BitFields::s, BitFields::sm, BitFields::sOrNone;
    using BitFields::text, BitFields::u;

    /// Reads a message. What lies past its end reads as 0 and makes ok() false.
    explicit BitReader(std::span<const std::uint8_t> message)
        : window_{0, 0, message.data()}, end_(message.data() + message.size()) {}

    bool ok() const { return window_.whole; }
    std::size_t left() const {
        return ok() ? static_cast<std::size_t>(window_.held + 8 * (end_ - window_.next)) : 0;
    }
    void fail() { window_ = failed(end_); }

    void fixed(int width, std::uint32_t) { advance(width); }
    template <std::integral T> void u(int width, T& value) {
        if constexpr (sizeof(T) > sizeof(std::uint32_t))
            value = static_cast<T>(takeWide(width));
        else
            value = static_cast<T>(take(width));
    }
    void u(int width, double& value, double unit) {
        value = static_cast<double>(take(width)) * unit;
    }
    template <std::integral T> void s(int width, T& value) {
        value = static_cast<T>(takeSigned(width));
    }
    void s(int width, double& value, double unit) {
        const int unused = 64 - width;
        const auto raw = static_cast<std::int64_t>(takeWide(width) << unused) >> unused;
        value = static_cast<double>(raw) * unit;
    }
    void sm(int width, double& value, double unit) {
        const bool negative = take(1) != 0;
        const auto magnitude = static_cast<double>(take(width - 1));
        value = (negative ? -magnitude : magnitude) * unit;
    }
    void sOrNone(int width, double& value, double unit) {
        const std::int32_t raw = takeSigned(width);
        const std::int32_t none = std::numeric_limits<std::int32_t>::min() >> (32 - width);
        value = raw == none ? kNone : static_cast<double>(raw) * unit;
    }
    /// Keeps what fits and skips the rest of a longer text.
    void text(Descriptor& value) {
        value.fill('\0');
        const std::uint32_t n = take(8);
        for (std::size_t i = 0; i < n; ++i) {
            const auto c = static_cast<char>(take(8));
            if (i + 1 < value.size())
                value[i] = c;
        }
    }
    void chars(std::span<char> value) {
        for (char& c : value)
            u(8, c);
    }

private:
    /// The next bits of the message, from the top of a word on.
    struct Window {
        std::uint64_t bits; // below those held: zeros, or what follows in the message
        int held;
        const std::uint8_t* next; // behind the bits held
        bool whole = true;        // the message was long enough so far
    };

    static Window failed(const std::uint8_t* end) { return {0, 32, end, false}; }
    static Window filled(Window w) {
        w.bits |= detail::load64(w.next) >> w.held;
        const int bytes = (63 - w.held) / 8;
        return {w.bits, w.held + 8 * bytes, w.next + bytes};
    }
    [[gnu::noinline]] static Window filledNearEnd(Window w, const std::uint8_t* end, int width) {
        for (; w.held <= 56 && w.next != end; w.held += 8)
            w.bits |= std::uint64_t{*w.next++} << (56 - w.held);
        return w.held >= width ? w : failed(end);
    }

    /// The word whose top is the next field.
    std::uint64_t advance(int width) {
        if (window_.held < width)
            window_ =
                end_ - window_.next >= 8 ? filled(window_) : filledNearEnd(window_, end_, width);
        const std::uint64_t bits = window_.bits;
        window_.bits <<= width;
        window_.held -= width;
        return bits;
    }
    std::uint32_t take(int width) {
        return static_cast<std::uint32_t>(advance(width) >> (64 - width));
    }
    std::int32_t takeSigned(int width) {
        return static_cast<std::int32_t>(static_cast<std::int64_t>(advance(width)) >> (64 - width));
    }
    std::uint64_t takeWide(int width) {
        if (width <= 32)
            return take(width);
        const std::uint64_t high = take(width - 32);
        return high << 32 | take(32);
    }

    Window window_;
    const std::uint8_t* end_;
};

/// Writes a message; what the room cannot hold is dropped. finish() ends it.
class BitWriter : public BitFields<BitWriter> {
public:
    static constexpr bool kReads = false;
    using BitFields::chars, BitFields::fixed, BitFields::s, BitFields::sm, BitFields::sOrNone;
    using BitFields::text, BitFields::u;

    explicit BitWriter(std::span<std::uint8_t> room) : room_(room) {}

    /// Pads the last byte with zeros. The bits of the message.
    std::size_t finish() {
        const std::size_t bits = 8 * at_ + static_cast<std::size_t>(held_);
        for (put(-held_ & 7, 0); held_ > 0; held_ -= 8, ++at_)
            if (at_ < room_.size())
                room_[at_] = static_cast<std::uint8_t>(pending_ >> (held_ - 8));
        return bits;
    }

    void fixed(int width, std::uint32_t value) { put(width, value); }
    template <std::integral T> void u(int width, const T& value) {
        if constexpr (sizeof(T) > sizeof(std::uint32_t))
            putWide(width, static_cast<std::uint64_t>(value));
        else
            put(width, static_cast<std::uint32_t>(value));
    }
    /// Values outside the field take its nearest end.
    void u(int width, const double& value, double unit) {
        const double most = static_cast<double>(lowBits(width));
        put(width, static_cast<std::uint32_t>(std::clamp(roundHalfUp(value / unit), 0.0, most)));
    }
    template <std::integral T> void s(int width, const T& value) {
        put(width, static_cast<std::uint32_t>(value));
    }
    void s(int width, const double& value, double unit) {
        putWide(width, static_cast<std::uint64_t>(steps(width, value, unit)));
    }
    void sm(int width, const double& value, double unit) {
        const double most = static_cast<double>(lowBits(width - 1));
        put(1, std::signbit(value) ? 1 : 0); // keeps a minus zero
        put(width - 1,
            static_cast<std::uint32_t>(std::min(roundHalfUp(std::fabs(value) / unit), most)));
    }
    void sOrNone(int width, const double& value, double unit) {
        put(width, isNone(value) ? std::uint32_t{1} << (width - 1)
                                 : static_cast<std::uint32_t>(steps(width, value, unit)));
    }
    void text(const Descriptor& value) {
        const std::string_view v = view(value).substr(0, kMaxText);
        put(8, static_cast<std::uint32_t>(v.size()));
        chars(v);
    }
    void chars(std::span<const char> value) {
        for (const char c : value)
            put(8, static_cast<std::uint8_t>(c));
    }

private:
    static std::uint32_t lowBits(int width) {
        return static_cast<std::uint32_t>((std::uint64_t{1} << width) - 1);
    }
    static std::int64_t steps(int width, double value, double unit) {
        const auto most = static_cast<double>(std::int64_t{1} << (width - 1));
        return static_cast<std::int64_t>(std::clamp(roundHalfUp(value / unit), -most, most - 1.0));
    }

    /// Holds fewer than 32 bits back.
    void put(int width, std::uint32_t value) {
        pending_ = pending_ << width | (value & lowBits(width));
        held_ += width;
        if (held_ < 32)
            return;
        held_ -= 32;
        if (at_ + 4 <= room_.size())
            detail::store32(room_.data() + at_, static_cast<std::uint32_t>(pending_ >> held_));
        at_ += 4;
    }
    void putWide(int width, std::uint64_t value) {
        if (width > 32)
            put(width - 32, static_cast<std::uint32_t>(value >> 32));
        put(std::min(width, 32), static_cast<std::uint32_t>(value));
    }

    std::span<std::uint8_t> room_;
    std::size_t at_ = 0; // bytes in the room
    std::uint64_t pending_ = 0;
    int held_ = 0; // low bits of `pending_` that are to follow them
};

/// Counts the bits of a layout; texts are taken as empty.
class BitCounter : public BitFields<BitCounter> {
public:
    static constexpr bool kReads = false;
    using BitFields::chars, BitFields::fixed, BitFields::s, BitFields::sm, BitFields::sOrNone;
    using BitFields::text, BitFields::u;

    constexpr void fixed(int width, std::uint32_t) { bits_ += width; }
    template <class T> constexpr void u(int width, const T&, double = 1.0) { bits_ += width; }
    template <class T> constexpr void s(int width, const T&, double = 1.0) { bits_ += width; }
    constexpr void sm(int width, const double&, double) { bits_ += width; }
    constexpr void sOrNone(int width, const double&, double) { bits_ += width; }
    constexpr void text(const Descriptor&) { bits_ += 8; }
    constexpr void chars(std::span<const char> value) {
        bits_ += 8 * static_cast<int>(value.size());
    }
    constexpr int bits() const { return bits_; }

private:
    int bits_ = 0;
};

template <class Layout, class Record>
constexpr int bitsOf(const Layout& layout, const Record& record) {
    BitCounter counter;
    layout(counter, record);
    return counter.bits();
}
