#pragma once

#include "rtcm/BitCursor.h"

#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

/// Fields: the fields of a message by name. FieldReader runs over a layout of rtcm/ like BitReader
/// and keeps every value with its name, DF number and unit (RTCM 10403.x).

namespace ctl::dump {

struct FieldName {
    const char* name;
    int df;                // 0 = none of its own
    const char* unit = ""; // of a value that is not a bare number
    int origin = 0;        // added to the number sent
};

/// Names of a layout's fields in order; the repeated ones go on for ever after the others.
struct FieldNames {
    std::span<const FieldName> head;
    std::span<const FieldName> repeated{};
};

/// std::monostate: the message says that there is no value.
using Value = std::variant<std::monostate, std::int64_t, double, std::string>;
/// A number as people and JSON read it: 15 significant digits at most.
std::string textOf(const Value& value);

struct Field {
    FieldName name;
    Value value;
};

class FieldReader {
public:
    static constexpr bool kReads = true;

    FieldReader(BitReader in, const FieldNames& names) : in_(in), names_(names) {}

    bool ok() const { return in_.ok(); }
    std::size_t left() const { return in_.left(); }
    void fail() { in_.fail(); }
    std::vector<Field>& fields() { return fields_; }

    /// What was sent, whatever it should have been.
    void fixed(int width, std::uint32_t) {
        std::uint32_t sent = 0;
        u(width, sent);
    }
    template <std::integral T> void u(int width, T& value) {
        in_.u(width, value);
        if (width < 32)
            add(static_cast<std::int64_t>(value));
        else
            addMask(width, static_cast<std::uint64_t>(value));
    }
    void u(int width, double& value, double unit) {
        in_.u(width, value, unit);
        add(value);
    }
    void s(int width, double& value, double unit) {
        in_.s(width, value, unit);
        add(value);
    }
    void sm(int width, double& value, double unit) {
        in_.sm(width, value, unit);
        add(value);
    }
    void sOrNone(int width, double& value, double unit) {
        in_.sOrNone(width, value, unit);
        add(isNone(value) ? Value{} : Value{value});
    }
    void text(Descriptor& value) {
        in_.text(value);
        add(std::string(view(value)));
    }

private:
    void add(Value value);
    void addMask(int width, std::uint64_t bits);

    BitReader in_;
    FieldNames names_;
    std::vector<Field> fields_;
};

/// Counts the fields of a layout.
class FieldCounter {
public:
    static constexpr bool kReads = false;
    constexpr void fixed(int, std::uint32_t) { ++count; }
    template <class T> constexpr void u(int, const T&, double = 1.0) { ++count; }
    template <class T> constexpr void s(int, const T&, double = 1.0) { ++count; }
    constexpr void sm(int, const double&, double) { ++count; }
    constexpr void sOrNone(int, const double&, double) { ++count; }
    constexpr void text(const Descriptor&) { ++count; }
    std::size_t count = 0;
};

template <class Record, class Layout> constexpr std::size_t fieldsOf(const Layout& layout) {
    FieldCounter counter;
    const Record record{};
    layout(counter, record);
    return counter.count;
}

/// Text from a message made fit for a terminal and for JSON: well-formed UTF-8 without control
/// characters, '?' in place of the rest. What turns the direction of a line stands as \u202E.
std::string clean(std::string_view text);

} // namespace ctl::dump
