#include "domain/TargetRange.h"

namespace glinta {

std::optional<TargetRange::Problem> TargetRange::problem() const
{
    // Written so that NaN fails every bound.
    if (!(lowMgPerDl >= lowestLow && lowMgPerDl <= highestLow))
        return Problem::lowOutOfBounds;
    if (!(highMgPerDl >= lowestHigh && highMgPerDl <= highestHigh))
        return Problem::highOutOfBounds;
    if (!(highMgPerDl - lowMgPerDl >= minimumWidth))
        return Problem::tooNarrow;
    return std::nullopt;
}

} // namespace glinta
