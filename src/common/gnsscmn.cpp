#include "common/gnsscmn.h"

#include "common/ComText.h"

#include <algorithm>
#include <cstdio>

namespace {

/// Blocks of satellite numbers, laid end to end.
struct Block {
    System system;
    int firstPrn;
    int count;
    char letter;   // of the satellite's name; 0 = the PRN alone
    int prnOfZero; // PRN minus the number in the name
};
constexpr std::array<Block, 6> kBlocks{{{kGps, 1, 32, 'G', 0},
                                        {kGlonass, 1, kGlonassSlots, 'R', 0},
                                        {kGalileo, 1, 36, 'E', 0},
                                        {kQzss, 193, 10, 'J', 192},
                                        {kBds, 1, 63, 'C', 0},
                                        {kSbas, 120, 39, 0, 0}}};

// clang-format off
/// Rows of the per-system tables below.
constexpr std::array<System, 7> kRows{kGps, kGlonass, kGalileo, kQzss, kSbas, kBds, kIrnss};

/// Slot and carrier (Hz) of a band digit; the step is per GLONASS channel.
struct Band { char digit; int slot; double hz; double stepHz; };
constexpr std::array<std::array<Band, 6>, kRows.size()> kBands{{
    {{{'1', 0, 1575420000.0, 0}, {'2', 1, 1227600000.0, 0}, {'5', 2, 1176450000.0, 0}}},
    {{{'1', 0, 1602000000.0, 562500.0}, {'2', 1, 1246000000.0, 437500.0},
      {'3', 2, 1202025000.0, 0}, {'4', 0, 1600995000.0, 0}, {'6', 1, 1248060000.0, 0}}},
    {{{'1', 0, 1575420000.0, 0}, {'5', 2, 1176450000.0, 0}, {'6', 3, 1278750000.0, 0},
      {'7', 1, 1207140000.0, 0}, {'8', 4, 1191795000.0, 0}}},
    {{{'1', 0, 1575420000.0, 0}, {'2', 1, 1227600000.0, 0}, {'5', 2, 1176450000.0, 0},
      {'6', 3, 1278750000.0, 0}}},
    {{{'1', 0, 1575420000.0, 0}, {'5', 1, 1176450000.0, 0}}},
    // Deliberate: B1C ('1') and B1I ('2') share slot 0; the priority decides.
    {{{'1', 0, 1575420000.0, 0}, {'2', 0, 1561098000.0, 0}, {'5', 2, 1176450000.0, 0},
      {'6', 3, 1268520000.0, 0}, {'7', 1, 1207140000.0, 0}, {'8', 4, 1191795000.0, 0}}},
    {{{'5', 0, 1176450000.0, 0}, {'9', 1, 2492028000.0, 0}}},
}};

/// Tracking letters per row and slot, the best first; writable through setcodepri.
using PriorityRow = std::array<std::string, 8>;
std::array<PriorityRow, kRows.size()> codepris{{
    {"CPYWMNSL", "PYWCMNDLSX", "IQX"},
    {"CPABX", "PCABX", "IQX"},
    {"CABXZ", "IQX", "IQX", "ABCXZ", "IQX"},
    {"CLSXZ", "LSX", "IQXDPZ", "LSXEZ"},
    {"C", "IQX"},
    {"IQXDPAN", "IQXDPZ", "DPX", "IQXA", "DPX"},
    {"ABCX", "ABCX"},
}};

/// Letters of the option patterns "-GL%2s" and so on, by row.
constexpr std::string_view kOptionLetters = "GREJSCI";
// clang-format on

int rowOf(unsigned system) {
    const auto it = std::find(kRows.begin(), kRows.end(), system);
    return it == kRows.end() ? -1 : static_cast<int>(it - kRows.begin());
}

const Band* bandOf(unsigned system, int code) {
    const int row = rowOf(system);
    const std::string_view obs = code2obs(code);
    if (row < 0 || obs.empty())
        return nullptr;
    for (const Band& band : kBands[static_cast<std::size_t>(row)])
        if (band.digit == obs[0])
            return &band;
    return nullptr;
}

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

int satno(unsigned system, int prn) {
    int number = 0;
    if (prn < 1)
        return 0;
    for (const Block& block : kBlocks) {
        if (block.system == system) {
            const int index = prn - block.firstPrn;
            return index >= 0 && index < block.count ? number + index + 1 : 0;
        }
        number += block.count;
    }
    return 0;
}

unsigned satsys(int sat, int* prn) {
    int index = sat - 1;
    if (sat >= 1 && sat <= kMaxSatNumber)
        for (const Block& block : kBlocks) {
            if (index < block.count) {
                if (prn)
                    *prn = block.firstPrn + index;
                return block.system;
            }
            index -= block.count;
        }
    if (prn)
        *prn = 0;
    return kNoSystem;
}

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
    for (const Block& block : kBlocks)
        if (block.letter == id[0] && block.letter != 0)
            return satno(block.system, prn + block.prnOfZero);
    return 0; // I and L are names of systems without a block
}

std::string satno2id(int sat) {
    int prn = 0;
    const unsigned system = satsys(sat, &prn);
    for (const Block& block : kBlocks) {
        if (block.system != system)
            continue;
        std::array<char, 16> id{};
        if (block.letter)
            std::snprintf(id.data(), id.size(), "%c%02d", block.letter, prn - block.prnOfZero);
        else
            std::snprintf(id.data(), id.size(), "%03d", prn);
        return id.data();
    }
    return {};
}

std::string_view code2obs(int code) {
    return code > 0 && code <= kLastPrintedCode ? obscodes[static_cast<std::size_t>(code)]
                                                : std::string_view{};
}

int code2idx(unsigned system, int code) {
    const Band* band = bandOf(system, code);
    return band ? band->slot : -1;
}

double code2freq(unsigned system, int code, int fcn) {
    const Band* band = bandOf(system, code);
    if (!band)
        return 0.0;
    if (band->stepHz == 0.0)
        return band->hz;
    return validChannel(fcn) ? band->hz + band->stepHz * fcn : 0.0;
}

void setcodepri(unsigned systems, int idx, std::string_view letters) {
    if (idx < 0 || idx > 7)
        return;
    for (std::size_t row = 0; row < kRows.size(); ++row)
        if (systems & kRows[row])
            codepris[row][static_cast<std::size_t>(idx)] = letters.substr(0, 15);
}

int getcodepri(unsigned system, int code, std::string_view options) {
    const int row = rowOf(system);
    const int slot = code2idx(system, code);
    if (row < 0 || slot < 0)
        return 0;
    const std::string_view obs = code2obs(code);
    const auto r = static_cast<std::size_t>(row);
    if (const int byOption = priorityByOption(kOptionLetters[r], obs, options); byOption >= 0)
        return byOption;
    const int place = index_string(codepris[r][static_cast<std::size_t>(slot)], obs[1]);
    return place < 0 ? 0 : 14 - place;
}
