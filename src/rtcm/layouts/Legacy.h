#pragma once

#include "rtcm/BitCursor.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>

/// Legacy: layouts of the GPS messages 1001-1004 and the GLONASS messages 1009-1012
/// (RTCM 10403.x), one for all eight, and what their fields say: signals, ambiguity, lock time.

struct LegacyForm {
    bool glonass;
    bool extended; // ambiguity and CNR: 1002, 1004, 1010, 1012
    bool l2;       // 1003, 1004, 1011, 1012
};

constexpr bool isLegacy(int type) {
    return (type >= 1001 && type <= 1004) || (type >= 1009 && type <= 1012);
}
constexpr LegacyForm legacyForm(int type) {
    const int kind = type - (type >= 1009 ? 1009 : 1001);
    return {type >= 1009, kind % 2 == 1, kind >= 2};
}

struct LegacyHead {
    int type = 0, staid = 0;
    std::uint32_t epochMs = 0; // of the week; GLONASS: of the Moscow day
    int more = 0;
    int satellites = 0;
    int smoothing = 0, smoothingInterval = 0;
};

// clang-format off
inline constexpr auto layoutLegacyHead = [](auto& b, auto& h) {
    b.u(12, h.type,             df(2, "message number"));
    b.u(12, h.staid,            df(3, "station id"));
    const bool glonass = legacyForm(h.type).glonass;
    b.u(glonass ? 27 : 30, h.epochMs, df(glonass ? 34 : 4, "epoch time", "ms"));
    b.u(1, h.more,              df(5, "more messages follow"));
    b.u(5, h.satellites,        df(glonass ? 35 : 6, "satellites"));
    b.u(1, h.smoothing,         df(glonass ? 36 : 7, "divergence-free smoothing"));
    b.u(3, h.smoothingInterval, df(glonass ? 37 : 8, "smoothing interval"));
};
// clang-format on

struct LegacySatellite {
    int id = 0;
    int code1 = 0;
    int channel = 0;        // GLONASS channel + 7
    double rangeM = 0.0;    // modulo the ambiguity
    double phase1M = kNone; // L1 phase range minus L1 pseudorange
    int lock1 = 0;
    int ambiguity = 0;
    double cnr1Db = 0.0;
    int code2 = 0;
    double range2M = kNone; // L2 minus L1 pseudorange
    double phase2M = kNone; // L2 phase range minus L1 pseudorange
    int lock2 = 0;
    double cnr2Db = 0.0;
};

// clang-format off
inline constexpr auto layoutLegacySatellite = [](auto& b, auto& s, const LegacyForm& f) {
    const bool r = f.glonass;
    b.u(6, s.id,                        df(r ? 38 : 9, "satellite id"));
    b.u(1, s.code1,                     df(r ? 39 : 10, "L1 code"));
    if (r)
        b.u(5, s.channel,               DataField{40, "frequency channel", "", 1.0, -7});
    b.u(r ? 25 : 24, s.rangeM, 0.02,    df(r ? 41 : 11, "L1 pseudorange", "m"));
    b.sOrNone(20, s.phase1M, 0.0005,    df(r ? 42 : 12, "L1 phase range - pseudorange", "m"));
    b.u(7, s.lock1,                     df(r ? 43 : 13, "L1 lock indicator"));
    if (f.extended) {
        b.u(r ? 7 : 8, s.ambiguity,     df(r ? 44 : 14, "L1 pseudorange ambiguity"));
        b.u(8, s.cnr1Db, 0.25,          df(r ? 45 : 15, "L1 CNR", "dB-Hz"));
    }
    if (f.l2) {
        b.u(2, s.code2,                 df(r ? 46 : 16, "L2 code"));
        b.sOrNone(14, s.range2M, 0.02,  df(r ? 47 : 17, "L2 - L1 pseudorange", "m"));
        b.sOrNone(20, s.phase2M, 0.0005, df(r ? 48 : 18, "L2 phase range - L1 pseudorange", "m"));
        b.u(7, s.lock2,                 df(r ? 49 : 19, "L2 lock indicator"));
        if (f.extended)
            b.u(8, s.cnr2Db, 0.25,      df(r ? 50 : 20, "L2 CNR", "dB-Hz"));
    }
};
// clang-format on

/// Bits of the head and of a satellite.
struct LegacyWidths {
    int head, satellite;
    bool operator==(const LegacyWidths&) const = default;
};
constexpr LegacyWidths legacyWidths(int type) {
    const LegacyHead head{.type = type};
    const LegacySatellite satellite;
    BitCounter headBits;
    layoutLegacyHead(headBits, head);
    BitCounter satelliteBits;
    layoutLegacySatellite(satelliteBits, satellite, legacyForm(type));
    return {headBits.bits(), satelliteBits.bits()};
}
static_assert(legacyWidths(1001) == LegacyWidths{64, 58});
static_assert(legacyWidths(1002) == LegacyWidths{64, 74});
static_assert(legacyWidths(1003) == LegacyWidths{64, 101});
static_assert(legacyWidths(1004) == LegacyWidths{64, 125});
static_assert(legacyWidths(1009) == LegacyWidths{61, 64});
static_assert(legacyWidths(1010) == LegacyWidths{61, 79});
static_assert(legacyWidths(1011) == LegacyWidths{61, 107});
static_assert(legacyWidths(1012) == LegacyWidths{61, 130});

/// Signals by the values of the code indicators; empty = reserved.
using IndicatedSignals = std::array<std::string_view, 4>;
inline constexpr IndicatedSignals kL1Signals{"1C", "1P", "", ""};        // DF010, DF039
inline constexpr IndicatedSignals kGpsL2Signals{"2X", "2P", "2D", "2W"}; // DF016
inline constexpr IndicatedSignals kGlonassL2Signals{"2C", "2P", "", ""}; // DF046
constexpr const IndicatedSignals& l2Signals(bool glonass) {
    return glonass ? kGlonassL2Signals : kGpsL2Signals;
}
/// Value of the indicator for a signal; -1 = the message has no such signal.
constexpr int indicatorOf(const IndicatedSignals& signals, std::string_view signal) {
    const auto at = std::find(signals.begin(), signals.end(), signal);
    return signal.empty() || at == signals.end() ? -1 : static_cast<int>(at - signals.begin());
}

/// Unit of the L1 ambiguity: the range of one or two ms, m.
constexpr double ambiguityM(bool glonass) {
    return kRangeMs * (glonass ? 2.0 : 1.0);
}
/// The L1 pseudorange as sent, m.
inline double l1RangeM(const LegacySatellite& s, bool glonass) {
    return s.rangeM + s.ambiguity * ambiguityM(glonass);
}
/// Splits an L1 pseudorange into ambiguity and remainder; false where the fields cannot hold it.
inline bool splitL1Range(LegacySatellite& s, bool glonass, double rangeM) {
    const double whole = std::floor(rangeM / ambiguityM(glonass));
    if (!(whole >= 0.0 && whole < (glonass ? 128.0 : 256.0)))
        return false;
    s.ambiguity = static_cast<int>(whole);
    s.rangeM = 0.02 * roundHalfUp((rangeM - whole * ambiguityM(glonass)) / 0.02);
    return true;
}

/// DF013, DF019, DF043, DF049: lock time in steps that grow from 1 s to 32 s.
struct LegacyLockRange {
    int below, offset, step; // s
};
inline constexpr std::array<LegacyLockRange, 6> kLegacyLock{
    {{24, 0, 1}, {72, 24, 2}, {168, 120, 4}, {360, 408, 8}, {744, 1176, 16}, {937, 3096, 32}}};
constexpr int legacyLock(double seconds) {
    if (!(seconds > 0.0))
        return 0; // a clock that went back
    for (const LegacyLockRange& r : kLegacyLock)
        if (seconds < r.below)
            return (static_cast<int>(seconds) + r.offset) / r.step;
    return 127;
}
/// The least time (s) that an indicator stands for.
constexpr int leastLockS(int indicator) {
    for (const LegacyLockRange& r : kLegacyLock)
        if (const int s = indicator * r.step - r.offset; s < r.below)
            return s;
    return kLegacyLock.back().below;
}

/// Any of the eight messages, as sent: head.type says which, head.satellites how many rows.
struct LegacyMessage {
    LegacyHead head;
    std::array<LegacySatellite, 32> satellites; // the count has five bits
};

inline constexpr auto layoutLegacyBody = [](auto& b, auto& m) {
    const LegacyForm form = legacyForm(m.head.type);
    for (auto& s : std::span(m.satellites.data(), static_cast<std::size_t>(m.head.satellites)))
        layoutLegacySatellite(b, s, form);
};

inline constexpr auto layoutLegacy = [](auto& b, auto& m) {
    layoutLegacyHead(b, m.head);
    if constexpr (std::remove_reference_t<decltype(b)>::kReads)
        if (!b.ok() || !isLegacy(m.head.type))
            return b.fail();
    layoutLegacyBody(b, m);
};
