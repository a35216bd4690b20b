#pragma once

#include "rtcm/rtcm.h"

#include <span>

/// StationMessages: layouts of what a station says about itself (RTCM 10403.x).

/// Reference point, 1005 and 1006.
struct PositionMessage {
    int staid = 0, itrf = 0;
    int gps = 0, glonass = 0, galileo = 0; // services
    int nonPhysical = 0;                   // 1: computed reference station
    std::array<double, 3> pos{};           // m
    int oscillator = 0;                    // 1: one for all signals
    int reserved = 0, quarterCycle = 0;
    double hgt = 0.0; // antenna height, m; 1006
};

// clang-format off
template <int type> inline constexpr auto layoutStation = [](auto& b, auto& m) {
    b.fixed(12, type,          df(2, "message number"));
    b.u(12, m.staid,           df(3, "station id"));
};

template <int type> inline constexpr auto layoutPosition = [](auto& b, auto& m) {
    layoutStation<type>(b, m);
    b.u(6,  m.itrf,            df(21, "ITRF realization year"));
    b.u(1,  m.gps,             df(22, "GPS indicator"));
    b.u(1,  m.glonass,         df(23, "GLONASS indicator"));
    b.u(1,  m.galileo,         df(24, "Galileo indicator"));
    b.u(1,  m.nonPhysical,     df(141, "reference station indicator"));
    b.s(38, m.pos[0], 1e-4,    df(25, "ECEF X", "m"));
    b.u(1,  m.oscillator,      df(142, "single receiver oscillator"));
    b.u(1,  m.reserved,        df(1, "reserved"));
    b.s(38, m.pos[1], 1e-4,    df(26, "ECEF Y", "m"));
    b.u(2,  m.quarterCycle,    df(364, "quarter cycle indicator"));
    b.s(38, m.pos[2], 1e-4,    df(27, "ECEF Z", "m"));
};
inline constexpr auto layout1006 = [](auto& b, auto& m) {
    layoutPosition<1006>(b, m);
    b.u(16, m.hgt, 1e-4,       df(28, "antenna height", "m"));
};

/// Antenna and receiver descriptions, 1007, 1008 and 1033. Their counts of characters are DF029,
/// DF032, DF227, DF229 and DF231.
struct EquipmentMessage {
    int staid = 0;
    int antsetup = 0;
    Descriptor antdes{}, antsno{}, rectype{}, recver{}, recsno{};
};

template <int type> inline constexpr auto layoutAntenna = [](auto& b, auto& m) {
    layoutStation<type>(b, m);
    b.text(m.antdes,           df(30, "antenna descriptor"));
    b.u(8,  m.antsetup,        df(31, "antenna set-up id"));
};
template <int type> inline constexpr auto layoutNumberedAntenna = [](auto& b, auto& m) {
    layoutAntenna<type>(b, m);
    b.text(m.antsno,           df(33, "antenna serial number"));
};
inline constexpr auto layout1033 = [](auto& b, auto& m) {
    layoutNumberedAntenna<1033>(b, m);
    b.text(m.rectype,          df(228, "receiver type"));
    b.text(m.recver,           df(230, "receiver firmware"));
    b.text(m.recsno,           df(232, "receiver serial number"));
};

/// GLONASS code-phase biases; a bias is there where its bit of the mask is set.
struct BiasMessage {
    int staid = 0;
    int align = 0;
    int mask = 0;
    std::array<double, 4> biasM{}; // 1C, 1P, 2C, 2P
};
inline constexpr auto layout1230 = [](auto& b, auto& m) {
    layoutStation<1230>(b, m);
    b.u(1,  m.align,           df(421, "code-phase bias indicator"));
    b.fixed(3, 0,              df(1, "reserved"));
    b.u(4,  m.mask,            df(422, "signals mask"));
    if (m.mask & 8)
        b.sOrNone(16, m.biasM[0], 0.02, df(423, "L1 C/A bias", "m"));
    if (m.mask & 4)
        b.sOrNone(16, m.biasM[1], 0.02, df(424, "L1 P bias", "m"));
    if (m.mask & 2)
        b.sOrNone(16, m.biasM[2], 0.02, df(425, "L2 C/A bias", "m"));
    if (m.mask & 1)
        b.sOrNone(16, m.biasM[3], 0.02, df(426, "L2 P bias", "m"));
};
static_assert(bitsOf(layout1230, BiasMessage{.mask = 0xF}) == 32 + 4 * 16);

inline constexpr auto layoutTimeOfDay = [](auto& b, auto& m) {
    b.u(16, m.mjd,             df(51, "modified Julian day"));
    b.u(17, m.secondsOfDay,    df(52, "seconds of day", "s"));
};

/// System parameters: which messages the station sends how often.
struct SystemParameters {
    struct Announcement {
        int type = 0;
        int synchronous = 0;
        double intervalS = 0.0;
    };
    int staid = 0;
    int mjd = 0, secondsOfDay = 0; // UTC
    int count = 0;
    int leapSeconds = 0;
    std::array<Announcement, 32> messages{}; // the count has five bits
};
inline constexpr auto layout1013 = [](auto& b, auto& m) {
    layoutStation<1013>(b, m);
    layoutTimeOfDay(b, m);
    b.u(5,  m.count,           df(53, "messages announced"));
    b.u(8,  m.leapSeconds,     df(54, "leap seconds", "s"));
    for (auto& a : std::span(m.messages.data(), static_cast<std::size_t>(m.count))) {
        b.u(12, a.type,        df(55, "announced message"));
        b.u(1,  a.synchronous, df(56, "sent synchronously"));
        b.u(16, a.intervalS, 0.1, df(57, "transmission interval", "s"));
    }
};
static_assert(bitsOf(layout1013, SystemParameters{.count = 31}) == 70 + 31 * 29);

/// Text in UTF-8.
struct TextMessage {
    int staid = 0;
    int mjd = 0, secondsOfDay = 0; // UTC
    int characters = 0;
    int bytes = 0;
    std::array<char, 256> text{};
};
inline constexpr auto layout1029 = [](auto& b, auto& m) {
    layoutStation<1029>(b, m);
    layoutTimeOfDay(b, m);
    b.u(7,  m.characters,      df(138, "characters"));
    b.u(8,  m.bytes,           df(139, "UTF-8 bytes"));
    b.chars(std::span(m.text.data(), static_cast<std::size_t>(m.bytes)), df(140, "text"));
};
// clang-format on
