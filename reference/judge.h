/// Judges what a service sends back for a stream: the independent readers, orbits and geometry of
/// this folder against every byte of the replies.
#pragma once

#include "frame.h"
#include "geometry.h"

#include <map>
#include <set>
#include <string>
#include <vector>

struct Expectation {
    ref::Vec3 siteM;
    int week = 0;                     ///< GPS week of the whole stream
    std::set<std::string> satellites; ///< configured
    std::map<int, int> channels;      ///< GLONASS, by slot
    /// Signals that reach the epoch buffer, in the order of the decoder's slots: of two with one
    /// band digit the later overwrites the earlier.
    std::map<char, std::vector<std::string>> stored;
    /// Signals that a reply carries.
    std::map<char, std::set<std::string>> carried{{'G', {"1C", "2W", "5Q"}},
                                                  {'R', {"1P", "2P"}},
                                                  {'E', {"1X", "5X", "6X", "7X"}},
                                                  {'C', {"2I", "6I", "7I"}},
                                                  {'J', {"1C", "2X", "5Q"}}};
};

struct Verdict {
    int replies = 0, forwarded = 0, cells = 0;
    std::map<std::string, int> signals; ///< cells by system and signal, such as "G1C"
    double worstRangeM = 0, worstPhaseM = 0;
    std::vector<std::string> faults; ///< empty: everything was right
};

/// Walks the stream as sent and the bytes received, side by side.
Verdict judge(const ref::Bytes& sent, const ref::Bytes& received, const Expectation& expectation);
