#pragma once

#include "domain/GlucoseConstants.h"

#include <optional>

namespace glinta {

// The band readings should stay in, always in mg/dL. The default is the one the panel, the widget and the
// alerts use until the user picks another.
struct TargetRange
{
    static constexpr double lowestLow = 54.0;
    static constexpr double highestLow = 120.0;
    static constexpr double lowestHigh = 120.0;
    static constexpr double highestHigh = 300.0;
    static constexpr double minimumWidth = 10.0;

    double lowMgPerDl = targetLowMgPerDl;
    double highMgPerDl = targetHighMgPerDl;

    enum class Problem
    {
        lowOutOfBounds,
        highOutOfBounds,
        // The low is less than 10 mg/dL below the high.
        tooNarrow,
    };
    // The first rule the range breaks, or nothing for one the user may choose.
    std::optional<Problem> problem() const;

    friend bool operator==(const TargetRange &, const TargetRange &) = default;
};

} // namespace glinta
