#pragma once

#include "rtcm/BitCursor.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// Fields: the fields of a message with what they are. FieldReader runs over a layout of rtcm/ like
/// BitReader and keeps every value as it was sent, in the unit of the standard (RTCM 10403.x).

namespace ctl::dump {

/// std::monostate: the message says that there is no value.
using Value = std::variant<std::monostate, std::int64_t, double, std::string>;
/// A number as people and JSON read it: 15 significant digits at most.
std::string textOf(const Value& value);

struct Field {
    DataField name;
    Value value;
};

class FieldReader {
public:
    static constexpr bool kReads = true;

    explicit FieldReader(BitReader in) : in_(in) {}

    bool ok() const { return in_.ok(); }
    std::size_t left() const { return in_.left(); }
    void fail() { in_.fail(); }
    std::vector<Field>& fields() { return fields_; }

    /// What was sent, whatever it should have been.
    void fixed(int width, std::uint32_t, const DataField& name) {
        std::uint32_t sent = 0;
        u(width, sent, name);
    }
    template <std::integral T> void u(int width, T& value, const DataField& name) {
        in_.u(width, value);
        if (width < 32)
            add(name, static_cast<std::int64_t>(value) + name.origin);
        else
            addMask(name, width, static_cast<std::uint64_t>(value));
    }
    void u(int width, double& value, double unit, const DataField& name) {
        in_.u(width, value, unit / name.held);
        keep(name, value);
    }
    void s(int width, double& value, double unit, const DataField& name) {
        in_.s(width, value, unit / name.held);
        keep(name, value);
    }
    void sm(int width, double& value, double unit, const DataField& name) {
        in_.sm(width, value, unit / name.held);
        keep(name, value);
    }
    void sOrNone(int width, double& value, double unit, const DataField& name) {
        in_.sOrNone(width, value, unit / name.held);
        keep(name, value);
    }
    void text(Descriptor& value, const DataField& name) {
        in_.text(value);
        addText(name, view(value));
    }
    void chars(std::span<char> value, const DataField& name) {
        in_.chars(value);
        addText(name, {value.data(), value.size()});
    }

private:
    /// The field as sent; the record's value in its own unit.
    void keep(const DataField& name, double& value) {
        add(name, isNone(value) ? Value{} : Value{value});
        value *= name.held;
    }
    void add(const DataField& name, Value value);
    void addText(const DataField& name, std::string_view said);
    void addMask(const DataField& name, int width, std::uint64_t bits);

    BitReader in_;
    std::vector<Field> fields_;
};

/// Text from a message made fit for a terminal and for JSON: well-formed UTF-8 without control
/// characters, '?' in place of the rest. What turns the direction of a line stands as \u202E.
std::string clean(std::string_view text);

} // namespace ctl::dump
