#pragma once

#include <QString>

#include <cstdint>
#include <optional>

namespace glinta {

// Direction of change the sensor reports with a reading; the raw values are the service's trend codes.
enum class TrendArrow : std::int8_t
{
    fallingQuickly = 1,
    falling = 2,
    steady = 3,
    rising = 4,
    risingQuickly = 5,
};

// Codes outside 1...5 are not an error: they simply carry no trend.
std::optional<TrendArrow> trendArrowFromRawValue(std::int64_t rawValue);
inline std::int64_t rawValue(TrendArrow trend)
{
    return static_cast<std::int64_t>(trend);
}

QString symbol(TrendArrow trend);
QString spokenName(TrendArrow trend);

} // namespace glinta
