#pragma once

#include "rtcm/layouts/EphemerisMessages.h"
#include "rtcm/layouts/Legacy.h"
#include "rtcm/layouts/Msm.h"
#include "rtcm/layouts/StationMessages.h"
#include "rtcm/rtcm3.h"

#include <tuple>

/// Messages: one row for each message that is read or written. A row has a type of its own, so a
/// program holds only the columns that it uses.

/// Takes a message that was read whole; a Status.
template <class Record> using ReadMessage = int (*)(RtcmState&, Record&);
/// Fills a message; false where the state lacks what it needs.
template <class Record> using WriteMessage = bool (*)(RtcmState&, Record&);

/// A message of fields. `bits` is its length in the standard (RTCM 10403.x) while its texts are
/// empty and its counts 0. Without `read` it is passed over, without `write` never sent.
template <class Layout, class R> struct Message {
    using Record = R;

    int type;
    System system; // of its satellite
    const char* name;
    int bits;
    Layout layout;
    ReadMessage<Record> read;
    WriteMessage<Record> write;

    /// A record to be read into or filled.
    constexpr Record blank() const {
        Record m;
        if constexpr (requires { m.system; }) {
            m.type = type;
            m.system = system;
        }
        return m;
    }
};
template <class Layout, class Record>
Message(int, System, const char*, int, Layout, ReadMessage<Record>, WriteMessage<Record>)
    -> Message<Layout, Record>;
template <class Record> inline constexpr ReadMessage<Record> kPassedOver = nullptr;
template <class Record> inline constexpr WriteMessage<Record> kNeverSent = nullptr;

/// Messages of observations, which tell the end of an epoch and may be refused after their head.
template <class Layout> struct Observations {
    int first, last; // types
    const char* name;
    Layout layout;
    int (*read)(RtcmState&, int type); // a Status
    int (*write)(RtcmState&, int type, int sync);

    constexpr bool has(int type) const { return type >= first && type <= last; }
};
template <class Layout>
Observations(int, int, const char*, Layout, int (*)(RtcmState&, int), int (*)(RtcmState&, int, int))
    -> Observations<Layout>;

int decode_type1005(RtcmState& s, PositionMessage& m);
int decode_type1006(RtcmState& s, PositionMessage& m);
int decode_type1007(RtcmState& s, EquipmentMessage& m);
int decode_type1008(RtcmState& s, EquipmentMessage& m);
int decode_type1019(RtcmState& s, KeplerMessage& m);
int decode_type1020(RtcmState& s, GlonassMessage& m);
int decode_type1029(RtcmState& s, TextMessage& m);
int decode_type1033(RtcmState& s, EquipmentMessage& m);
/// NavIC satellites have no numbers, so every one of their ephemerides is refused.
int decode_type1041(RtcmState& s);
int decode_type1042(RtcmState& s, KeplerMessage& m);
int decode_type1044(RtcmState& s, KeplerMessage& m);
int decode_type1045(RtcmState& s, KeplerMessage& m);
int decode_type1046(RtcmState& s, KeplerMessage& m);
int decode_type1230(RtcmState& s, BiasMessage& m);
int decodeMsm(RtcmState& s, int type);
int decodeLegacy(RtcmState& s, int type);

/// What the head of an observation message of that type says of its epoch; one that is cut off may
/// hold another type.
constexpr EpochMessage epochMessage(int type, const MsmHead& h) {
    return {type, msmSystem(type).system, h.staid, h.epoch, h.more != 0};
}
constexpr EpochMessage epochMessage(int type, const LegacyHead& h) {
    return {type, legacyForm(type).glonass ? kGlonass : kGps, h.staid, h.epochMs, h.more != 0};
}
/// Puts a whole message into the records of the epoch.
void storeMsm(RtcmState& s, const MsmMessage& message, const EpochMessage& e);
void storeLegacy(RtcmState& s, const LegacyMessage& message, const EpochMessage& e);

bool encodePosition(RtcmState& s, PositionMessage& m);
bool encodeEquipment(RtcmState& s, EquipmentMessage& m);
bool encode_type1019(RtcmState& s, KeplerMessage& m);
bool encode_type1020(RtcmState& s, GlonassMessage& m);
bool encode_type1042(RtcmState& s, KeplerMessage& m);
bool encode_type1044(RtcmState& s, KeplerMessage& m);
bool encode_type1045(RtcmState& s, KeplerMessage& m);
bool encode_type1046(RtcmState& s, KeplerMessage& m);
bool encode_type1230(RtcmState& s, BiasMessage& m);
int encodeMsm(RtcmState& s, int type, int sync);
int encodeLegacy(RtcmState& s, int type, int sync);

// clang-format off
inline constexpr std::tuple kMessages{
    Message{1005, kNoSystem, "reference point", 152,
            layoutPosition<1005>, decode_type1005, encodePosition},
    Message{1006, kNoSystem, "reference point, height", 168,
            layout1006, decode_type1006, encodePosition},
    Message{1007, kNoSystem, "antenna", 40,
            layoutAntenna<1007>, decode_type1007, encodeEquipment},
    Message{1008, kNoSystem, "antenna, serial number", 48,
            layoutNumberedAntenna<1008>, decode_type1008, encodeEquipment},
    Message{1013, kNoSystem, "system parameters", 70,
            layout1013, kPassedOver<SystemParameters>, kNeverSent<SystemParameters>},
    Message{1019, kGps, "GPS ephemeris", 488,
            layout1019, decode_type1019, encode_type1019},
    Message{1020, kGlonass, "GLONASS ephemeris", 360,
            layout1020, decode_type1020, encode_type1020},
    Message{1029, kNoSystem, "text", 72,
            layout1029, decode_type1029, kNeverSent<TextMessage>},
    Message{1033, kNoSystem, "antenna and receiver", 72,
            layout1033, decode_type1033, encodeEquipment},
    Message{1042, kBds, "BDS ephemeris", 511,
            layoutBds<1042>, decode_type1042, encode_type1042},
    Message{63, kBds, "BDS ephemeris, preliminary", 511,
            layoutBds<63>, decode_type1042, encode_type1042},
    Message{1044, kQzss, "QZSS ephemeris", 485,
            layout1044, decode_type1044, encode_type1044},
    Message{1045, kGalileo, "Galileo F/NAV ephemeris", 496,
            layout1045, decode_type1045, encode_type1045},
    Message{1046, kGalileo, "Galileo I/NAV ephemeris", 504,
            layout1046, decode_type1046, encode_type1046},
    Message{1230, kNoSystem, "GLONASS biases", 32,
            layout1230, decode_type1230, encode_type1230}};

/// MSM1 to MSM7 of a system, whose last digit follows its name; the GPS and GLONASS messages from
/// before MSM.
inline constexpr std::tuple kObservations{
    Observations{1071, 1077, "GPS MSM", layoutMsm, decodeMsm, encodeMsm},
    Observations{1081, 1087, "GLONASS MSM", layoutMsm, decodeMsm, encodeMsm},
    Observations{1091, 1097, "Galileo MSM", layoutMsm, decodeMsm, encodeMsm},
    Observations{1101, 1107, "SBAS MSM", layoutMsm, decodeMsm, encodeMsm},
    Observations{1111, 1117, "QZSS MSM", layoutMsm, decodeMsm, encodeMsm},
    Observations{1121, 1127, "BDS MSM", layoutMsm, decodeMsm, encodeMsm},
    Observations{1131, 1137, "NavIC MSM", layoutMsm, decodeMsm, encodeMsm},
    Observations{1001, 1001, "GPS L1", layoutLegacy, decodeLegacy, encodeLegacy},
    Observations{1002, 1002, "GPS L1 extended", layoutLegacy, decodeLegacy, encodeLegacy},
    Observations{1003, 1003, "GPS L1/L2", layoutLegacy, decodeLegacy, encodeLegacy},
    Observations{1004, 1004, "GPS L1/L2 extended", layoutLegacy, decodeLegacy, encodeLegacy},
    Observations{1009, 1009, "GLONASS L1", layoutLegacy, decodeLegacy, encodeLegacy},
    Observations{1010, 1010, "GLONASS L1 extended", layoutLegacy, decodeLegacy, encodeLegacy},
    Observations{1011, 1011, "GLONASS L1/L2", layoutLegacy, decodeLegacy, encodeLegacy},
    Observations{1012, 1012, "GLONASS L1/L2 extended", layoutLegacy, decodeLegacy, encodeLegacy}};
// clang-format on

/// Calls visit with the first row of a table that is right; false where none is.
template <class... Rows, class Right, class Visit>
constexpr bool visitRow(const std::tuple<Rows...>& rows, Right right, Visit visit) {
    return std::apply(
        [&](const Rows&... row) { return ((right(row) && (visit(row), true)) || ...); }, rows);
}
template <class Visit> constexpr bool visitMessage(int type, Visit visit) {
    return visitRow(
        kMessages, [&](const auto& row) { return row.type == type; }, visit);
}
template <class Visit> constexpr bool visitObservations(int type, Visit visit) {
    return visitRow(
        kObservations, [&](const auto& row) { return row.has(type); }, visit);
}

/// Type of the first message whose layout is not as long as its row says; 0 = none.
constexpr int firstOfWrongLength() {
    int type = 0;
    visitRow(
        kMessages, [](const auto& row) { return bitsOf(row.layout, row.blank()) != row.bits; },
        [&](const auto& row) { type = row.type; });
    return type;
}
static_assert(firstOfWrongLength() == 0);
