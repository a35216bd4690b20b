/// How what came back differs from what is owed.
#pragma once

#include <string>

namespace ref {

/// Answer minus truth.
struct CellError {
    double rangeM = 0, phaseM = 0, rateMps = 0;
};

constexpr double kRateBoundMps = 4e-4; ///< on |rate - truth|

/// Half a step of the fields, and what is allowed.
struct CellBounds {
    double rangeHalfStepM = 0, phaseHalfStepM = 0, rangeM = 0, phaseM = 0;
};

/// What can be wrong with what comes back.
enum class Trouble {
    noFrame,       ///< bytes that begin none, or one that does not end
    altered,       ///< a forwarded frame with a wrong check word
    unasked,       ///< a forwarded frame that nobody asked for
    missingFrame,  ///< a forwarded frame that did not come
    missingReply,  ///< no answer to an epoch
    unaskedReply,  ///< an answer to another epoch than those due
    brokenReply,   ///< an answer that cannot be taken apart
    position,      ///< 1005
    noPosition,    ///< an answer that does not begin with 1005, where it has to
    descriptors,   ///< 1033, or none
    messages,      ///< heads, order and reserved bits of the observation messages
    cellMissing,   ///< an observation that is due
    cellUnasked,   ///< an observation that must not be there
    cellValues,    ///< range, phase and rate
    cellQualities, ///< lock time, half-cycle flag, CNR, extended satellite information
};

struct Difference {
    Trouble what;
    std::string words; ///< empty: told by the one before
    std::string sat{}; ///< empty: of the message
    CellError off{};   ///< sizes of values that are wrong
};

/// An observation that had to be there, or could, and is.
struct ComparedCell {
    std::string sat, signal;
    bool known = false; ///< the values that it had to have
    CellError error{};
    CellBounds bounds{};
};

} // namespace ref
