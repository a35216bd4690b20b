#pragma once

#include <string>
#include <utility>
#include <vector>

/// SourceTable: the list of streams of a caster (RTCM 10410.1, source table).

namespace gateway::ntrip {

/// A line STR, its fields in the order of the standard. It is of a single base, in no network, that
/// wants no position of a rover.
struct StreamEntry {
    std::string mountpoint, identifier;
    std::vector<std::pair<int, double>> messages; // number, measured interval (s; 0 = once)
    int carrier = 2;                              // 0 none, 1 L1, 2 L1 and L2 or more
    std::string systems;                          // letters of G R E C J S I
    std::string country;                          // ISO 3166, three letters; empty: not known
    double latitudeDeg = 0.0, longitudeDeg = 0.0;
    std::string generator;
    char authentication = 'N'; // 'N', 'B'
    int bitRate = 0;           // bits/s
    std::string misc = "none";
};
struct CasterEntry {
    std::string host;
    int port = 0;
    std::string identifier, operatorName, country;
};

/// Without "STR;": what a source sends of itself is this, too.
std::string streamLine(const StreamEntry& entry);
/// The whole table, with CAS and ENDSOURCETABLE.
std::string sourceTable(const CasterEntry& caster, const std::vector<StreamEntry>& streams);

} // namespace gateway::ntrip
