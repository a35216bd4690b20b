#pragma once

#include "ctl/simulate/Endpoint.h"

#include <memory>
#include <ostream>
#include <string_view>

/// Summary: what a simulation shows while it runs and at its end.

namespace ctl::simulate {

/// What is known of the stream: the values of right replies (else they are checked for form, order
/// and completeness), its day, the station's position.
struct Known {
    bool values = true, day = true, site = true;
};

/// One line an epoch of the first endpoint, or on a terminal one that moves.
class Progress {
public:
    enum class Kind { none, lines, moving };
    Progress(std::ostream& out, Kind kind, Known known) : out_(out), kind_(kind), known_(known) {}
    ~Progress() { end(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void epoch(const ref::EpochResult& result, const ref::Verdict& soFar);
    /// Any other line.
    void say(const std::string& line);
    void end(); ///< of the line that moves

private:
    std::ostream& out_;
    Kind kind_;
    Known known_;
    bool open_ = false;
};

/// What an answer keeps of a stream.
struct Kept {
    std::map<char, ref::CellTally> systems;
    std::map<std::string, long> sent;   // by signal
    std::map<std::string, int> signals; // that came back
    std::map<char, ref::Worst> worst;   // by system
};

/// Figures of all endpoints.
struct Totals {
    long epochs = 0; // made
    long given = 0;  // to a connected service, counted by endpoint
    int connections = 0;
    std::uint64_t bytesSent = 0;
    ref::Verdict verdict; // of all together
    std::map<Fault, int> faults;
    Known known;
    std::vector<ref::Answer> answers{ref::Answer::specified}; // of the endpoints, in turn
    std::map<ref::Answer, Kept> kept;
    int endpoints = 1;
    bool rovers = false; // got what came back
    int roverConnections = 0;
    int silent = 0; // endpoints with replies that carried no observation
};
Totals totalsOf(const std::vector<std::unique_ptr<Endpoint>>& endpoints, const FaultPlan& station,
                long epochs, Known known);

/// Systems that a reply can hold.
inline constexpr std::string_view kSimulatedSystems = "GRECJ";
/// Systems that a stream can have, in the order of tables.
inline constexpr std::string_view kStreamSystems = "GRECJSI";
const char* systemName(char system);
const char* name(ref::Answer answer);
/// "2W" of "G2W"
std::string codeOf(const std::string& signal);

/// For a person; for a program (one JSON object).
std::string summaryText(const Totals& t);
std::string summaryJson(const Totals& t);

/// "2 epochs and 1 forwarded frame"
std::string missedText(const ref::Gap& gap);

/// The delay that a part (0..1) of the replies did not exceed, s; 0 without any.
double delayAt(std::vector<float> delaysS, double part);

} // namespace ctl::simulate
