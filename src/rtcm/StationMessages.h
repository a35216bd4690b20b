#pragma once

#include "rtcm/rtcm.h"

/// StationMessages: layouts of the station descriptions (RTCM 10403.x). Records: StationInfo, with
/// the station id beside it.

template <class Int, class Info> struct StationMessage {
    Int& staid;
    Info& sta;
};
template <class Int, class Info> StationMessage(Int&, Info&) -> StationMessage<Int, Info>;

inline constexpr auto layoutPosition = [](auto& b, auto& m) {
    b.u(12, m.staid);            // DF003
    b.u(6, m.sta.itrf);          // DF021
    b.fixed(4, 0b1100);          // DF022-024, DF141: GPS and GLONASS, real station
    b.s(38, m.sta.pos[0], 1e-4); // DF025
    b.fixed(2, 0b10);            // DF142 one oscillator, DF001
    b.s(38, m.sta.pos[1], 1e-4); // DF026
    b.fixed(2, 0);               // DF364
    b.s(38, m.sta.pos[2], 1e-4); // DF027
};
inline constexpr auto layout1005 = [](auto& b, auto& m) {
    b.fixed(12, 1005);
    layoutPosition(b, m);
};
inline constexpr auto layout1006 = [](auto& b, auto& m) {
    b.fixed(12, 1006);
    layoutPosition(b, m);
    b.u(16, m.sta.hgt, 1e-4); // DF028
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
