#include "gnss/gnsscmn.h"

#include "base/ComText.h"

#include <bit>

namespace {

// clang-format off
/// Systems in the order of their flags, as the rows of the tables below.
constexpr std::string_view kOptionLetters = "GSREJCI"; // of the option patterns "-GL%2s" and so on
constexpr std::size_t kRows = kOptionLetters.size();

/// Slot and carrier (Hz) of a band digit; the step is per GLONASS channel.
struct Band { char digit; int slot; double hz; double stepHz; };
constexpr std::array<std::array<Band, 6>, kRows> kBands{{
    {{{'1', 0, 1575420000.0, 0}, {'2', 1, 1227600000.0, 0}, {'5', 2, 1176450000.0, 0}}},
    {{{'1', 0, 1575420000.0, 0}, {'5', 1, 1176450000.0, 0}}},
    {{{'1', 0, 1602000000.0, 562500.0}, {'2', 1, 1246000000.0, 437500.0},
      {'3', 2, 1202025000.0, 0}, {'4', 0, 1600995000.0, 0}, {'6', 1, 1248060000.0, 0}}},
    {{{'1', 0, 1575420000.0, 0}, {'5', 2, 1176450000.0, 0}, {'6', 3, 1278750000.0, 0},
      {'7', 1, 1207140000.0, 0}, {'8', 4, 1191795000.0, 0}}},
    {{{'1', 0, 1575420000.0, 0}, {'2', 1, 1227600000.0, 0}, {'5', 2, 1176450000.0, 0},
      {'6', 3, 1278750000.0, 0}}},
    // Deliberate: B1C ('1') and B1I ('2') share slot 0; the priority decides.
    {{{'1', 0, 1575420000.0, 0}, {'2', 0, 1561098000.0, 0}, {'5', 2, 1176450000.0, 0},
      {'6', 3, 1268520000.0, 0}, {'7', 1, 1207140000.0, 0}, {'8', 4, 1191795000.0, 0}}},
    {{{'5', 0, 1176450000.0, 0}, {'9', 1, 2492028000.0, 0}}},
}};

/// Tracking letters per slot, the best first.
constexpr std::array<std::array<std::string_view, 5>, kRows> kTrackingLetters{{
    {"CPYWMNSL", "PYWCMNDLSX", "IQX", "", ""},
    {"C", "IQX", "", "", ""},
    {"CPABX", "PCABX", "IQX", "", ""},
    {"CABXZ", "IQX", "IQX", "ABCXZ", "IQX"},
    {"CLSXZ", "LSX", "IQXDPZ", "LSXEZ", ""},
    {"IQXDPAN", "IQXDPZ", "DPX", "IQXA", "DPX"},
    {"ABCX", "ABCX", "", "", ""},
}};
// clang-format on

int rowOf(unsigned system) {
    const bool one = system != 0 && (system & (system - 1)) == 0;
    return one && system <= kIrnss ? std::countr_zero(system) : -1;
}

/// A table by system and code.
template <class T> using BySignal = std::array<std::array<T, kMaxCode + 1>, kRows>;

constexpr BySignal<Band> makeBands() {
    BySignal<Band> bands{};
    for (std::size_t row = 0; row < kRows; ++row)
        for (std::size_t code = 0; code <= kMaxCode; ++code) {
            bands[row][code].slot = -1;
            for (const Band& band : kBands[row])
                if (code > 0 && code <= kLastPrintedCode && band.digit == obscodes[code][0])
                    bands[row][code] = band;
        }
    return bands;
}
constexpr BySignal<Band> kBandOf = makeBands();

const Band& bandOf(unsigned system, int code) {
    const int row = rowOf(system);
    return row < 0 || code < 0 || code > kMaxCode
               ? kBandOf[0][0]
               : kBandOf[static_cast<std::size_t>(row)][static_cast<std::size_t>(code)];
}

using Priorities = BySignal<std::uint8_t>;
constexpr void setPriorities(Priorities& priorities, std::size_t row, int slot,
                             std::string_view letters) {
    for (std::size_t code = 1; code <= kMaxCode; ++code)
        if (kBandOf[row][code].slot == slot) {
            const std::size_t place = letters.substr(0, 15).find(obscodes[code][1]);
            priorities[row][code] =
                static_cast<std::uint8_t>(place == std::string_view::npos ? 0 : 14 - place);
        }
}
constexpr Priorities makePriorities() {
    Priorities priorities{};
    for (std::size_t row = 0; row < kRows; ++row)
        for (std::size_t slot = 0; slot < kTrackingLetters[row].size(); ++slot)
            setPriorities(priorities, row, static_cast<int>(slot), kTrackingLetters[row][slot]);
    return priorities;
}
/// Writable through setcodepri.
constinit Priorities codepris = makePriorities();

/// 15 or 0 by the first option for the code's band; -1 where no option speaks of it.
int priorityByOption(char systemLetter, std::string_view obs, std::string_view options) {
    const std::array<char, 3> head{'-', systemLetter, 'L'};
    const std::string_view pattern{head.data(), head.size()};
    for (std::size_t at = options.find(pattern); at != std::string_view::npos;
         at = options.find(pattern, at + 1)) {
        const std::string_view value = options.substr(at + pattern.size(), 2);
        if (value.size() == 2 && value[0] == obs[0])
            return value[1] == obs[1] ? 15 : 0;
    }
    return -1;
}

} // namespace

int satid2no(std::string_view id) {
    int prn = 0;
    if (TextScanner bare(id); bare.integer(prn)) {
        for (const System system : {kGps, kSbas, kQzss})
            if (const int sat = satno(system, prn))
                return sat;
        return 0;
    }
    if (id.empty())
        return 0;
    TextScanner number(id.substr(1));
    if (!number.integer(prn) || prn < 0 || prn > 999)
        return 0;
    if (id[0] == 'S')
        return satno(kSbas, prn + 100);
    for (const SatelliteBlock& block : kSatelliteBlocks)
        if (block.letter == id[0] && block.letter != 0)
            return satno(block.system, prn + block.prnOfZero);
    return 0; // I and L are names of systems without a block
}

std::string satno2id(int sat) {
    int prn = 0;
    const unsigned system = satsys(sat, &prn);
    for (const SatelliteBlock& block : kSatelliteBlocks) {
        if (block.system != system)
            continue;
        const int number = prn - block.prnOfZero;
        const auto digit = [number](int unit) {
            return static_cast<char>('0' + number / unit % 10);
        };
        return {block.letter ? block.letter : digit(100), digit(10), digit(1)};
    }
    return {};
}

std::string_view code2obs(int code) {
    return code > 0 && code <= kLastPrintedCode ? obscodes[static_cast<std::size_t>(code)]
                                                : std::string_view{};
}

int code2idx(unsigned system, int code) {
    return bandOf(system, code).slot;
}

double code2freq(unsigned system, int code, int fcn) {
    const Band& band = bandOf(system, code);
    if (band.stepHz == 0.0)
        return band.hz;
    return validChannel(fcn) ? band.hz + band.stepHz * fcn : 0.0;
}

double bandFrequency(char systemLetter, char digit, int fcn) {
    const std::size_t row = kOptionLetters.find(systemLetter);
    if (row == std::string_view::npos)
        return 0.0;
    for (const Band& band : kBands[row])
        if (band.digit == digit)
            return band.hz + band.stepHz * fcn;
    return 0.0;
}

void setcodepri(unsigned systems, int idx, std::string_view letters) {
    for (std::size_t row = 0; row < kRows; ++row)
        if (systems >> row & 1U)
            setPriorities(codepris, row, idx, letters);
}

int getcodepri(unsigned system, int code, std::string_view options) {
    if (code2idx(system, code) < 0)
        return 0;
    const auto row = static_cast<std::size_t>(rowOf(system));
    if (!options.empty())
        if (const int byOption = priorityByOption(kOptionLetters[row], code2obs(code), options);
            byOption >= 0)
            return byOption;
    return codepris[row][static_cast<std::size_t>(code)];
}
