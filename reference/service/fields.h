/// A message of a complete answer, field by field, against the one that was received.
#pragma once

#include "difference.h"
#include "predict.h"

namespace ref {

/// Of MSM 4 to 7, and of any rate.
CellBounds boundsOf(int msm);
/// For the rounding on the way to a value.
constexpr double kRoundingM = 2e-5;

struct ComparedMessage {
    std::vector<Difference> differences;
    std::vector<ComparedCell> cells; ///< that had to be there and are
};

enum class More { no, follows };
enum class Values { known, unknown };
ComparedMessage compareMessage(const DueMessage& due, const RawMsm& got, More more, Values values);

} // namespace ref
