#pragma once

#include "ctl/dump/Fields.h"

#include <optional>
#include <string>
#include <vector>

/// Describe: what an RTCM 3 message says, for people and for JSON.

namespace ctl::dump {

struct Column {
    const char* title; // with its unit
    const char* key;   // JSON
    int decimals = 0;  // of values that are not whole
};

/// A message of an observation epoch, a station or an ephemeris; absent things are empty.
struct Description {
    int type = -1; // -1: a message without the twelve bits of its number
    std::string name;
    bool decoded = false; // its contents are known to this program and are there in whole
    bool tooShort = false;
    std::size_t bytesBeyond = 0; // after the last field
    std::optional<int> station;
    std::string time; // in the message's own time scale
    std::optional<std::vector<std::string>> satellites;
    std::vector<std::string> signals;
    std::optional<bool> more; // further messages of the epoch follow
    std::string note;
    std::vector<Field> fields;
    std::vector<Column> columns; // observations, a row for each satellite and signal
    std::vector<std::vector<Value>> rows;
};

/// "GPS MSM7"; "type 4094, unknown".
std::string messageName(int type);
/// DF002 of a whole frame; -1 where it is too short.
int messageType(std::span<const std::uint8_t> frame);

Description describe(std::span<const std::uint8_t> frame);

/// Kinds of messages that a receiver needs.
bool isObservation(int type);
bool isEphemeris(int type);

} // namespace ctl::dump
