/// What a judge finds.
#pragma once

#include "difference.h"
#include "predict.h"

#include "reference/standard/census.h"

namespace ref {

/// One answered epoch.
struct EpochResult {
    struct Satellite {
        ExpectedSatellite expected;
        double rangeErrorM = 0, phaseErrorM = 0; ///< the largest of its cells, signed
        std::vector<CellError> cells;
        CellBounds bounds; ///< of its cells
    };
    GpsTime time;
    std::size_t bytes = 0;
    double delayS = 0; ///< last byte of the epoch sent to first byte of the answer
    bool right = true;
    std::vector<Satellite> satellites;
};

struct Worst {
    double rangeM = 0, phaseM = 0, rateMps = 0;
    int cells = 0;
    CellBounds bounds; ///< the largest
};

/// How one satellite fared in the answers.
struct SatelliteTally {
    struct Wrong {
        int epochs = 0;
        double rangeM = 0, phaseM = 0; ///< the largest differences of those beyond the bounds
        double rateMps = 0;
    };
    int due = 0; ///< epochs that had to carry it
    std::map<Trouble, Wrong> wrong;
};

/// What did not come between two epochs that did.
struct Gap {
    GpsTime from; ///< its first epoch; without one, the epoch that came
    int epochs = 0, frames = 0;
};

/// The positions that 1005 said.
struct PositionTally {
    int wrong = 0;    ///< messages
    double awayM = 0; ///< the largest distance from where it belongs
    Vec3 cameM{}, dueM{};
};

/// Observations of epochs that end: received, of satellites that can be answered, and kept.
struct CellTally {
    long received = 0, answerable = 0, kept = 0;
};

struct Verdict {
    StreamCounts stream;                ///< what was sent
    long ended = 0;                     ///< epochs that end in the frames a service accepts
    long taken = 0;                     ///< of them, those that it takes for an epoch
    long others = 0;                    ///< of them, those of another station
    long due = 0;                       ///< answers asked for
    long unfinished = 0;                ///< of them, for epochs without their end mark
    int replies = 0, forwarded = 0;     ///< that came
    int missing = 0;                    ///< frames that did not come
    std::vector<Gap> gaps;              ///< the same at a rover, where it is no fault of a value
    int cells = 0;                      ///< observations compared with the truth
    std::map<char, CellTally> tally;    ///< by system
    std::map<std::string, int> signals; ///< observations that came, such as "G1C"
    std::map<char, Worst> worst;        ///< by system
    std::map<Fate, int> fates;          ///< satellites of all epochs
    std::map<int, std::uint64_t> bytes; ///< received by message type, 0 = around messages
    std::vector<float> delaysS;         ///< of every answer whose sending time is known
    int wrong = 0;                      ///< faults, all
    std::map<Trouble, int> troubles;    ///< the same by kind
    std::map<std::string, SatelliteTally> satellites;
    /// Messages of replies with another epoch than the reply's: how many, and by how much (s) the
    /// last of them, by type.
    std::map<int, std::pair<int, double>> otherEpoch;
    std::map<int, int> missingTypes; ///< forwarded frames that did not come, by type
    PositionTally position;
    std::vector<std::string> faults; ///< the first of each kind in words
    double worstRangeM() const;
    double worstPhaseM() const;
    int observations() const; ///< that came
};

} // namespace ref
