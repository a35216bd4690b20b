#pragma once

#include "rtcm/rtcm.h"

#include <span>

/// StationMessages: layouts of what a station says about itself (RTCM 10403.x).

/// Reference point, 1005 and 1006.
struct WirePosition {
    int staid = 0, itrf = 0;
    int gps = 0, glonass = 0, galileo = 0; // services
    int nonPhysical = 0;                   // 1: computed reference station
    std::array<double, 3> pos{};           // m
    int oscillator = 0;                    // 1: one for all signals
    int reserved = 0, quarterCycle = 0;
    double hgt = 0.0; // antenna height, m; 1006
};

inline constexpr auto layoutPosition = [](auto& b, auto& m) {
    b.u(12, m.staid);        // DF003
    b.u(6, m.itrf);          // DF021
    b.u(1, m.gps);           // DF022
    b.u(1, m.glonass);       // DF023
    b.u(1, m.galileo);       // DF024
    b.u(1, m.nonPhysical);   // DF141
    b.s(38, m.pos[0], 1e-4); // DF025
    b.u(1, m.oscillator);    // DF142
    b.u(1, m.reserved);      // DF001
    b.s(38, m.pos[1], 1e-4); // DF026
    b.u(2, m.quarterCycle);  // DF364
    b.s(38, m.pos[2], 1e-4); // DF027
};
inline constexpr auto layout1005 = [](auto& b, auto& m) {
    b.fixed(12, 1005);
    layoutPosition(b, m);
};
inline constexpr auto layout1006 = [](auto& b, auto& m) {
    b.fixed(12, 1006);
    layoutPosition(b, m);
    b.u(16, m.hgt, 1e-4); // DF028
};
static_assert(bitsOf<WirePosition>(layout1005) == 152);
static_assert(bitsOf<WirePosition>(layout1006) == 168);

/// Antenna and receiver descriptions, 1007, 1008 and 1033.
struct WireStation {
    int staid = 0;
    StationInfo sta;
};

inline constexpr auto layout1007 = [](auto& b, auto& m) {
    b.fixed(12, 1007);
    b.u(12, m.staid);
    b.text(m.sta.antdes);   // DF029, DF030
    b.u(8, m.sta.antsetup); // DF031
};
inline constexpr auto layout1008 = [](auto& b, auto& m) {
    b.fixed(12, 1008);
    b.u(12, m.staid);
    b.text(m.sta.antdes);
    b.u(8, m.sta.antsetup);
    b.text(m.sta.antsno); // DF032, DF033
};
inline constexpr auto layout1033 = [](auto& b, auto& m) {
    b.fixed(12, 1033);
    b.u(12, m.staid);
    b.text(m.sta.antdes);
    b.u(8, m.sta.antsetup);
    b.text(m.sta.antsno);
    b.text(m.sta.rectype); // DF227, DF228
    b.text(m.sta.recver);  // DF229, DF230
    b.text(m.sta.recsno);  // DF231, DF232
};

/// GLONASS code-phase biases; a bias is there where its bit of the mask is set.
struct Biases1230 {
    int staid = 0;
    int align = 0;
    int mask = 0;
    std::array<double, 4> biasM{}; // 1C, 1P, 2C, 2P
};
inline constexpr auto layout1230 = [](auto& b, auto& m) {
    b.fixed(12, 1230);
    b.u(12, m.staid);
    b.u(1, m.align); // DF421
    b.fixed(3, 0);
    b.u(4, m.mask); // DF422
    for (std::size_t i = 0; i < m.biasM.size(); ++i)
        if (m.mask & 8 >> i)
            b.sOrNone(16, m.biasM[i], 0.02); // DF423-426
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
    b.fixed(12, 1013);
    b.u(12, m.staid);
    b.u(16, m.mjd);          // DF051
    b.u(17, m.secondsOfDay); // DF052
    b.u(5, m.count);         // DF053
    b.u(8, m.leapSeconds);   // DF054
    for (auto& a : std::span(m.messages.data(), static_cast<std::size_t>(m.count))) {
        b.u(12, a.type);           // DF055
        b.u(1, a.synchronous);     // DF056
        b.u(16, a.intervalS, 0.1); // DF057
    }
};

/// Text in UTF-8.
struct UnicodeText {
    int staid = 0;
    int mjd = 0, secondsOfDay = 0; // UTC
    int characters = 0;
    int bytes = 0;
    std::array<char, 256> text{};
};
inline constexpr auto layout1029Head = [](auto& b, auto& m) {
    b.fixed(12, 1029);
    b.u(12, m.staid);
    b.u(16, m.mjd);          // DF051
    b.u(17, m.secondsOfDay); // DF052
    b.u(7, m.characters);    // DF138
    b.u(8, m.bytes);         // DF139
};
inline constexpr auto layout1029Text = [](auto& b, auto& m) {
    for (auto& c : std::span(m.text.data(), static_cast<std::size_t>(m.bytes)))
        b.u(8, c); // DF140
};
inline constexpr auto layout1029 = [](auto& b, auto& m) {
    layout1029Head(b, m);
    layout1029Text(b, m);
};
