#pragma once

#include "gnss/gnsscmn.h"
#include "rtcm/BitCursor.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string_view>
#include <type_traits>

/// Msm: signal tables, record and layout of the Multiple Signal Messages MSM4 to MSM7
/// (RTCM 10403.x), shared by all that read or write them.

inline constexpr std::size_t kMsmSatellites = 64;
inline constexpr std::size_t kMsmSignals = 32;
inline constexpr std::size_t kMsmCells = 64;

/// Bit of a satellite id, 1 to 64, in a mask (DF394).
constexpr std::uint64_t idBit(int id) {
    return std::uint64_t{1} << (kMsmSatellites - static_cast<std::size_t>(id));
}

/// Observation codes by signal id, 1 to 32; 0 = none.
using SignalCodes = std::array<std::uint8_t, kMsmSignals + 1>;

/// Systems by the tens of the message number: 1070, 1080, ... 1130.
struct MsmSystem {
    System system;
    int firstPrn; // PRN of MSM satellite id 1
    int msmtype;  // entry of RtcmState::msmtype; -1 = none
    SignalCodes codes;
};

/// A table from the signal ids that a system has. Signals that have no observation code ("8I",
/// "7A", ...) end as unknown.
struct SignalId {
    std::size_t id;
    std::string_view code;
};
constexpr SignalCodes signalCodes(std::initializer_list<SignalId> signals) {
    SignalCodes codes{};
    for (const SignalId& signal : signals)
        codes[signal.id] = obs2code(signal.code);
    return codes;
}

// clang-format off
inline constexpr std::array<MsmSystem, 7> kMsmSystems{{
    {kGps, 1, 0, signalCodes({
        {2, "1C"}, {3, "1P"}, {4, "1W"}, {8, "2C"}, {9, "2P"}, {10, "2W"}, {15, "2S"}, {16, "2L"},
        {17, "2X"}, {22, "5I"}, {23, "5Q"}, {24, "5X"}, {30, "1S"}, {31, "1L"}, {32, "1X"}})},
    {kGlonass, 1, 1, signalCodes({{2, "1C"}, {3, "1P"}, {8, "2C"}, {9, "2P"}})},
    {kGalileo, 1, 2, signalCodes({
        {2, "1C"}, {3, "1A"}, {4, "1B"}, {5, "1X"}, {6, "1Z"}, {8, "6C"}, {9, "6A"}, {10, "6B"},
        {11, "6X"}, {12, "6Z"}, {14, "7I"}, {15, "7Q"}, {16, "7X"}, {18, "8I"}, {19, "8Q"},
        {20, "8X"}, {22, "5I"}, {23, "5Q"}, {24, "5X"}})},
    {kSbas, 120, 4, signalCodes({{2, "1C"}, {22, "5I"}, {23, "5Q"}, {24, "5X"}})},
    {kQzss, 193, 3, signalCodes({
        {2, "1C"}, {9, "6S"}, {10, "6L"}, {11, "6X"}, {15, "2S"}, {16, "2L"}, {17, "2X"},
        {22, "5I"}, {23, "5Q"}, {24, "5X"}, {30, "1S"}, {31, "1L"}, {32, "1X"}})},
    // Deliberate: this system's own assignment from 17 on.
    {kBds, 1, 5, signalCodes({
        {2, "2I"}, {3, "2Q"}, {4, "2X"}, {5, "1I"}, {6, "1Q"}, {7, "1X"}, {8, "6I"}, {9, "6Q"},
        {10, "6X"}, {14, "7I"}, {15, "7Q"}, {16, "7X"}, {17, "5I"}, {18, "5Q"}, {19, "5X"},
        {20, "7A"}, {21, "7B"}, {22, "7C"}, {23, "8I"}, {24, "8Q"}, {25, "8X"}, {26, "1A"},
        {27, "1B"}, {28, "1C"}, {29, "1X"}, {30, "1Y"}, {31, "1Z"}})},
    {kIrnss, 1, -1, signalCodes({{22, "5A"}})},
}};
// clang-format on

/// What tells MSM4 to MSM7 apart; steps in ms, ms, dB-Hz.
struct MsmForm {
    int range, phase, lock, cnr; // widths of DF400/405, 401/406, 402/407, 403/408
    double rangeMs, phaseMs, cnrDb;
    bool rates; // DF399, DF404 and the extended satellite information
};
inline constexpr std::array<MsmForm, 4> kMsmForms{{
    {15, 22, 4, 6, pow2(-24), pow2(-29), 1.0, false},      // MSM4
    {15, 22, 4, 6, pow2(-24), pow2(-29), 1.0, true},       // MSM5
    {20, 24, 10, 10, pow2(-29), pow2(-31), 0.0625, false}, // MSM6
    {20, 24, 10, 10, pow2(-29), pow2(-31), 0.0625, true},  // MSM7
}};
/// Form of an MSM type from MSM4 to MSM7.
constexpr const MsmForm& msmForm(int type) {
    return kMsmForms[static_cast<std::size_t>(type % 10 - 4)];
}

/// Shortest time of lock that an indicator stands for, ms: DF402 doubles from 32 ms on; DF407 is
/// the time itself up to 64 ms, then 32 steps for every doubling.
constexpr std::int64_t lockMs(const MsmForm& form, int indicator) {
    if (form.lock == 4)
        return indicator == 0 ? 0 : std::int64_t{16} << indicator;
    const int doublings = std::max(0, indicator / 32 - 1);
    return std::int64_t{indicator - 32 * doublings} << doublings;
}
/// The largest indicator that a time of lock reaches.
constexpr int lockIndicator(const MsmForm& form, double seconds) {
    int reached = 0;
    int last = form.lock == 4 ? 15 : 704; // DF407: the rest is reserved
    if (seconds < static_cast<double>(lockMs(form, 1)) * 1e-3)
        return 0; // most often: lock begins
    while (reached < last) {
        const int middle = (reached + last + 1) / 2;
        if (seconds >= static_cast<double>(lockMs(form, middle)) * 1e-3)
            reached = middle;
        else
            last = middle - 1;
    }
    return reached;
}

struct MsmHead {
    int type = 0, staid = 0;
    std::uint32_t epoch = 0; // ms of week; GLONASS: day of week << 27 | ms of day
    int more = 0, iods = 0, reserved = 0;
    int steering = 0, externalClock = 0, smoothing = 0, smoothingInterval = 0;
    std::uint64_t satellites = 0; // bit 63 = id 1
    std::uint32_t signals = 0;    // bit 31 = id 1
};

/// Number of the field of the epoch time, by system. That of GLONASS stands behind three bits of
/// DF416, the day of the week.
constexpr int msmEpochDf(int type) {
    constexpr std::array<int, kMsmSystems.size()> numbers{4, 34, 248, 4, 428, 427, 546};
    const auto row = static_cast<std::size_t>((type - 1070) / 10);
    return row < numbers.size() ? numbers[row] : 0;
}

// clang-format off
inline constexpr auto layoutMsmHead = [](auto& b, auto& h) {
    b.u(12, h.type,              df(2, "message number"));
    b.u(12, h.staid,             df(3, "station id"));
    b.u(30, h.epoch,             df(msmEpochDf(h.type), "epoch time", "ms"));
    b.u(1,  h.more,              df(393, "more messages follow"));
    b.u(3,  h.iods,              df(409, "IODS"));
    b.u(7,  h.reserved,          df(1, "reserved"));
    b.u(2,  h.steering,          df(411, "clock steering"));
    b.u(2,  h.externalClock,     df(412, "external clock"));
    b.u(1,  h.smoothing,         df(417, "divergence-free smoothing"));
    b.u(3,  h.smoothingInterval, df(418, "smoothing interval"));
    b.u(64, h.satellites,        df(394, "satellite mask"));
    b.u(32, h.signals,           df(395, "signal mask"));
};
// clang-format on
static_assert(bitsOf(layoutMsmHead, MsmHead{}) == 169);
/// Bits of a head before the two masks, for who wants nothing else of it.
inline constexpr std::size_t kMsmBitsBeforeMasks = bitsOf(layoutMsmHead, MsmHead{}) - 64 - 32;

struct MsmSatellite {
    int rangeMs;       // whole ms of the rough range; 255 = none
    int rangeFraction; // 2^-10 ms
    int extended;
    double rateMps; // rough phase-range rate

    bool hasRange() const { return rangeMs != 255; }
    double roughMs() const { return rangeMs + rangeFraction * pow2(-10); }
    /// The rough range in steps of 2^-10 ms, below 255 ms.
    void setRange(std::uint32_t steps) {
        rangeMs = static_cast<int>(steps >> 10);
        rangeFraction = static_cast<int>(steps & 0x3FF);
    }
};

inline constexpr MsmSatellite kNoMsmSatellite{255, 0, 0, kNone};

// clang-format off
inline constexpr auto layoutMsmSatellites = [](auto& b, auto& satellites, const MsmForm& f) {
    for (auto& s : satellites)
        b.u(8, s.rangeMs,           df(397, "whole ms of rough range", "ms"));
    if (f.rates)
        for (auto& s : satellites)
            b.u(4, s.extended,      df(419, "extended information")); // GLONASS: channel + 7
    for (auto& s : satellites)
        b.u(10, s.rangeFraction,    df(398, "fraction of rough range", "2^-10 ms"));
    if (f.rates)
        for (auto& s : satellites)
            b.sOrNone(14, s.rateMps, 1.0, df(399, "rough phase-range rate", "m/s"));
};
// clang-format on

struct MsmCell {
    double rangeMs; // fine pseudorange
    double phaseMs; // fine phase range
    int lock;       // indicator
    int halfCycle;
    double cnrDb;   // dB-Hz
    double rateMps; // fine phase-range rate
};
inline constexpr MsmCell kNoMsmCell{kNone, kNone, 0, 0, 0.0, kNone};

// clang-format off
inline constexpr auto layoutMsmCells = [](auto& b, auto& cells, const MsmForm& f) {
    const bool fine = f.lock == 10; // MSM6, MSM7
    for (auto& c : cells)
        b.sOrNone(f.range, c.rangeMs, f.rangeMs, df(fine ? 405 : 400, "fine pseudorange", "ms"));
    for (auto& c : cells)
        b.sOrNone(f.phase, c.phaseMs, f.phaseMs, df(fine ? 406 : 401, "fine phase range", "ms"));
    for (auto& c : cells)
        b.u(f.lock, c.lock,         df(fine ? 407 : 402, "lock indicator"));
    for (auto& c : cells)
        b.u(1, c.halfCycle,         df(420, "half-cycle ambiguity"));
    for (auto& c : cells)
        b.u(f.cnr, c.cnrDb, f.cnrDb, df(fine ? 408 : 403, "CNR", "dB-Hz"));
    if (f.rates)
        for (auto& c : cells)
            b.sOrNone(15, c.rateMps, 1e-4, df(404, "fine phase-range rate", "m/s"));
};
// clang-format on

/// Bits of a satellite and of a cell.
struct MsmWidths {
    int satellite, cell;
    bool operator==(const MsmWidths&) const = default;
};
constexpr MsmWidths msmWidths(const MsmForm& form) {
    const std::array satellite{kNoMsmSatellite};
    const std::array cell{kNoMsmCell};
    BitCounter satelliteBits;
    layoutMsmSatellites(satelliteBits, satellite, form);
    BitCounter cellBits;
    layoutMsmCells(cellBits, cell, form);
    return {satelliteBits.bits(), cellBits.bits()};
}
static_assert(msmWidths(kMsmForms[0]) == MsmWidths{18, 48});
static_assert(msmWidths(kMsmForms[1]) == MsmWidths{36, 63});
static_assert(msmWidths(kMsmForms[2]) == MsmWidths{18, 65});
static_assert(msmWidths(kMsmForms[3]) == MsmWidths{36, 80});

/// Any of the 28 messages, as sent: head.type says which. Rows beyond the counts are not even set.
struct MsmMessage {
    MsmHead head;
    std::size_t satelliteCount = 0, signalCount = 0, cellCount = 0;
    std::uint64_t cellMask = 0;                          // DF396 as sent; its last bit is bit 0
    std::array<MsmSatellite, kMsmSatellites> satellites; // in order of id
    std::array<MsmCell, kMsmCells> cells;                // satellite by satellite

    std::size_t pairs() const { return satelliteCount * signalCount; }
    std::size_t maskBits() const { return std::min(pairs(), kMsmCells); }
    /// Whether a satellite has a signal, both by rank; pairs() must not exceed 64.
    bool hasCell(std::size_t satellite, std::size_t signal) const {
        return cellMask >> (pairs() - 1 - satellite * signalCount - signal) & 1U;
    }
    /// Counts that follow from the masks of the head, before the cell mask is used; empties the
    /// satellites.
    void countHead() {
        satelliteCount = static_cast<std::size_t>(std::popcount(head.satellites));
        signalCount = static_cast<std::size_t>(std::popcount(head.signals));
        std::fill_n(satellites.begin(), satelliteCount, kNoMsmSatellite);
    }
    /// So many empty cells.
    void makeCells(std::size_t count) {
        cellCount = count;
        std::fill_n(cells.begin(), cellCount, kNoMsmCell);
    }
    void countCells() { makeCells(static_cast<std::size_t>(std::popcount(cellMask))); }
};

constexpr bool isMsm4To7(int type) {
    return type >= 1071 && type <= 1137 && type % 10 >= 4 && type % 10 <= 7;
}
/// System of an MSM type.
constexpr const MsmSystem& msmSystem(int type) {
    return kMsmSystems[static_cast<std::size_t>((type - 1070) / 10)];
}

/// What follows the head, whose counts are known and whose pairs are 64 at most where it is read.
inline constexpr auto layoutMsmBody = [](auto& b, auto& m) {
    const MsmForm& form = msmForm(m.head.type);
    if (m.maskBits() > 0)
        b.u(static_cast<int>(m.maskBits()), m.cellMask, df(396, "cell mask"));
    if constexpr (std::remove_reference_t<decltype(b)>::kReads)
        m.countCells();
    const std::span satellites(m.satellites.data(), m.satelliteCount);
    const std::span cells(m.cells.data(), m.cellCount);
    layoutMsmSatellites(b, satellites, form);
    layoutMsmCells(b, cells, form);
};

/// A whole message. Before it is written, the counts are set.
inline constexpr auto layoutMsm = [](auto& b, auto& m) {
    layoutMsmHead(b, m.head);
    if constexpr (std::remove_reference_t<decltype(b)>::kReads) {
        m.countHead();
        if (!b.ok() || !isMsm4To7(m.head.type) || m.pairs() > kMsmCells)
            return b.fail();
    }
    layoutMsmBody(b, m);
};

/// Places the 1-based positions of the set bits, the most significant being 1; their number.
template <class Mask, std::size_t n> std::size_t listBits(Mask mask, std::array<int, n>& out) {
    static_assert(n == 8 * sizeof(Mask));
    std::size_t count = 0;
    while (mask) {
        const int at = std::countl_zero(mask);
        out[count++] = at + 1;
        mask &= ~(Mask{1} << (static_cast<int>(n) - 1 - at));
    }
    return count;
}
